// Command addresses and the request texts: the templates go on the wire byte
// for byte, with their odd spellings ("Accept : */*", the lower-case
// "content-length") and the port always in the Host line.
#include "http_private.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "com_log.h"

namespace {
constexpr const char *kWords[] = {"GET",      "POST",  "POST", "POST",    "OPTIONS",
                                  "DESCRIBE", "SETUP", "PLAY", "TEARDOWN"};
constexpr int kDefaultPort = COM_HTTP_DEFAULT_PORT;

constexpr const char *kAccept = "Accept : */*\r\n"
                                "Accept-Language: *\r\n"
                                "Accept-Encoding: *\r\n"
                                "User-Agent: " COM_VERSION_ID "\r\n";
constexpr const char *kKeepAlive = "Connection: Keep-Alive\r\n";

// Formats into a fixed buffer and counts what would not fit, so the full
// length is known without running past the buffer.
class Writer {
public:
    Writer(char *buf, int size) : buf_(buf), size_(size) {}
    void add(const char *fmt, ...) COM_PRINTF_LIKE(2, 3)
    {
        va_list args;
        va_start(args, fmt);
        const int room = length_ < size_ ? size_ - length_ : 0;
        const int n =
            vsnprintf(room > 0 ? buf_ + length_ : nullptr, static_cast<size_t>(room), fmt, args);
        va_end(args);
        length_ += n > 0 ? n : 0;
    }
    // The length; -(length) - 1 when the text and its terminator don't fit.
    int result() const { return length_ < size_ ? length_ : -length_ - 1; }

private:
    char *buf_;
    int size_;
    int length_ = 0;
};
} // namespace

namespace http {

const char *methodWord(int kind)
{
    return kind >= 0 && kind < static_cast<int>(std::size(kWords)) ? kWords[kind] : "POST";
}

const char *pathOf(const char *url)
{
    const char *slash = url != nullptr ? strchr(url, '/') : nullptr;
    return slash != nullptr ? slash : "/";
}

void parseAddress(const char *func, const char *url, Address &out)
{
    out.host[0] = '\0';
    out.port = kDefaultPort;
    const char *slash = strchr(url, '/');
    const size_t length = slash != nullptr ? static_cast<size_t>(slash - url) : strlen(url);
    if (slash != nullptr && length + 1 > sizeof out.host) {
        COM_LOG(func, "buffer overflow : (len, limit) = (%d, %d)\n", static_cast<int>(length),
                kHostSize);
        return;
    }
    snprintf(out.host, sizeof out.host, "%.*s", static_cast<int>(length), url);
    if (char *colon = strchr(out.host, ':'); colon != nullptr) {
        *colon = '\0';
        out.port = atoi(colon + 1);
    }
}

int buildRequest(char *buf, int size, int kind, const char *host, int port, const char *path,
                 const char *cookie, const char *authText, const char *data)
{
    Writer w(buf, size);
    switch (kind) {
    case HTTP_CMD_GET:
        w.add("GET %s HTTP/1.1\r\n%sHost: %s:%d\r\n%s", path, kAccept, host, port, kKeepAlive);
        break;
    case HTTP_CMD_POST:
        w.add("POST %s HTTP/1.0\r\n%sHost: %s:%d\r\ncontent-length: %d\r\n"
              "Content-Type: application/x-www-form-urlencoded\r\n%s",
              path, kAccept, host, port, static_cast<int>(strlen(data)), kKeepAlive);
        break;
    case HTTP_CMD_POST_HEADERS:
        w.add("POST %s HTTP/1.0\r\n%sHost: %s:%d\r\n%s%s", path, kAccept, host, port, kKeepAlive,
              data);
        return w.result();
    case HTTP_CMD_RAW:
        w.add("%s", data);
        return w.result();
    default:
        return 0;
    }
    if (cookie != nullptr) {
        w.add("Cookie: %s\r\n", cookie);
    }
    w.add("%s", authText);
    return w.result();
}

} // namespace http
