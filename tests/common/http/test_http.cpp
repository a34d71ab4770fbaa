// The command client on loopback sockets: requests as a peer receives them
// (golden files), the bounds of the request, host and auth texts, the
// answer-side scanners, HTML text, the socket helpers and the ring copy. The
// HttpPeer tests run in tests/peers/test_http.sh against real servers.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <fstream>
#include <sys/socket.h>
#include <unistd.h>

#include "COMMON.h"
#include "fake_select.h"
#include "http_private.h"
#include "test_support.h"

namespace {

template <typename Fn> std::string logOf(Fn fn)
{
    return fake::withoutLineNumbers(fake::captureStdout(fn));
}
std::string golden(const std::string &name)
{
    return DVR_TEST_DATA_DIR "/http/" + name + ".txt";
}
// Compares with a golden file; DVR_UPDATE_GOLDEN=1 rewrites it instead.
void expectGolden(const std::string &name, const std::string &actual)
{
    if (getenv("DVR_UPDATE_GOLDEN") != nullptr) {
        std::ofstream(golden(name), std::ios::binary) << actual;
    }
    EXPECT_EQ(actual, fake::readFile(golden(name))) << name;
}

// A listening TCP socket on 127.0.0.1 that never answers: the client's read
// waits time out on the fake clock, and the test then takes what was sent.
struct Listener {
    Listener()
    {
        sockaddr_in a{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
        socklen_t len = sizeof a;
        EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr *>(&a), len) | listen(fd, 4) |
                      getsockname(fd, reinterpret_cast<sockaddr *>(&a), &len),
                  0);
        port = ntohs(a.sin_port);
    }
    ~Listener() { COM_SafeClose(&fd); }
    std::string url(const std::string &path = "") const
    {
        return "127.0.0.1:" + std::to_string(port) + path;
    }
    // The bytes of the next connection, or "(none)" when none came.
    std::string received()
    {
        int c = accept4(fd, nullptr, nullptr, SOCK_NONBLOCK);
        if (c < 0) {
            return "(none)";
        }
        std::string all;
        char buf[8192];
        for (ssize_t n; (n = read(c, buf, sizeof buf)) > 0;) {
            all.append(buf, static_cast<size_t>(n));
        }
        COM_SafeClose(&c);
        // The port is the test's own; the golden files say PORT.
        for (size_t at; (at = all.find(":" + std::to_string(port))) != std::string::npos;) {
            all.replace(at + 1, std::to_string(port).size(), "PORT");
        }
        return all;
    }
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
    int port = 0;
};

class Http : public testing::Test {
protected:
    void SetUp() override { fake::clock::enable(); }
    void TearDown() override
    {
        fake::clock::timeOutWaits(0);
        free(out);
    }
    // One command to the listener whose answer never comes: result and log.
    std::pair<int, std::string> silent(const std::function<int()> &call)
    {
        fake::clock::timeOutWaits(2);
        int rc = 0;
        std::string log = logOf([&] { rc = call(); });
        return {rc, log};
    }
    Listener peer;
    char *out = nullptr;
};

COM_HTTP_AUTH record(int type, const char *user, const char *password)
{
    COM_HTTP_AUTH a;
    memset(&a, 0, sizeof a);
    a.type = type;
    snprintf(a.username, sizeof a.username, "%s", user);
    snprintf(a.password, sizeof a.password, "%s", password);
    return a;
}

