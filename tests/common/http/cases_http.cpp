// Operations of the command client's case files (tests/cases/http): the
// answer scanners, the auth texts and challenge parse, HTML text, the ring
// copy, the socket helpers and the address bounds.
#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include "case_runner.h"
#include "fake_select.h"
#include "http_private.h"

namespace {
using cases::Args;
using cases::nums;
using cases::q;

// A record of the given type and user; realm, nonce, opaque and qop follow
// when given, otherwise they read "old".
COM_HTTP_AUTH record(Args &a, size_t from)
{
    COM_HTTP_AUTH r{};
    r.type = static_cast<int>(a.n(from));
    char *fields[] = {r.username, r.password, r.realm, r.nonce, r.opaque, r.qop};
    const size_t sizes[] = {sizeof r.username, sizeof r.password, sizeof r.realm,
                            sizeof r.nonce,    sizeof r.opaque,   sizeof r.qop};
    for (size_t i = 0; i < std::size(fields); ++i) {
        snprintf(fields[i], sizes[i], "%s", a.size() > from + 1 + i ? a.s(from + 1 + i) : "old");
    }
    return r;
}

std::string fields(const COM_HTTP_AUTH &r)
{
    return q(r.realm) + " " + q(r.nonce) + " " + q(r.opaque) + " " + q(r.qop) + " " + q(r.nc);
}

// A listening socket on 127.0.0.1 that never answers: a command's read waits
// time out on the fake clock, and the bytes it sent are then read back.
struct Listener {
    Listener()
    {
        socklen_t len = sizeof addr;
        bind(fd, reinterpret_cast<sockaddr *>(&addr), len);
        listen(fd, 4);
        getsockname(fd, reinterpret_cast<sockaddr *>(&addr), &len);
    }
    ~Listener() { COM_SafeClose(&fd); }
    // The next connection's bytes a line each (long lines by their size), "(nothing)",
    // or "(none)" when no connection came.
    std::string received()
    {
        int c = accept4(fd, nullptr, nullptr, SOCK_NONBLOCK);
        std::string all, shown = c < 0 ? "(none)" : "";
        char buf[8192];
        for (ssize_t n; c >= 0 && (n = read(c, buf, sizeof buf)) > 0;) {
            all.append(buf, static_cast<size_t>(n));
        }
        COM_SafeClose(&c);
        for (size_t at = 0, end; at < all.size(); at = end) {
            end = std::min(all.find('\n', at), all.size() - 1) + 1;
            shown +=
                (at > 0 ? "\n" : "") + (end - at > 100 ? "(" + std::to_string(end - at) + " bytes)"
                                                       : q(all.substr(at, end - at)));
        }
        return shown.empty() ? "(nothing)" : shown;
    }
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
    sockaddr_in addr{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
};

// One command to a silent listener: its result, the fake time it waited and
// what the listener received. The port shows as PORT.
std::string exchange(Args &a, const std::function<int(Listener &, const std::string &)> &command)
{
    Listener peer;
    const std::string port = std::to_string(ntohs(peer.addr.sin_port));
    a.sub(":" + port, ":PORT");
    fake::clock::enable();
    fake::clock::timeOutWaits(2);
    const int64_t before = fake::clock::sleptNs();
    const int rc = command(peer, "127.0.0.1:" + port);
    fake::clock::timeOutWaits(0);
    return nums({rc, (fake::clock::sleptNs() - before) / 1'000'000}) + " ms\n" + peer.received();
}

const cases::Register ops({
    {"ChallengeWithoutRecord",
     [](Args &a) { return std::to_string(COM_GetHttpDigestChallenge(a.s(0), nullptr)); }},
    // kind path data cookie https [type user password]: a command as the peer gets it.
    {"Send",
     [](Args &a) {
         return exchange(a, [&](Listener &, const std::string &host) {
             COM_HTTP_AUTH r = record(a, 5);
             char *out = nullptr;
             const int rc = COM_SubGetPostHttpContent((host + a.str(1)).c_str(), &out,
                                                      a.size() > 5 ? &r : nullptr, a.n(0), a.s(2),
                                                      0, a.s(3), a.n(4));
             free(out);
             return rc;
         });
     }},
    // One exchange with a cookie of the given length.
    {"SubSend",
     [](Args &a) {
         return exchange(a, [&](Listener &peer, const std::string &) {
             const std::string cookie(a.n(0), 'c');
             char *out = nullptr;
             const int rc = COM_SubSendHttpCmd(&peer.addr, "h", "\r\n", "/", &out, nullptr, 0,
                                               nullptr, 0, cookie.c_str(), 0);
             free(out);
             return rc;
         });
     }},
    // One exchange with 127.0.0.1:port and no peer of the test's own.
    {"SubSendTo",
     [](Args &a) {
         sockaddr_in to{};
         to.sin_family = AF_INET;
         to.sin_port = htons(static_cast<uint16_t>(a.n(0)));
         to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
         char *out = nullptr;
         const int rc =
             COM_SubSendHttpCmd(&to, "h", "\r\n", "/", &out, nullptr, 0, nullptr, 0, nullptr, 0);
         free(out);
         return std::to_string(rc) + (out == nullptr ? " no answer" : " an answer");
     }},
    // Content-Length and header end of one received block.
    {"Block",
     [](Args &a) {
         const std::string b = a.str(0);
         const int n = static_cast<int>(b.size());
         return nums({http::scanContentLength(b.data(), n), http::findHeaderEnd(b.data(), n)});
     }},
    // method url type user password [realm nonce opaque qop]: the text, then the record.
    {"AuthText",
     [](Args &a) {
         COM_HTTP_AUTH r = record(a, 2);
         char out[COM_HTTP_AUTH_TEXT_SIZE];
         COM_MakeHttpAuthHeader(a.s(0), a.s(1), a.s(2) == nullptr ? nullptr : &r, out);
         return q(out) + "\n" + fields(r);
     }},
    // Every field filled to its width without a terminator.
    {"AuthWide",
     [](Args &a) {
         COM_HTTP_AUTH r;
         memset(&r, 'w', sizeof r);
         r.type = COM_HTTP_AUTH_DIGEST;
         char out[COM_HTTP_AUTH_TEXT_SIZE];
         COM_MakeHttpAuthHeader("GET", a.s(0), &r, out);
         return q(out) + " " + q(std::string(r.qop, sizeof r.qop));
     }},
    {"Challenge",
     [](Args &a) {
         COM_HTTP_AUTH r = record(a, 1);
         const int rc = COM_ParseHttpDigestChallenge(a.s(0), &r);
         return std::to_string(rc) + " " + fields(r);
     }},
    // The answer, then the source text as the pass left it.
    {"Strip",
     [](Args &a) {
         std::string html = a.str(0);
         char *out = nullptr;
         const int rc = COM_StripHtmlCode(html.data(), &out);
         const std::string text = out != nullptr ? q(out) : "NULL";
         free(out);
         return std::to_string(rc) + " " + text + " " + q(html);
     }},
    {"Extract",
     [](Args &a) {
         char *out = nullptr;
         const int rc = COM_ExtractHtmlTag(a.s(0), a.s(1), &out, a.n(2));
         const std::string element = out != nullptr ? q(out) : "NULL";
         free(out);
         return std::to_string(rc) + " " + element;
     }},
    // dst_off dst_size src_off src_size count, from "abcdefgh" into "........"+"[]".
    {"Ring",
     [](Args &a) {
         char src[] = "abcdefgh", dst[] = "........[]";
         a.alias(src, "src");
         a.alias(dst, "dst");
         const int rc = COM_RingCopy(dst, a.n(0), a.n(1), src, a.n(2), a.n(3), a.n(4));
         return std::to_string(rc) + " " + q(dst);
     }},
    {"SocketTimeout", [](Args &a) { return std::to_string(COM_SetSocketTimeout(a.n(0), a.n(1))); }},
    // Bytes left unsent to a connected peer, then after it has gone.
    {"SendAll",
     [](Args &a) {
         int pair[2];
         socketpair(AF_UNIX, SOCK_STREAM, 0, pair);
         const int sent = COM_SendAll(pair[0], a.s(0), static_cast<int>(a.str(0).size()));
         COM_SafeClose(&pair[1]);
         const int gone = COM_SendAll(pair[0], a.s(0), static_cast<int>(a.str(0).size()));
         COM_SafeClose(&pair[0]);
         return nums({sent, gone});
     }},
    {"Get",
     [](Args &a) {
         char *out = nullptr;
         const int rc = COM_GetHttpContent(a.s(0), &out, nullptr);
         free(out);
         return std::to_string(rc);
     }},
});

} // namespace
