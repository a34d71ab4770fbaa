#include "dev_text.h"

#include <cstring>

namespace {
bool isAsciiAlnum(char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
}
} // namespace

namespace dev {

void compactModelText(char *text, size_t positions)
{
    size_t read = 0;
    size_t write = 0;
    bool afterBlank = false;
    for (; read < positions && text[read] != '\0'; ++read) {
        const char c = text[read];
        if (c == ' ') {
            if (!afterBlank) {
                text[write++] = c;
                afterBlank = true;
            }
        } else if (isAsciiAlnum(c)) {
            text[write++] = c;
            afterBlank = false;
        }
    }
    memset(text + write, 0, read - write);
    if (write > 0 && text[write - 1] == ' ') {
        text[write - 1] = '\0';
    }
}

} // namespace dev
