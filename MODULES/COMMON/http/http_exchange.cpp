// One exchange with one address: connect, send the request, read the answer
// into the caller's growing block, close.
#include "http_private.h"

#include <arpa/inet.h>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <netinet/in.h>
#include <sys/select.h>
#include <sys/socket.h>

#include "fd_io.h"

namespace {
constexpr int kSocketTimeoutSeconds = 30;
constexpr int kWriteWaitSeconds = 5;
constexpr int kReadWaitSeconds = 10;
constexpr long kPauseNs = 30'000'000;
// Waits that give nothing, over the whole exchange, before the answer ends.
constexpr int kFailedWaitLimit = 1;

// select() on one descriptor for reading or writing; tv keeps what remains.
// A descriptor beyond what an fd_set holds fails as a bad one.
int waitFor(int fd, bool writing, timeval &tv)
{
    if (fd >= FD_SETSIZE) {
        errno = EBADF;
        return -1;
    }
    fd_set set;
    FD_ZERO(&set);
    FD_SET(fd, &set);
    return select(fd + 1, writing ? nullptr : &set, writing ? &set : nullptr, nullptr, &tv);
}

struct Block {
    char *bytes;
    int size;
};

// One block: taken at once when it is there (a wait would return at once,
// and a long answer costs half the calls), otherwise after a wait for it.
// -2 when the waits ran out.
ssize_t receiveBlock(int fd, char *into, int size, int &failedWaits)
{
    for (;;) {
        const ssize_t n = recv(fd, into, static_cast<size_t>(size), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n >= 0 || (errno != EAGAIN && errno != EWOULDBLOCK)) {
            return n;
        }
        timeval tv{kReadWaitSeconds, 0};
        if (waitFor(fd, false, tv) > 0) {
            return recv(fd, into, static_cast<size_t>(size), MSG_NOSIGNAL);
        }
        if (++failedWaits > kFailedWaitLimit) {
            return -2;
        }
    }
}

// Reads blocks until the peer closes, an error, two failed waits, or the
// body reaches its Content-Length. Only the bytes after the header end go to
// the answer, unless keepHeader asks for the header too. Body blocks are
// received straight into the answer's room.
void receiveAnswer(const char *func, int fd, Block block, bool keepHeader, http::Answer &answer)
{
    int failedWaits = 0, contentLength = -1;
    int64_t body = 0;
    bool headerDone = false;
    for (;;) {
        char *direct = headerDone ? answer.room(block.size) : nullptr;
        const ssize_t n =
            receiveBlock(fd, direct != nullptr ? direct : block.bytes, block.size, failedWaits);
        if (n == 0 || n == -2) {
            return;
        }
        if (n < 0) {
            COM_LOG_FAILED_CALL(func, "recv() = %d : %s\n", static_cast<int>(n));
            return;
        }
        int length = static_cast<int>(n);
        if (headerDone) {
            if (direct != nullptr) {
                answer.commit(length);
            } else {
                answer.reportLost(func, length);
            }
        } else {
            const char *rest = block.bytes;
            if (contentLength == -1) {
                contentLength = http::scanContentLength(rest, length);
            }
            const int end = http::findHeaderEnd(rest, length);
            const int header = end > 0 ? end : length;
            if (keepHeader) {
                answer.append(func, rest, header);
            }
            headerDone = end > 0;
            length -= header;
            if (!headerDone) {
                continue;
            }
            if (contentLength >= 0) {
                // Room for the announced body and one block more: the last
                // receive may take a whole block beyond the body's end.
                answer.expect(static_cast<int64_t>(answer.stored()) + contentLength + block.size +
                              1);
            }
            if (length == 0 && contentLength == 0) {
                return;
            }
            answer.append(func, rest + header, length);
        }
        body += length;
        if (contentLength >= 0 && body >= contentLength) {
            return;
        }
    }
}

// Waits for the socket to take the request and sends it. False when the wait
// itself failed.
bool sendRequest(const char *func, int fd, const char *path, const char *request, int length)
{
    timeval tv{kWriteWaitSeconds, 0};
    const int ready = waitFor(fd, true, tv);
    if (ready < 0) {
        COM_LOG_FAILED_CALL(nullptr, "select([%s], %d, %d.%06d sec) error : %s\n", path, fd,
                            static_cast<int>(tv.tv_sec), static_cast<int>(tv.tv_usec));
        return false;
    }
    if (ready == 0) {
        COM_LOG(nullptr, "select([%s], %d) timeout\n", path, fd);
    } else if (send(fd, request, static_cast<size_t>(length), MSG_NOSIGNAL) < 0) {
        COM_LOG_FAILED_CALL(func, "send() failed : %s\n");
    }
    return true;
}

void pauseBeforeReading()
{
    const timespec ts{0, kPauseNs};
    if (nanosleep(&ts, nullptr) != 0) {
        COM_LOG(nullptr, "nanosleep(), error!!\n");
    }
}

struct FreeDeleter {
    void operator()(char *p) const { free(p); }
};
} // namespace