TEST_F(Http, RequestsAsThePeerReceivesThem)
{
    COM_HTTP_AUTH basic = record(COM_HTTP_AUTH_BASIC, "Aladdin", "open sesame");
    const std::string rtsp = "OPTIONS rtsp://cam/live RTSP/1.0\r\nCSeq: 1\r\n\r\n";
    struct Case {
        const char *name;
        std::string path;
        COM_HTTP_AUTH *auth;
        int kind;
        const char *data, *cookie;
        int https;
        const char *log;
    } cases[] = {
        {"get_root", "", nullptr, HTTP_CMD_GET, nullptr, nullptr, 0, ""},
        {"get_basic_cookie", "/cgi-bin/a.cgi?x=1&y=%20", &basic, HTTP_CMD_GET, nullptr, "sid=42", 0,
         ""},
        {"post_form_cookie", "/form", nullptr, HTTP_CMD_POST, "a=1&b=two", "sid=42", 0, ""},
        {"post_basic_https", "/p", &basic, HTTP_CMD_POST, "", nullptr, 1,
         "http_exchange.cpp,N: Warning! trying to send https command w/o ENABLE_SSL_SUPPORT\n"},
        {"post_headers", "/h", &basic, HTTP_CMD_POST_HEADERS, "X-One: 1\r\n\r\nbody", "c=1", 0, ""},
        {"raw_rtsp", "/live", &basic, HTTP_CMD_RAW, rtsp.c_str(), "c=1", 0, ""},
        {"rtsp_describe_kind", "/live", nullptr, RTSP_CMD_DESCRIBE, nullptr, nullptr, 0, ""},
    };
    for (const Case &c : cases) {
        const auto [rc, log] = silent([&] {
            return COM_SubGetPostHttpContent(peer.url(c.path).c_str(), &out, c.auth, c.kind, c.data,
                                             0, c.cookie, c.https);
        });
        EXPECT_EQ(rc, 0) << c.name;
        EXPECT_EQ(log, c.log) << c.name;
        expectGolden(c.name, peer.received());
    }
    EXPECT_EQ(out, nullptr);
    // Two read waits of 10 seconds and the 30 ms pause per command, on the fake clock.
    EXPECT_EQ(fake::clock::sleptNs(), std::size(cases) * 20'030'000'000LL);
}

// A request fits its 4,096 bytes with the terminator; one byte more is refused
// before a lookup or a connection.
TEST_F(Http, RequestLimitRefusesBeforeSending)
{
    for (const int length : {4095, 4096}) {
        const std::string data(static_cast<size_t>(length), 'r');
        const auto [rc, log] = silent(
            [&] { return COM_SendRawHttpCmd(peer.url("/").c_str(), &out, nullptr, data.c_str()); });
        const bool fits = length < COM_HTTP_REQUEST_SIZE;
        EXPECT_EQ(rc, fits ? 0 : -1);
        EXPECT_EQ(log, fits ? ""
                            : "http_command.cpp,N:COM_SubGetPostHttpContent(): buffer overflow : "
                              "(len, limit) = (4096, 4096)\n");
        EXPECT_EQ(peer.received(), fits ? data : "(none)");
    }
    sockaddr_in a{AF_INET, htons(static_cast<uint16_t>(peer.port)), {htonl(INADDR_LOOPBACK)}, {}};
    const std::string cookie(4000, 'c');
    EXPECT_EQ(logOf([&] {
                  EXPECT_EQ(COM_SubSendHttpCmd(&a, "h", "\r\n", "/", &out, nullptr, 0, nullptr, 0,
                                               cookie.c_str(), 0),
                            -1);
              }),
              "http_exchange.cpp,N:COM_SubSendHttpCmd(): buffer overflow : (len, limit) = (4181, "
              "4096)\n");
    EXPECT_EQ(peer.received(), "(none)");
}

// The host part holds 79 characters; with a path, a longer one is reported and
// left empty, without one it is cut.
TEST_F(Http, HostPartLimit)
{
    fake::TempDir dir;
    fake::redirect("/etc/resolv.conf", dir.file("missing"));
    const std::string h79 = std::string(75, 'h') + ".box", h80 = "h" + h79, none;
    // url, the host looked up, whether the overflow is reported
    for (const auto &[url, host, overflow] : {std::tuple{h79 + "/x", h79, false},
                                              {h80 + "/x", none, true},
                                              {h80 + ":81", h80.substr(0, 79), false}}) {
        const std::string log =
            logOf([&] { EXPECT_EQ(COM_GetHttpContent(url.c_str(), &out, nullptr), -1); });
        EXPECT_EQ(log.find("): buffer overflow : (len, limit) = (80, 80)\n") != log.npos, overflow);
        EXPECT_NE(log.find("COM_SubGetPostHttpContent(): DNS_GetA(" + host + ") return error [" +
                           url + "]\n"),
                  log.npos);
    }
}

std::string authText(const char *method, const char *url, COM_HTTP_AUTH *auth)
{
    char out[COM_HTTP_AUTH_TEXT_SIZE];
    memset(out, 0x55, sizeof out);
    COM_MakeHttpAuthHeader(method, url, auth, out);
    return out;
}

// Digest with a challenge at hand (no exchange): the long form with the first
// qop value, the short form without qop, and texts that don't fit 512 bytes.
TEST(HttpAuth, HeaderTexts)
{
    COM_HTTP_AUTH none = record(COM_HTTP_AUTH_NONE, "u", "p"), odd = record(7, "u", "p");
    COM_HTTP_AUTH basic = record(COM_HTTP_AUTH_BASIC, "Aladdin", "open sesame");
    COM_HTTP_AUTH empty = record(COM_HTTP_AUTH_BASIC, "admin", "");
    COM_HTTP_AUTH longest =
        record(COM_HTTP_AUTH_BASIC, std::string(27, 'u').c_str(), std::string(31, 'p').c_str());
    COM_HTTP_AUTH digest = record(COM_HTTP_AUTH_DIGEST, "Mufasa", "Circle Of Life");
    strcpy(digest.realm, "testrealm@host.com");
    strcpy(digest.nonce, "dcd98b7102dd2f0e8b11d0f600bfb0c093");
    strcpy(digest.opaque, "5ccc069c403ebaf9f0171e9517f40e41");
    strcpy(digest.qop, "auth,auth-int");
    COM_HTTP_AUTH shortForm = digest;
    shortForm.qop[0] = '\0';
    std::string all =
        authText("GET", "h", nullptr) + authText("GET", "h", &none) + authText("GET", "h", &odd) +
        authText("GET", "h/x", &basic) + authText("GET", "h", &empty) +
        authText("GET", "h", &longest) + authText("GET", "host:8080/dir/index.html", &digest) +
        authText("POST", "host/dir/index.html", &digest) + authText("DESCRIBE", "host", &shortForm);
    EXPECT_EQ(std::string(digest.qop), "auth");
    EXPECT_EQ(std::string(digest.nc), "00000001");
    expectGolden("auth_headers", all);

    // Fields filled to their widths, unterminated, and a 300-character path: the
    // line can't fit and the header ends with the blank line alone.
    COM_HTTP_AUTH wide;
    memset(&wide, 'w', sizeof wide);
    wide.type = COM_HTTP_AUTH_DIGEST;
    const std::string url = "h/" + std::string(300, 'p');
    EXPECT_EQ(logOf([&] { EXPECT_EQ(authText("GET", url.c_str(), &wide), "\r\n"); }),
              "http_auth.cpp,N:COM_MakeHttpAuthHeader(): buffer overflow : (len, limit) = (736, "
              "512)\n");
    EXPECT_EQ(std::string(wide.qop, 16), std::string(16, 'w')); // no "," to cut at
}

// Hostile and odd challenges: values longer than the record's members are cut,
// unquoted values take the next quoted text, missing keys leave members alone.
TEST(HttpAuth, ChallengeParse)
{
    const std::string big(200, 'n');
    const struct {
        std::string answer;
        int rc;
        std::string realm, qop, nonce, opaque;
        std::string log;
    } cases[] = {
        {"HTTP/1.1 401\r\nwww-authenticate: digest realm=\"r\", nonce=\"n\", "
         "qop=\"auth,auth-int\"\r\n",
         0, "r", "auth,auth-int", "n", "old", ""},
        {"WWW-Authenticate: Basic realm=\"r\"\r\n", -1, "old", "old", "old", "old", ""},
        {"WWW-Authenticate: Digest realm=x, nonce=\"n\"", 0, "n", "old", "n", "old", ""},
        {"WWW-Authenticate: Digest realm=\"" + big + "\",qop=\"" + big + "\",nonce=\"" + big +
             "\",opaque=\"" + big + "\"",
         0, big.substr(0, 79), big.substr(0, 15), big.substr(0, 79), big.substr(0, 79),
         "(200, 80)\n(200, 16)\n(200, 80)\n(200, 80)\n"},
    };
    for (const auto &c : cases) {
        COM_HTTP_AUTH a = record(COM_HTTP_AUTH_DIGEST, "u", "p");
        strcpy(a.realm, "old"), strcpy(a.qop, "old"), strcpy(a.nonce, "old"),
            strcpy(a.opaque, "old");
        std::string log =
            logOf([&] { EXPECT_EQ(COM_ParseHttpDigestChallenge(c.answer.c_str(), &a), c.rc); });
        for (size_t at; (at = log.find("text_search.cpp,N:COM_GetStrInDoubleQuotes(): Warning! "
                                       "overflow (len, size) = ")) != std::string::npos;) {
            log.erase(at, 78);
        }
        EXPECT_EQ(log, c.log);
        EXPECT_EQ(std::vector<std::string>({a.realm, a.qop, a.nonce, a.opaque}),
                  std::vector({c.realm, c.qop, c.nonce, c.opaque}));
    }
}

TEST(HttpAnswer, ContentLengthAndHeaderEnd)
{
    const std::tuple<std::string, int, int> cases[] = {
        // block, Content-Length, header end
        {"HTTP/1.1 200 OK\r\ncontent-length: 12\r\n\r\nbody", 12, 39},
        {"Content-Length: 3\r\nCONTENT-LENGTH: 10\r\n\n\nxx", 10, 40},
        {"Content-Length: 7\r\nContent-Length: none\r\n12\r\n\r\n", 7, 47}, // no digit: kept
        {"Content-Length:\r\n 5 and then some", -1, 0},
        {"Content-Length:", -1, 0},  // shorter than the name and two: not looked at
        {"xContent-Length:9", 9, 0}, // a hit at the last place
        {"Content-Length: 4294967296\r\n\r\n", 2147483647, 30},
        {"a\n\nb\r\n\r\n", -1, 8}, // "\r\n\r\n" first, wherever it is
        {"\r\n\r", -1, 0},
    };
    for (const auto &[block, length, end] : cases) {
        EXPECT_EQ(http::scanContentLength(block.data(), static_cast<int>(block.size())), length)
            << block;
        EXPECT_EQ(http::findHeaderEnd(block.data(), static_cast<int>(block.size())), end) << block;
    }
}

TEST(HtmlText, StripAndExtract)
{
    char html[] = "<html><BODY>Line<br>two<Br/>x<bR><p class=a>three</p></body>";
    char *out = nullptr;
    EXPECT_EQ(COM_StripHtmlCode(html, &out), 17);
    EXPECT_EQ(std::string(out), "Line\ntwo\nx\nthree");
    EXPECT_EQ(std::string(html), "<html><BODY>Line<br\ntwo<Br/\nx<bR\n<p class=a>three</p></body>");
    free(out);
    out = nullptr;
    char tagsOnly[] = "<a><b>", open[] = "text<a";
    EXPECT_EQ(COM_StripHtmlCode(tagsOnly, &out), -1);
    EXPECT_EQ(COM_StripHtmlCode(open, &out), 5);
    EXPECT_EQ(std::string(out), "text");
    free(out);

    const char *page = "<body><b>one<B x=1>two</b></B><bold>x</b>";
    const std::tuple<const char *, const char *, int, int, std::string> cases[] = {
        {"b", page, 0, 18, "one<B x=1>two</b>"},
        {"b", page, 1, 25, "<b>one<B x=1>two</b></B>"},
        {"body", page, 1, -1, ""}, // never closed
        {"i", "</i><i>x</i>", 0, 2, "x"},
        {"i", "<i></i>", 0, -1, ""},
        {"i", "<i/>x</i>", 0, -1, ""},
        {"i", "<i>x</i", 0, -1, ""},
        {"i", "<i\tid=2>yz</i >", 1, 16, "<i\tid=2>yz</i >"},
    };
    for (const auto &[tag, text, include, rc, element] : cases) {
        char *block = nullptr;
        EXPECT_EQ(COM_ExtractHtmlTag(tag, text, &block, include), rc) << text;
        EXPECT_EQ(block != nullptr ? std::string(block) : "", element) << text;
        free(block);
    }
}

// Every offset of an 8-byte ring on either side, and plain areas, against a
// byte-by-byte model; more than a ring holds, or nothing, is refused.
TEST(RingCopy, EveryWrap)
{
    constexpr int kRing = 8;
    char src[kRing], dst[kRing + 4], want[kRing + 4];
    for (int i = 0; i < kRing; ++i) {
        src[i] = static_cast<char>('a' + i);
    }
    // One index walks source size (ring or plain), destination size, both offsets and the count.
    for (int k = 0; k < 2 * 2 * kRing * kRing * kRing; ++k) {
        const int srcSize = k & 1 ? 0 : kRing, dstSize = k & 2 ? 0 : kRing, so = k / 4 % kRing,
                  dof = k / 32 % kRing, n = k / 256 + 1;
        if ((srcSize == 0 && so + n > kRing) || (dstSize == 0 && dof + n > kRing + 4)) {
            continue;
        }
        memset(dst, '.', sizeof dst);
        memset(want, '.', sizeof want);
        for (int i = 0; i < n; ++i) {
            want[dstSize ? (dof + i) % dstSize : dof + i] =
                src[srcSize ? (so + i) % srcSize : so + i];
        }
        ASSERT_EQ(COM_RingCopy(dst, dof, dstSize, src, so, srcSize, n), 0);
        ASSERT_EQ(std::string(dst, sizeof dst), std::string(want, sizeof want)) << k;
    }
    const std::string log = logOf([&] {
        EXPECT_EQ(COM_RingCopy(dst, 6, 8, src, 0, 8, 0), -1);
        EXPECT_EQ(COM_RingCopy(dst, 6, 8, src, 0, 0, 9), -1);
    });
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 2);
    EXPECT_EQ(log.substr(0, 26), "ring_copy.cpp,N: Panic (0x");
}

