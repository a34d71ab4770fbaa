// Socket time-outs and the send loop of network code.
#include <sys/socket.h>
#include <sys/time.h>

#include "fd_io.h"

int COM_SetSocketTimeout(int sock, int seconds)
{
    const timeval tv{seconds, 0};
    if (setsockopt(sock, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv) != 0) {
        COM_LOG_FAILED_CALL(nullptr, "setsockopt(%d, SO_SNDTIMEO, %d sec) failed - %s\n", sock,
                            seconds);
        return -1;
    }
    if (setsockopt(sock, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv) != 0) {
        COM_LOG_FAILED_CALL(nullptr, "setsockopt(%d, SO_RCVTIMEO, %d sec) failed - %s\n", sock,
                            seconds);
        return -1;
    }
    return 0;
}

int COM_SendAll(int sock, const void *bytes, int length)
{
    const char *p = static_cast<const char *>(bytes);
    while (length > 0 && p != nullptr) {
        const ssize_t n = send(sock, p, static_cast<size_t>(length), MSG_NOSIGNAL);
        if (n < 1) {
            break;
        }
        p += n;
        length -= static_cast<int>(n);
    }
    return length > 0 ? length : 0;
}
