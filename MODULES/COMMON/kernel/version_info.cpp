#include "COMMON.h"

#include <cctype>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace {
constexpr const char *kKernelVersionFile = "/proc/version";
constexpr const char *kRevisionFile = "/etc/SVN";
constexpr int kReadSize = 255;
constexpr int kRevisionDigits = 4;

// Up to 255 bytes of a small file as text; empty if it can't be read.
std::string_view readSmallFile(const char *path, char (&buf)[kReadSize + 1])
{
    memset(buf, 0, sizeof buf);
    COM_ReadDataFromFile(path, buf, kReadSize);
    return std::string_view(buf, strlen(buf));
}

void store(char *out, std::string_view text)
{
    if (out != nullptr) {
        memcpy(out, text.data(), text.size());
        out[text.size()] = '\0';
    }
}

size_t skipWhile(std::string_view text, size_t pos, int (*keep)(int))
{
    while (pos < text.size() && keep(static_cast<unsigned char>(text[pos]))) {
        ++pos;
    }
    return pos;
}

int isNotSpace(int c)
{
    return !isspace(c);
}
} // namespace

void COM_GetKernelVersion(char *version, char *rest)
{
    char buf[kReadSize + 1];
    const std::string_view text = readSmallFile(kKernelVersionFile, buf);
    constexpr std::string_view kMark = "Linux version ";
    const size_t start = text.find(kMark);
    if (start == std::string_view::npos) {
        return;
    }
    const size_t from = start + kMark.size();
    const size_t dot1 = text.find('.', from);
    const size_t dot2 = dot1 == std::string_view::npos ? dot1 : text.find('.', dot1 + 1);
    if (dot2 == std::string_view::npos) {
        return;
    }
    // "2.6.24-abc ...": the version ends with the digits behind the second dot.
    const size_t end = skipWhile(text, dot2 + 1, isdigit);
    if (end >= text.size()) {
        return;
    }
    store(version, text.substr(from, end - from));
    const size_t restEnd = skipWhile(text, end + 1, isNotSpace);
    if (restEnd >= text.size()) {
        return;
    }
    store(rest, text.substr(end + 1, restEnd - end - 1));
}

void COM_GetRevision(char *revision)
{
    char buf[kReadSize + 1];
    const std::string_view text = readSmallFile(kRevisionFile, buf);
    constexpr std::string_view kMark = "Revision: ";
    const size_t start = text.find(kMark);
    if (start == std::string_view::npos || revision == nullptr) {
        return;
    }
    const size_t from = start + kMark.size();
    const size_t end = skipWhile(text, from, isalnum);
    if (end >= text.size()) {
        return;
    }
    const std::string_view run = text.substr(from, end - from);
    const bool allDigits = skipWhile(run, 0, isdigit) == run.size();
    // Short revision numbers are shown with four digits: 7 is 0007. Longer
    // ones keep their digits.
    if (allDigits && !run.empty() && run.size() < kRevisionDigits) {
        int number = 0;
        for (const char digit : run) {
            number = number * 10 + (digit - '0');
        }
        snprintf(revision, kRevisionDigits + 1, "%04d", number);
    } else {
        store(revision, run);
    }
}

void COM_ShowVersion(void)
{
    static const char kSourceId[] = "$Id: COMMON 7435 2011-10-18 09:27:20Z tesmar $";
    puts(kSourceId);
    puts(COM_VERSION_ID);
}