TEST(HttpSocket, TimeoutAndSendAll)
{
    EXPECT_EQ(logOf([] { EXPECT_EQ(COM_SetSocketTimeout(-1, 30), -1); }),
              "socket_util.cpp,N: setsockopt(-1, SO_SNDTIMEO, 30 sec) failed - Bad file "
              "descriptor\n");
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
    EXPECT_EQ(COM_SetSocketTimeout(pair[0], 30) + COM_SendAll(pair[0], "hello", 5), 0);
    COM_SafeClose(&pair[1]);
    EXPECT_EQ(COM_SendAll(pair[0], "hello", 5), 5); // the peer is gone: all five are left
    COM_SafeClose(&pair[0]);
}

// HttpPeer tests run only in tests/peers/test_http.sh, where DVR_HTTP_PEERS names dnsmasq.
class HttpPeer : public Http {
protected:
    void SetUp() override
    {
        if (getenv("DVR_HTTP_PEERS") == nullptr) {
            GTEST_SKIP() << "runs in tests/peers/test_http.sh";
        }
        Http::SetUp();
        fake::redirect(
            "/etc/resolv.conf",
            dir.write("resolv.conf", "nameserver " + std::string(getenv("DVR_HTTP_PEERS")) + "\n"));
    }
    // Result, answer and log of a command; the answer is freed.
    std::tuple<int, std::string, std::string> run(const std::function<int()> &call)
    {
        int rc = 0;
        std::string log = logOf([&] { rc = call(); });
        std::string answer = rc > 0 ? std::string(out, static_cast<size_t>(rc - 1)) : "";
        free(out);
        out = nullptr;
        return {rc, answer, log};
    }
    // Apache's access log lines since the last call. Apache writes a line after
    // its answer has gone: a request for /sentinel is sent, and the log read
    // until its line is there, so every line before it is written.
    std::string apacheLog()
    {
        static int count = 0;
        const std::string url = "apache.dvr.test/sentinel" + std::to_string(++count),
                          mark = "GET " + url.substr(15) + " ";
        run([&] { return COM_GetHttpContent(url.c_str(), &out, nullptr); });
        const std::string path = std::string(getenv("DVR_HTTP_WORK")) + "/apache.access";
        std::string all;
        while ((all = fake::readFile(path)).find(mark) == std::string::npos) {
        }
        const size_t sentinel = all.rfind('\n', all.find(mark)) + 1;
        const std::string fresh = all.substr(seen, sentinel - seen);
        seen = all.find('\n', sentinel) + 1;
        return fresh;
    }
    fake::TempDir dir;
    size_t seen = 0;
};

