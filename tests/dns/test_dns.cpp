// The DNS exchanges on real UDP sockets with the fake clock, and, inside the
// network namespace of tests/peers/test_dns.sh, lookups on port 53.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <set>

#include "dns_text.h"
#include "fake_select.h"

namespace {

using Strings = std::vector<std::string>;
using Outcome =
    std::tuple<int, std::string, Strings>; // a lookup's result, log, entries with valid set

// The line for each of n tries, "#" standing for the try's number.
std::string tries(std::string line, int n)
{
    std::string out;
    for (int i = 0, at = static_cast<int>(line.find('#')); i < n; ++i) {
        out += at < 0 ? line : line.replace(static_cast<size_t>(at), 1, std::to_string(i));
    }
    return out;
}

const std::string kTimeOutA = "DNS_SendAQuery(): [#] select() timeout\n",
                  kTimeOutMX = "DNS_SendMXQuery(): select(&readset) timeout!\n";

sockaddr *sa(sockaddr_in &a)
{
    return reinterpret_cast<sockaddr *>(&a);
}
// A UDP socket on a loopback address that answers nothing by itself: queries
// queue up on it, and replies sent from it beforehand wait on the client's socket.
struct Socket {
    Socket(const char *ip, int port)
        : addr{AF_INET, htons(static_cast<in_port_t>(port)), {inet_addr(ip)}, {}}
    {
        socklen_t len = sizeof addr;
        EXPECT_TRUE(bind(fd, sa(addr), len) == 0 && getsockname(fd, sa(addr), &len) == 0)
            << ip << ":" << port;
    }
    ~Socket() { COM_SafeClose(&fd); }
    // The datagrams that have come; ports gathers the ports they came from.
    Strings received()
    {
        Strings out;
        char buf[2048];
        sockaddr_in from{};
        socklen_t len = sizeof from;
        for (ssize_t n; (n = recvfrom(fd, buf, sizeof buf, MSG_DONTWAIT, sa(from), &len)) >= 0;) {
            out.emplace_back(buf, static_cast<size_t>(n));
            ports.insert(from.sin_port);
        }
        return out;
    }

    int fd = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in addr;
    std::set<in_port_t> ports;
};

// Lookups on a zeroed array with the fake clock.
// DnsPeer tests run only in tests/peers/test_dns.sh, where DVR_DNS_PEERS names dnsmasq.
class DnsLookup : public testing::Test {
protected:
    void SetUp() override
    {
        const std::string suite =
            testing::UnitTest::GetInstance()->current_test_info()->test_suite_name();
        if (suite == "DnsPeer" && getenv("DVR_DNS_PEERS") == nullptr) {
            GTEST_SKIP() << "runs in tests/peers/test_dns.sh";
        }
        fake::clock::enable();
    }
    void TearDown() override { fake::clock::timeOutWaits(0); }
    void resolvConf(const std::string &text)
    {
        fake::redirect("/etc/resolv.conf", dir.write("resolv.conf", text));
    }
    // DNS_GetA or DNS_GetMX on the name, or else the call.
    Outcome lookup(bool mx, const char *name, const std::function<int()> &call = nullptr)
    {
        memset(records, 0, sizeof records);
        int rc = 0;
        auto log =
            fake::logOf([&] { rc = call ? call() : (mx ? DNS_GetMX : DNS_GetA)(name, records); });
        Strings valid;
        for (const DnsRecord &r : records) {
            if (r.valid != 0) {
                valid.push_back(describe(r));
            }
        }
        // The log without its file names: "DNS_GetA(): text".
        for (size_t at; (at = log.find(",N:")) != std::string::npos;) {
            const size_t start = log.rfind('\n', at) + 1; // 0 on the first line
            log.erase(start, at + 3 - start);
        }
        return {rc, log, valid};
    }

