#include "COMMON.h"

#include <cctype>
#include <cstdio>

namespace {
constexpr int kBytesPerLine = 16;

template <typename PrintByte>
void dump(const char *title, const void *data, int length, PrintByte printByte)
{
    printf("[ %s ][%p]\n====\n", title, data);
    const auto *bytes = static_cast<const unsigned char *>(data);
    int printed = 0;
    for (int i = 0; bytes != nullptr && i < length; ++i) {
        printByte(bytes[i]);
        if (++printed % kBytesPerLine == 0) {
            printf("\n");
        }
    }
    printf("%s====\n", printed % kBytesPerLine != 0 ? "\n" : "");
}
} // namespace

void COM_DumpHex(const char *title, const void *data, int length)
{
    dump(title, data, length, [](unsigned char b) { printf("%02X ", b); });
}

void COM_DumpHexChars(const char *title, const void *data, int length)
{
    dump(title, data, length, [](unsigned char b) {
        const int c = (isprint(b) && !iscntrl(b)) ? b : '?';
        printf("%02X[%c] ", b, c);
    });
}