TEST_F(HttpPeer, ApacheBasic)
{
    apacheLog();
    COM_HTTP_AUTH right = record(COM_HTTP_AUTH_BASIC, "dvr", "right pass"),
                  wrong = record(COM_HTTP_AUTH_BASIC, "dvr", "wrong");
    EXPECT_EQ(run([&] { return COM_GetHttpContent("apache.dvr.test/basic/", &out, &right); }),
              std::tuple(14, std::string("basic secret\n"), std::string()));
    const auto [rc, answer, log] =
        run([&] { return COM_GetHttpContent("apache.dvr.test/basic/", &out, &wrong); });
    EXPECT_GT(rc, 0);
    EXPECT_NE(answer.find("<title>401 Unauthorized</title>"), std::string::npos);
    EXPECT_EQ(apacheLog(), "GET /basic/ HTTP/1.1 200\nGET /basic/ HTTP/1.1 401\n");
    // Without the relay, Apache refuses the blank in "Accept : */*"; its page comes back.
    const auto [rc400, page, log400] =
        run([&] { return COM_GetHttpContent("apache-direct.dvr.test/basic/", &out, &right); });
    EXPECT_NE(page.find("<title>400 Bad Request</title>"), std::string::npos);
}

// The first command fetches the challenge and passes. Apache sends an opaque
// only when it counts nonces (an empty one is refused), so the next command on
// the kept nonce, whose nc never counts, is refused as a replay: the caller
// sees the 401 page, clears the nonce, and the command after a new challenge
// passes. A POST hashes "POST" and passes.
TEST_F(HttpPeer, ApacheDigest)
{
    apacheLog();
    COM_HTTP_AUTH a = record(COM_HTTP_AUTH_DIGEST, "dvr", "right pass"),
                  wrong = record(COM_HTTP_AUTH_DIGEST, "dvr", "wrong");
    const auto get = [&](COM_HTTP_AUTH &r) {
        return std::get<1>(
            run([&] { return COM_GetHttpContent("apache.dvr.test/digest/", &out, &r); }));
    };
    EXPECT_EQ(get(a), "digest secret\n");
    EXPECT_EQ(a.type, COM_HTTP_AUTH_DIGEST);
    EXPECT_EQ(std::string(a.realm) + a.qop, "DVR Digestauth");
    EXPECT_NE(a.opaque[0], '\0');
    const std::string nonce = a.nonce;
    EXPECT_NE(get(a).find("401 Unauthorized"), std::string::npos);
    EXPECT_EQ(a.nonce, nonce);
    a.nonce[0] = '\0';
    EXPECT_EQ(get(a), "digest secret\n");
    EXPECT_NE(get(wrong).find("401 Unauthorized"), std::string::npos);
    a.nonce[0] = '\0';
    run([&] { return COM_PostHttpContent("apache.dvr.test/digest/index.html", &out, &a, "k=v"); });
    EXPECT_EQ(apacheLog(), "GET /digest/ HTTP/1.1 401\nGET /digest/ HTTP/1.1 200\n"
                           "GET /digest/ HTTP/1.1 401\n"
                           "GET /digest/ HTTP/1.1 401\nGET /digest/ HTTP/1.1 200\n"
                           "GET /digest/ HTTP/1.1 401\nGET /digest/ HTTP/1.1 401\n"
                           "GET /digest/index.html HTTP/1.1 401\n"
                           "POST /digest/index.html HTTP/1.0 200\n");
}