    fake::TempDir dir;
    DnsRecord records[DNS_MAX_RECORDS];
};
using DnsPeer = DnsLookup;

// One exchange on a loopback socket: each try sends the query, then reads one of
// the replies that wait there or times out; or every send fails.
TEST_F(DnsLookup, ExchangeTriesAndResults)
{
    const std::string sendA = "DNS_SendAQuery(): sendto() error : -1/30 - Invalid argument\n",
                      sendMX = "DNS_SendMXQuery(): sendto() error : Invalid argument\n",
                      badA =
                          "DNS_SendAQuery(): select(writeset:-1) timeout! : Bad file descriptor\n",
                      badMX = "DNS_SendMXQuery(): select(&writeset) timeout!\n";
    enum { Answering, PortZero, BadSocket };
    const struct {
        bool mx;
        int peer;
        Strings replies;
        int timeOuts;
        Outcome outcome;
    } cases[] = {
        {false, Answering, {"a_www2.bin"}, 0, {0, "", {"10.0.0.1", "10.0.0.2"}}},
        {false, Answering, {"a_name_error.bin"}, 0, {-1, "", {}}},
        {false, Answering, {"a_none.bin", "a_none.bin", "a_none.bin"}, 0, {-1, "", {}}},
        {false, Answering, {}, 3, {-1, tries(kTimeOutA, 3), {}}},
        {false, Answering, {"a_www1.bin"}, 2, {0, tries(kTimeOutA, 2), {"10.0.0.1"}}},
        {false, PortZero, {}, 0, {-2, tries(sendA, 3), {}}},
        {false, BadSocket, {}, 0, {-2, tries(badA, 3), {}}},
        {true, Answering, {"mx2.bin"}, 0, {0, "", {"10@10.0.1.10", "20@10.0.1.20"}}},
        {true, Answering, {"mx_no_glue.bin"}, 0, {-1, "", {}}}, // a failing parser ends the tries
        {true, Answering, {"mx_none.bin", "a_name_error.bin", "a_name_error.bin"}, 0, {-1, "", {}}},
        {true, Answering, {}, 3, {-1, tries(kTimeOutMX, 3), {}}},
        {true, PortZero, {}, 0, {-2, tries(sendMX, 3), {}}},
        {true, BadSocket, {}, 0, {-2, tries(badMX, 3), {}}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(&c - cases);
        Socket server("127.0.0.1", 0), client("127.0.0.1", 0);
        for (const std::string &name : c.replies) {
            const std::string reply = dnsData(name);
            sendto(server.fd, reply.data(), reply.size(), 0, sa(client.addr), sizeof client.addr);
        }
        sockaddr_in to = server.addr;
        to.sin_port = c.peer == PortZero ? 0 : to.sin_port;
        const int fd = c.peer == BadSocket ? -1 : client.fd;
        fake::clock::timeOutWaits(c.timeOuts);
        const int64_t start = fake::clock::nowNs();
        EXPECT_EQ(lookup(c.mx, nullptr,
                         [&] {
                             return c.mx ? DNS_SendMXQuery(fd, &to, "postmaster@dvr.test", records)
                                         : DNS_SendAQuery(fd, &to, "www.dvr.test", records);
                         }),
                  c.outcome);
        EXPECT_EQ(server.received(),
                  Strings(c.replies.size() + c.timeOuts,
                          dnsData(c.mx ? "query_dvr_mx.bin" : "query_www_a.bin")));
        // A time-out lets its whole 20 seconds pass (for the A exchange, what the
        // wait for the socket left of them).
        EXPECT_NEAR((fake::clock::nowNs() - start) / 1e9, 20.0 * c.timeOuts, 0.1);
    }
}

const std::string kFallback = "DNS_GetMXviaNameServer(): MX record not found! Try A record.\n";

// On port 53: an MX lookup falls back to A on the same socket when the first
// server stays silent, then goes on to the next one, dnsmasq.
TEST_F(DnsPeer, SilentServerThenTheNext)
{
    Socket silent("127.0.0.1", DNS_PORT);
    resolvConf("nameserver 127.0.0.1\nnameserver " + std::string(getenv("DVR_DNS_PEERS")) + "\n");
    fake::clock::timeOutWaits(6);
    EXPECT_EQ(lookup(true, "postmaster@dvr.test"),
              Outcome(0,
                      tries(kTimeOutMX, 3) + kFallback + tries(kTimeOutA, 3) +
                          "DNS_GetMXviaNameServer(): A record not found!\n",
                      {"10@10.1.2.26", "20@10.1.2.25"}));
    const std::string m = dnsData("query_dvr_mx.bin"), a = dnsData("query_dvr_a.bin");
    EXPECT_EQ(silent.received(), Strings({m, m, m, a, a, a}));
    EXPECT_EQ(silent.ports.size(), 1u); // one socket for both exchanges
}

// dnsmasq, with the records of tests/peers/test_dns.sh. The mail host of six
// also has an IPv6 address: the AAAA record among the additional records makes
// the MX reading fail, and the lookup falls back to the domain's A record.
TEST_F(DnsPeer, RealServer)
{
    resolvConf("nameserver " + std::string(getenv("DVR_DNS_PEERS")) + "\n");
    const std::tuple<const char *, bool, Outcome> cases[] = {
        {"www.dvr.test", false, {0, "", {"10.1.2.3"}}},
        {"alias.dvr.test", false, {0, "", {"10.1.2.3"}}},
        {"multi.dvr.test", false, {0, "", {"10.1.2.4", "10.1.2.5"}}},
        {"missing.dvr.test", false, {-1, "DNS_GetAviaNameServer(): A record not found!\n", {}}},
        {"www.dvr.test", true, {0, kFallback, {"10.1.2.3"}}},
        {"pm@six.dvr.test", true, {0, kFallback, {"10.1.2.6"}}},
        {"missing.dvr.test",
         true,
         {-1, kFallback + "DNS_GetMXviaNameServer(): A record not found!\n", {}}},
    };
    for (const auto &[name, mx, outcome] : cases) {
        Outcome result = lookup(mx, name);
        std::ranges::sort(std::get<2>(result)); // multi's addresses come in either order
        EXPECT_EQ(result, outcome) << name;
    }
}

} // namespace