int COM_SubSendHttpCmd(const sockaddr_in *peer, const char *host, const char *authText,
                       const char *path, char **out, COM_HTTP_AUTH * /*auth*/, int kind,
                       const char *data, int keep_header, const char *cookie, int https)
{
    if (peer == nullptr || host == nullptr || authText == nullptr || out == nullptr) {
        return -1;
    }
    path = path != nullptr ? path : "/";
    data = data != nullptr ? data : "";
    const int port = ntohs(peer->sin_port);
    // The request is built before anything is opened: one that doesn't fit
    // its buffer is refused whole.
    char buf[http::kRequestSize];
    const int header =
        http::buildRequest(buf, sizeof buf, kind, host, port, path, cookie, authText, data);
    if (header < 0) {
        COM_LOG(__func__, "buffer overflow : (len, limit) = (%d, %d)\n", -header - 1,
                http::kRequestSize);
        return -1;
    }
    Block request{buf, header}, receive{buf, http::kRequestSize};
    std::unique_ptr<char, FreeDeleter> joined;
    if (kind == HTTP_CMD_POST) {
        const size_t total = static_cast<size_t>(header) + strlen(data);
        joined.reset(static_cast<char *>(malloc(total + 1)));
        if (joined == nullptr || total > INT32_MAX - 1) {
            COM_LOG(__func__, "malloc pAddDatabuf failed!\n");
            return -1;
        }
        memcpy(joined.get(), buf, static_cast<size_t>(header));
        memcpy(joined.get() + header, data, total - static_cast<size_t>(header) + 1);
        request = receive = Block{joined.get(), static_cast<int>(total)};
    }

    fdio::UniqueFd fd = fdio::openSocket(AF_INET, SOCK_STREAM, 0);
    if (!fd.valid()) {
        COM_LOG_FAILED_CALL(__func__, "socket() error : %s\n");
        return 0;
    }
    COM_SetSocketTimeout(fd.get(), kSocketTimeoutSeconds);
    if (connect(fd.get(), reinterpret_cast<const sockaddr *>(peer), sizeof *peer) != 0) {
        char ip[INET_ADDRSTRLEN] = "";
        inet_ntop(AF_INET, &peer->sin_addr, ip, sizeof ip);
        COM_LOG_FAILED_CALL(nullptr, "connect(%s:%d) error : %s\n", ip, port);
        COM_LOG(nullptr, "Fail to send [%s]\n", path);
        return -1;
    }
    if (https != 0) {
        COM_LOG(nullptr, "Warning! trying to send https command w/o ENABLE_SSL_SUPPORT\n");
    }
    const bool waited = sendRequest(__func__, fd.get(), path, request.bytes, request.size);
    pauseBeforeReading();
    http::Answer answer(out);
    receiveAnswer(__func__, fd.get(), receive, keep_header != 0, answer);
    const int stored = answer.finish(__func__);
    return stored > 0 || waited ? stored : -1;
}