TEST_F(HttpPeer, NginxFilesAndPosts)
{
    const std::string big =
        fake::readFile(std::string(getenv("DVR_HTTP_WORK")) + "/static/big.txt");
    const auto [rc, answer, log] =
        run([&] { return COM_GetHttpContent("nginx.dvr.test/big.txt", &out, nullptr); });
    EXPECT_EQ(rc, static_cast<int>(big.size()) + 1);
    EXPECT_TRUE(answer == big);
    EXPECT_EQ(run([&] { return COM_GetHttpContent("nginx.dvr.test:80/empty.txt", &out, nullptr); }),
              std::tuple(0, std::string(), std::string()));
    EXPECT_EQ(std::get<1>(run([&] {
                  return COM_GetHttpHeaderAndContent("nginx.dvr.test/empty.txt", &out, nullptr);
              })).substr(0, 17),
              "HTTP/1.1 200 OK\r\n");
    EXPECT_EQ(run([&] {
                  return COM_PostHttpContentWithCookie("nginx.dvr.test/post", &out, nullptr,
                                                       "a=1&b=2", "sid=9");
              }),
              std::tuple(16, std::string("POST 7 [sid=9]\n"), std::string()));
}

TEST_F(HttpPeer, RtspOptionsAndDescribe)
{
    if (std::string(getenv("DVR_HTTP_RTSP")) != "1") {
        GTEST_SKIP() << "no RTSP server";
    }
    const std::string options = "OPTIONS rtsp://rtsp.dvr.test/test RTSP/1.0\r\nCSeq: 1\r\n\r\n",
                      describe = "DESCRIBE rtsp://rtsp.dvr.test/test RTSP/1.0\r\nCSeq: "
                                 "2\r\nAccept: application/sdp\r\n\r\n";
    fake::clock::timeOutIdleWaits(true); // the server keeps the connection open
    const auto [rc, answer, log] = run([&] {
        return COM_SubGetPostHttpContent("127.0.0.12/test", &out, nullptr, HTTP_CMD_RAW,
                                         options.c_str(), 1, nullptr, 0);
    });
    fake::clock::timeOutIdleWaits(false);
    EXPECT_EQ(answer.substr(0, 32), "RTSP/1.0 200 OK\r\nCSeq: 1\r\nPublic");
    EXPECT_NE(answer.find("DESCRIBE"), std::string::npos);
    const auto [rc2, sdp, log2] = run(
        [&] { return COM_SendRawHttpCmd("rtsp.dvr.test/test", &out, nullptr, describe.c_str()); });
    EXPECT_EQ(sdp.substr(0, 5), "v=0\r\n");
    EXPECT_NE(sdp.find("m=video 0 RTP/AVP 96"), std::string::npos);
}

