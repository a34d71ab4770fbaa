#include "COMMON.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace {
// Most messages fit the first buffer and cost one formatting pass.
constexpr size_t kFirstLogBufferSize = 256;

struct FreeBuffer {
    void operator()(char *p) const { free(p); }
};
} // namespace

int COM_Printf(const char *file, int line, const char *func, const char *fmt, ...)
{
    // printf is a cancellation point: the owner frees the buffer when a
    // cancelled thread unwinds through it.
    size_t size = kFirstLogBufferSize;
    std::unique_ptr<char, FreeBuffer> buf(static_cast<char *>(malloc(size)));
    if (buf == nullptr) {
        return -1;
    }

    for (;;) {
        va_list args;
        va_start(args, fmt);
        const int needed = vsnprintf(buf.get(), size, fmt, args);
        va_end(args);
        if (needed >= 0 && static_cast<size_t>(needed) < size) {
            break;
        }
        size = needed >= 0 ? static_cast<size_t>(needed) + 1 : size * 2;
        char *grown = static_cast<char *>(realloc(buf.get(), size));
        if (grown == nullptr) {
            buf.reset();
            break;
        }
        (void)buf.release();
        buf.reset(grown);
    }

    if (buf == nullptr) {
        return printf("%s,%d:%s(): Failed to print", file, line, func);
    }
    if (func != nullptr) {
        return printf("%s,%d:%s(): %s", file, line, func, buf.get());
    }
    return printf("%s,%d: %s", file, line, buf.get());
}
