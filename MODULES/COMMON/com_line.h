/* Private to the library: text read in pieces of a fixed buffer. */
#ifndef DVR_COM_LINE_H
#define DVR_COM_LINE_H

#include <cerrno>
#include <cstddef>
#include <cstdio>

namespace dvr {

// Reads into buf, as fgets() does, at most size - 1 bytes and no further than
// the first line feed, and terminates them. Unlike fgets() it returns how many
// bytes it read, zero bytes included, so a piece can be written back whole;
// 0 at end of input or on an error. A read that a signal interrupts is
// resumed: an interruption is not the end of the input.
inline size_t readPiece(FILE *stream, char *buf, size_t size)
{
    size_t n = 0;
    while (n + 1 < size) {
        const int c = getc(stream);
        if (c == EOF) {
            if (ferror(stream) && errno == EINTR) {
                clearerr(stream);
                continue;
            }
            break;
        }
        buf[n++] = static_cast<char>(c);
        if (c == '\n') {
            break;
        }
    }
    if (size > 0) {
        buf[n] = '\0';
    }
    return n;
}

} // namespace dvr

#endif