// What real servers don't do on demand, from tests/peers/http_peer.py.
TEST_F(HttpPeer, ScriptedAnswers)
{
    const std::tuple<const char *, int, std::string, std::string> cases[] = {
        {"peer.dvr.test/split", 0, "", ""},              // the end mark straddles two receives
        {"peer.dvr.test/bare", 6, "hello", ""},          // "\n\n" ends the header
        {"peer.dvr.test/several", 11, "0123456789", ""}, // the last Content-Length counts
        {"peer.dvr.test/close", 0, "", ""},
        {"two.dvr.test/x", 7, "second",
         "http_exchange.cpp,N: connect(127.0.0.14:80) error : Connection refused\n"
         "http_exchange.cpp,N: Fail to send [/x]\n"},
    };
    for (const auto &[url, rc, answer, log] : cases) {
        EXPECT_EQ(run([&] { return COM_GetHttpContent(url, &out, nullptr); }),
                  std::tuple(rc, answer, log))
            << url;
    }
    const int64_t before = fake::clock::sleptNs();
    fake::clock::timeOutWaits(2);
    EXPECT_EQ(run([&] { return COM_GetHttpContent("127.0.0.13/silent", &out, nullptr); }),
              std::tuple(0, std::string(), std::string()));
    EXPECT_EQ(fake::clock::sleptNs() - before, 20'030'000'000LL);
}

} // namespace
