// The command client against real servers: these tests run in
// tests/peers/test_http.sh. Requests as a peer receives them and the parsers'
// cases are in tests/cases/http.
#include <gtest/gtest.h>

#include "COMMON.h"
#include "fake_select.h"
#include "test_support.h"

namespace {

COM_HTTP_AUTH record(int type, const char *password)
{
    COM_HTTP_AUTH a{};
    a.type = type;
    strcpy(a.username, "dvr");
    snprintf(a.password, sizeof a.password, "%s", password);
    return a;
}

bool has(const std::string &text, const char *part)
{
    return text.find(part) != std::string::npos;
}

// DVR_HTTP_PEERS names the name server (dnsmasq) of the peers' namespace.
class HttpPeer : public testing::Test {
protected:
    void SetUp() override
    {
        if (getenv("DVR_HTTP_PEERS") == nullptr) {
            GTEST_SKIP() << "runs in tests/peers/test_http.sh";
        }
        fake::clock::enable();
        fake::redirect("/etc/resolv.conf",
                       dir.write("resolv.conf", "nameserver " + env("DVR_HTTP_PEERS") + "\n"));
    }
    static std::string env(const char *name) { return getenv(name); }
    // "result|answer|log" of a command; the answer is freed.
    std::string run(const std::function<int(char **)> &call)
    {
        char *out = nullptr;
        int rc = 0;
        const std::string log =
            fake::withoutLineNumbers(fake::captureStdout([&] { rc = call(&out); }));
        const std::string answer = rc > 0 ? std::string(out, static_cast<size_t>(rc - 1)) : "";
        free(out);
        return std::to_string(rc) + "|" + answer + "|" + log;
    }
    std::string get(const char *url, COM_HTTP_AUTH *auth = nullptr)
    {
        return run([&](char **out) { return COM_GetHttpContent(url, out, auth); });
    }
    // Apache's access log lines since the last call. Apache writes a line after
    // its answer has gone: a request for /sentinel is sent, and the log read
    // until its line is there, so every line before it is written.
    std::string apacheLog()
    {
        static int count = 0;
        const std::string url = "apache.dvr.test/sentinel" + std::to_string(++count),
                          mark = "GET " + url.substr(15) + " ";
        get(url.c_str());
        std::string all;
        while (!has(all = fake::readFile(env("DVR_HTTP_WORK") + "/apache.access"), mark.c_str())) {
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
    COM_HTTP_AUTH right = record(COM_HTTP_AUTH_BASIC, "right pass"),
                  wrong = record(COM_HTTP_AUTH_BASIC, "wrong");
    EXPECT_EQ(get("apache.dvr.test/basic/", &right), "14|basic secret\n|");
    EXPECT_TRUE(has(get("apache.dvr.test/basic/", &wrong), "<title>401 Unauthorized</title>"));
    EXPECT_EQ(apacheLog(), "GET /basic/ HTTP/1.1 200\nGET /basic/ HTTP/1.1 401\n");
    // Without the relay, Apache refuses the blank in "Accept : */*"; its page comes back.
    EXPECT_TRUE(
        has(get("apache-direct.dvr.test/basic/", &right), "<title>400 Bad Request</title>"));
}

// The first command fetches the challenge and passes. Apache sends an opaque
// only when it counts nonces (an empty one is refused), so the next command on
// the kept nonce, whose nc never counts, is refused as a replay: the caller
// sees the 401 page, clears the nonce, and the command after a new challenge
// passes. A POST hashes "POST" and passes.
TEST_F(HttpPeer, ApacheDigest)
{
    apacheLog();
    COM_HTTP_AUTH a = record(COM_HTTP_AUTH_DIGEST, "right pass"),
                  wrong = record(COM_HTTP_AUTH_DIGEST, "wrong");
    EXPECT_EQ(get("apache.dvr.test/digest/", &a), "15|digest secret\n|");
    EXPECT_EQ(std::to_string(a.type) + a.realm + a.qop, "2DVR Digestauth");
    EXPECT_NE(a.opaque[0], '\0');
    const std::string nonce = a.nonce;
    EXPECT_TRUE(has(get("apache.dvr.test/digest/", &a), "401 Unauthorized"));
    EXPECT_EQ(a.nonce, nonce);
    a.nonce[0] = '\0';
    EXPECT_EQ(get("apache.dvr.test/digest/", &a), "15|digest secret\n|");
    EXPECT_TRUE(has(get("apache.dvr.test/digest/", &wrong), "401 Unauthorized"));
    a.nonce[0] = '\0';
    run([&](char **out) {
        return COM_PostHttpContent("apache.dvr.test/digest/index.html", out, &a, "k=v");
    });
    EXPECT_EQ(apacheLog(), "GET /digest/ HTTP/1.1 401\nGET /digest/ HTTP/1.1 200\n"
                           "GET /digest/ HTTP/1.1 401\n"
                           "GET /digest/ HTTP/1.1 401\nGET /digest/ HTTP/1.1 200\n"
                           "GET /digest/ HTTP/1.1 401\nGET /digest/ HTTP/1.1 401\n"
                           "GET /digest/index.html HTTP/1.1 401\n"
                           "POST /digest/index.html HTTP/1.0 200\n");
}

TEST_F(HttpPeer, NginxFilesAndPosts)
{
    const std::string big = fake::readFile(env("DVR_HTTP_WORK") + "/static/big.txt");
    EXPECT_TRUE(get("nginx.dvr.test/big.txt") == std::to_string(big.size() + 1) + "|" + big + "|");
    EXPECT_EQ(get("nginx.dvr.test:80/empty.txt"), "0||");
    EXPECT_TRUE(has(run([](char **out) {
                        return COM_GetHttpHeaderAndContent("nginx.dvr.test/empty.txt", out,
                                                           nullptr);
                    }),
                    "|HTTP/1.1 200 OK\r\n"));
    EXPECT_EQ(run([](char **out) {
                  return COM_PostHttpContentWithCookie("nginx.dvr.test/post", out, nullptr,
                                                       "a=1&b=2", "sid=9");
              }),
              "16|POST 7 [sid=9]\n|");
}

TEST_F(HttpPeer, RtspOptionsAndDescribe)
{
    if (env("DVR_HTTP_RTSP") != "1") {
        GTEST_SKIP() << "no RTSP server";
    }
    fake::clock::timeOutIdleWaits(true); // the server keeps the connection open
    const std::string options = run([](char **out) {
        return COM_SubGetPostHttpContent(
            "127.0.0.12/test", out, nullptr, HTTP_CMD_RAW,
            "OPTIONS rtsp://rtsp.dvr.test/test RTSP/1.0\r\nCSeq: 1\r\n\r\n", 1, nullptr, 0);
    });
    fake::clock::timeOutIdleWaits(false);
    EXPECT_TRUE(has(options, "|RTSP/1.0 200 OK\r\nCSeq: 1\r\nPublic") && has(options, "DESCRIBE"));
    const std::string sdp = run([](char **out) {
        return COM_SendRawHttpCmd("rtsp.dvr.test/test", out, nullptr,
                                  "DESCRIBE rtsp://rtsp.dvr.test/test RTSP/1.0\r\nCSeq: "
                                  "2\r\nAccept: application/sdp\r\n\r\n");
    });
    EXPECT_TRUE(has(sdp, "|v=0\r\n") && has(sdp, "m=video 0 RTP/AVP 96"));
}

// What real servers don't do on demand, from tests/peers/http_peer.py: the end
// mark straddling two receives, a bare "\n\n" end, several Content-Length
// lines (the last counts), a peer that closes at once, a name whose first
// address refuses, and a silent peer (its waits on the fake clock).
TEST_F(HttpPeer, ScriptedAnswers)
{
    EXPECT_EQ(get("peer.dvr.test/split"), "0||");
    EXPECT_EQ(get("peer.dvr.test/bare"), "6|hello|");
    EXPECT_EQ(get("peer.dvr.test/several"), "11|0123456789|");
    EXPECT_EQ(get("peer.dvr.test/close"), "0||");
    EXPECT_EQ(get("two.dvr.test/x"),
              "7|second|http_exchange.cpp,N: connect(127.0.0.14:80) error : Connection refused\n"
              "http_exchange.cpp,N: Fail to send [/x]\n");
    const int64_t before = fake::clock::sleptNs();
    fake::clock::timeOutWaits(2);
    EXPECT_EQ(get("127.0.0.13/silent"), "0||");
    EXPECT_EQ(fake::clock::sleptNs() - before, 20'030'000'000LL);
}

} // namespace
