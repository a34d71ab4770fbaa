#include "COMMON.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace {
// Most messages fit the first buffer and cost one formatting pass.
constexpr size_t kFirstLogBufferSize = 256;
} // namespace

int COM_Printf(const char *file, int line, const char *func, const char *fmt, ...)
{
    size_t size = kFirstLogBufferSize;
    char *buf = static_cast<char *>(malloc(size));
    if (buf == nullptr) {
        return -1;
    }

    for (;;) {
        va_list args;
        va_start(args, fmt);
        const int needed = vsnprintf(buf, size, fmt, args);
        va_end(args);
        if (needed >= 0 && static_cast<size_t>(needed) < size) {
            break;
        }
        size = needed >= 0 ? static_cast<size_t>(needed) + 1 : size * 2;
        char *grown = static_cast<char *>(realloc(buf, size));
        if (grown == nullptr) {
            free(buf);
            buf = nullptr;
            break;
        }
        buf = grown;
    }

    int rc;
    if (buf == nullptr) {
        rc = printf("%s,%d:%s(): Failed to print", file, line, func);
    } else if (func != nullptr) {
        rc = printf("%s,%d:%s(): %s", file, line, func, buf);
    } else {
        rc = printf("%s,%d: %s", file, line, buf);
    }
    free(buf);
    return rc;
}
