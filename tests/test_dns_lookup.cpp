// Lookups end to end: the name server list, the front end's checks, the
// exchanges with their tries and time-outs against crafted replies on real
// UDP sockets, and (in the network namespace of tests/peers/test_dns.sh) the
// lookups on port 53 against crafted servers and a real dnsmasq.
#include <gtest/gtest.h>

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstdlib>
#include <sstream>
#include <sys/socket.h>

#include "DNS.h"
#include "dns_responder.h"
#include "fake_select.h"
#include "test_support.h"

namespace {

using namespace fake::dns;

// "file.cpp,12:DNS_GetA(): text" becomes "DNS_GetA: text"; the text of errno
// after inet_addr, which sets none of its own, becomes "E".
std::string messages(const std::string &log)
{
    std::string out;
    std::istringstream in(log);
    for (std::string line; std::getline(in, line);) {
        const size_t colon = line.find(':'), call = line.find("(): ");
        if (line.find(".cpp,") < colon && colon < call && call != std::string::npos) {
            line = line.substr(colon + 1, call - colon - 1) + ": " + line.substr(call + 4);
        }
        if (const size_t e = line.find(") error : "); line.find("inet_addr(") < e && e != std::string::npos) {
            line = line.substr(0, e + 10) + "E";
        }
        out += line + "\n";
    }
    return out;
}

std::vector<std::string> validOnes(const DnsRecord *records)
{
    std::vector<std::string> out;
    for (int i = 0; i < DNS_MAX_RECORDS; ++i) {
        if (records[i].valid == 1) {
            out.push_back(describe(records[i]));
        }
    }
    return out;
}

// The line once for each try, with "#" standing for its number.
std::string repeat(std::string line, int tries)
{
    std::string out;
    const size_t hash = line.find('#');
    for (int i = 0; i < tries; ++i) {
        if (hash != std::string::npos) {
            line[hash] = static_cast<char>('0' + i);
        }
        out += line;
    }
    return out;
}

class DnsLookup : public testing::Test {
protected:
    void SetUp() override { fake::clock::enable(); }
    void TearDown() override { fake::clock::timeOutWaits(0); }
    void resolvConf(const char *text) { fake::redirect("/etc/resolv.conf", dir.write("resolv.conf", text)); }

    fake::TempDir dir;
    DnsRecord records[DNS_MAX_RECORDS] = {};
};

TEST_F(DnsLookup, NameServersFromResolvConf)
{
    const std::pair<std::string, std::vector<std::string>> cases[] = {
        {"nameserver 10.0.0.1\nnameserver\t10.0.0.9\n# nameserver 10.0.0.8\nnameservers 10.0.0.2 x\n"
         "nameserver\n nameserver 10.0.0.7\nnameserver 10.0.0.3\r\nnameserver 10.0.0.4\nnameserver 10.0.0.5\n",
         {"10.0.0.1", "10.0.0.2", "10.0.0.3", "10.0.0.4"}},
        {"nameserver 1234567890.1234567890\n", {"1234567890.1234"}},
        // 79 characters are read at a time: the rest of the line counts as a line.
        {"#" + std::string(78, ' ') + "nameserver 10.0.0.6\n", {"10.0.0.6"}},
        {"", {}},
    };
    for (const auto &[text, expected] : cases) {
        resolvConf(text.c_str());
        char servers[DNS_MAX_SERVERS][DNS_SERVER_TEXT_SIZE];
        memset(servers, 0x55, sizeof servers);
        const int count = DNS_GetNameServer(servers);
        EXPECT_EQ(std::vector<std::string>(servers, servers + std::max(count, 0)), expected) << text;
    }
}

struct FrontCase {
    const char *name;
    bool mx;
    const char *resolv; // null: no file
    int rc;
    std::vector<std::string> valid;
    std::string log;
};

// Everything that ends before a packet leaves.
TEST_F(DnsLookup, FrontEndChecks)
{
    const std::string tooLong = "x." + std::string(DNS_MAX_NAME_LENGTH - 1, 'y');
    const FrontCase cases[] = {
        {"localhost", false, "", -1, {}, "DNS_GetA: invalid pDomainName [localhost]\n"},
        {"localhost", true, "", -1, {}, "DNS_GetMX: invalid pDomainName\n"},
        {nullptr, false, "", -1, {}, "DNS_GetA: invalid pDomainName [(null)]\n"},
        {"10.1.2.3", false, nullptr, 0, {"10.1.2.3"}, ""},
        {"first.last@10.1.2.3", true, nullptr, 0, {"10.1.2.3"}, ""},
        {"first.last@", false, "", -1, {}, "DNS_GetA: invalid pDomainName [first.last@]\n"},
        {tooLong.c_str(), true, "", -1, {}, "DNS_GetMX: invalid pDomainName\n"},
        {"www.dvr.test", false, nullptr, -1, {},
         "DNS_GetNameServer: fopen(/etc/resolv.conf) error : No such file or directory\n"
         "DNS_GetA: no nameserver found\n"},
        {"dvr.test", true, "# none\n", -1, {}, "DNS_GetMX: no nameserver found\n"},
        {"255.255.255.255", false, "nameserver 1234567890.1234567890\nnameserver x\n", -1, {},
         "DNS_GetAviaNameServer: inet_addr(1234567890.1234) error : E\n"
         "DNS_GetAviaNameServer: inet_addr(x) error : E\n"},
    };
    for (const FrontCase &c : cases) {
        resolvConf(c.resolv != nullptr ? c.resolv : "");
        if (c.resolv == nullptr) {
            fake::redirect("/etc/resolv.conf", dir.file("missing"));
        }
        memset(records, 0, sizeof records);
        int rc = 0;
        const std::string log = fake::captureStdout([&] {
            rc = c.mx ? DNS_GetMX(c.name, records) : DNS_GetA(c.name, records);
        });
        const std::string what = c.name != nullptr ? c.name : "(null)";
        EXPECT_EQ(rc, c.rc) << what;
        EXPECT_EQ(validOnes(records), c.valid) << what;
        EXPECT_EQ(messages(log), c.log) << what;
        if (rc != 0 && c.name != nullptr && strchr(c.name, '.') != nullptr) {
            EXPECT_EQ(records[0].addr, INADDR_NONE) << what; // left by the address test
        }
    }
}

const std::string kQueryA = std::string("\xA9\xFA\1\0\0\1\0\0\0\0\0\0", 12) + labels("www.dvr.test") +
                            std::string("\0\1\0\1", 4);
const std::string kQueryMX = std::string("\xA9\xFA\1\0\0\1\0\0\0\0\0\0", 12) + labels("dvr.test") +
                             std::string("\0\x0F\0\1", 4);
const std::string kNameError = reply("www.dvr.test", 1, 0, 0, 0, 0x8183);

enum class Peer { Responder, PortZero, BadDescriptor };

struct ExchangeCase {
    const char *what;
    bool mx;
    std::vector<std::string> replies; // "" stays silent
    int timeOuts;
    int rc;
    size_t queries;
    std::vector<std::string> valid;
    std::string log;
    Peer peer = Peer::Responder;
};

class DnsExchange : public DnsLookup, public testing::WithParamInterface<ExchangeCase> {};

TEST_P(DnsExchange, TriesAndResults)
{
    const ExchangeCase &c = GetParam();
    Responder server("127.0.0.1", 0, c.replies);
    sockaddr_in to = server.addr;
    if (c.peer == Peer::PortZero) {
        to.sin_port = 0;
    }
    int fd = c.peer == Peer::BadDescriptor ? -1 : socket(AF_INET, SOCK_DGRAM, 0);
    fake::clock::timeOutWaits(c.timeOuts);
    const int64_t start = fake::clock::nowNs();
    int rc = 0;
    const std::string log = fake::captureStdout([&] {
        rc = c.mx ? DNS_SendMXQuery(fd, &to, "postmaster@dvr.test", records)
                  : DNS_SendAQuery(fd, &to, "www.dvr.test", records);
    });
    COM_SafeClose(&fd);
    server.stop();
    EXPECT_EQ(rc, c.rc);
    EXPECT_EQ(messages(log), c.log);
    EXPECT_EQ(validOnes(records), c.valid);
    EXPECT_EQ(server.queries, std::vector<std::string>(c.queries, c.mx ? kQueryMX : kQueryA));
    // Each time-out lets its whole wait pass; the A exchange waits for the
    // reply with what the wait for the socket left of its 20 seconds.
    EXPECT_NEAR((fake::clock::nowNs() - start) / 1e9, 20.0 * c.timeOuts, 0.1);
    EXPECT_EQ(fake::clock::pendingTimeOuts(), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Dns, DnsExchange,
    testing::Values(
        ExchangeCase{"A found", false, {addresses("www.dvr.test", 2, 2)}, 0, 0, 1, {"10.0.0.1", "10.0.0.2"}, ""},
        ExchangeCase{"A name error", false, {kNameError}, 0, -1, 1, {}, ""},
        ExchangeCase{"A no answers", false, {addresses("www.dvr.test", 0, 0)}, 0, -1, 3, {}, ""},
        ExchangeCase{"A silent", false, {""}, 3, -1, 3, {}, repeat("DNS_SendAQuery: [#] select() timeout\n", 3)},
        ExchangeCase{"A late", false, {"", "", addresses("www.dvr.test", 1, 1)}, 2, 0, 3, {"10.0.0.1"},
                     repeat("DNS_SendAQuery: [#] select() timeout\n", 2)},
        ExchangeCase{"A unsendable", false, {}, 0, -2, 0, {},
                     repeat("DNS_SendAQuery: sendto() error : -1/30 - Invalid argument\n", 3), Peer::PortZero},
        ExchangeCase{"A bad socket", false, {}, 0, -2, 0, {},
                     repeat("DNS_SendAQuery: select(writeset:-1) timeout! : Bad file descriptor\n", 3),
                     Peer::BadDescriptor},
        ExchangeCase{"MX found", true, {mailHosts("dvr.test", {20, 10})}, 0, 0, 1, {"10@10.0.1.10", "20@10.0.1.20"}, ""},
        ExchangeCase{"MX without addresses", true, {mailHosts("dvr.test", {10}, false)}, 0, -1, 1, {}, ""},
        ExchangeCase{"MX no answers", true, {reply("dvr.test", 15, 0, 0, 0), kNameError}, 0, -1, 3, {}, ""},
        ExchangeCase{"MX silent", true, {""}, 3, -1, 3, {}, repeat("DNS_SendMXQuery: select(&readset) timeout!\n", 3)},
        ExchangeCase{"MX unsendable", true, {}, 0, -2, 0, {},
                     repeat("DNS_SendMXQuery: sendto() error : Invalid argument\n", 3), Peer::PortZero},
        ExchangeCase{"MX bad socket", true, {}, 0, -2, 0, {},
                     repeat("DNS_SendMXQuery: select(&writeset) timeout!\n", 3), Peer::BadDescriptor}),
    [](const auto &info) {
        std::string name = info.param.what;
        std::replace(name.begin(), name.end(), ' ', '_');
        return name;
    });

// The lookups on port 53, run by tests/peers/test_dns.sh in a network
// namespace of its own, where DVR_DNS_PEERS names the dnsmasq server.
class DnsPeer : public DnsLookup {
protected:
    void SetUp() override
    {
        if (getenv("DVR_DNS_PEERS") == nullptr) {
            GTEST_SKIP() << "needs the name servers of tests/peers/test_dns.sh";
        }
        DnsLookup::SetUp();
    }
};

TEST_F(DnsPeer, NextServerAfterASilentOne)
{
    resolvConf("nameserver 127.0.0.1\nnameserver 127.0.0.2\n");
    Responder silent("127.0.0.1", DNS_PORT, {""});
    Responder second("127.0.0.2", DNS_PORT, {addresses("www.dvr.test", 2, 2)});
    fake::clock::timeOutWaits(3);
    const std::string log = fake::captureStdout([&] { EXPECT_EQ(DNS_GetA("www.dvr.test", records), 0); });
    silent.stop();
    second.stop();
    EXPECT_EQ(validOnes(records), (std::vector<std::string>{"10.0.0.1", "10.0.0.2"}));
    EXPECT_EQ(messages(log), repeat("DNS_SendAQuery: [#] select() timeout\n", 3) +
                                 "DNS_GetAviaNameServer: A record not found!\n");
    EXPECT_EQ(silent.queries.size(), 3u);
    EXPECT_EQ(second.queries, std::vector<std::string>{kQueryA});
}

TEST_F(DnsPeer, MxFallsBackToAOnTheSameSocket)
{
    resolvConf("nameserver 127.0.0.1\n");
    Responder server("127.0.0.1", DNS_PORT, {mailHosts("dvr.test", {10}, false), addresses("dvr.test", 1, 1)});
    const std::string log = fake::captureStdout([&] { EXPECT_EQ(DNS_GetMX("dvr.test", records), 0); });
    server.stop();
    EXPECT_EQ(validOnes(records), std::vector<std::string>{"10.0.0.1"});
    EXPECT_EQ(messages(log), "DNS_GetMXviaNameServer: MX record not found! Try A record.\n");
    ASSERT_EQ(server.queries.size(), 2u);
    EXPECT_EQ(server.queries[0], kQueryMX);
    EXPECT_EQ(server.ports[0], server.ports[1]);
}

TEST_F(DnsPeer, MxAgainstASilentServer)
{
    resolvConf("nameserver 127.0.0.1\n");
    Responder silent("127.0.0.1", DNS_PORT, {""});
    fake::clock::timeOutWaits(6);
    const std::string log = fake::captureStdout([&] { EXPECT_EQ(DNS_GetMX("dvr.test", records), -1); });
    silent.stop();
    EXPECT_EQ(messages(log), repeat("DNS_SendMXQuery: select(&readset) timeout!\n", 3) +
                                 "DNS_GetMXviaNameServer: MX record not found! Try A record.\n" +
                                 repeat("DNS_SendAQuery: [#] select() timeout\n", 3) +
                                 "DNS_GetMXviaNameServer: A record not found!\n");
    EXPECT_EQ(silent.queries.size(), 6u);
    EXPECT_NEAR(fake::clock::sleptNs() / 1e9, 120.0, 0.1);
}

// dnsmasq with the records of tests/peers/test_dns.sh.
TEST_F(DnsPeer, RealServer)
{
    resolvConf(("nameserver " + std::string(getenv("DVR_DNS_PEERS")) + "\n").c_str());
    const FrontCase cases[] = {
        {"www.dvr.test", false, "", 0, {"10.1.2.3"}, ""},
        {"alias.dvr.test", false, "", 0, {"10.1.2.3"}, ""},
        {"multi.dvr.test", false, "", 0, {"10.1.2.4", "10.1.2.5"}, ""},
        {"missing.dvr.test", false, "", -1, {}, "DNS_GetAviaNameServer: A record not found!\n"},
        {"postmaster@dvr.test", true, "", 0, {"10@10.1.2.26", "20@10.1.2.25"}, ""},
        {"www.dvr.test", true, "", 0, {"10.1.2.3"}, "DNS_GetMXviaNameServer: MX record not found! Try A record.\n"},
        {"www.dvr.test.", false, "", 0, {"10.1.2.3"}, ""},
        {"missing.dvr.test", true, "", -1, {},
         "DNS_GetMXviaNameServer: MX record not found! Try A record.\n"
         "DNS_GetMXviaNameServer: A record not found!\n"},
    };
    for (const FrontCase &c : cases) {
        memset(records, 0, sizeof records);
        int rc = 0;
        const std::string log = fake::captureStdout([&] {
            rc = c.mx ? DNS_GetMX(c.name, records) : DNS_GetA(c.name, records);
        });
        std::vector<std::string> valid = validOnes(records);
        std::sort(valid.begin(), valid.end());
        EXPECT_EQ(rc, c.rc) << c.name;
        EXPECT_EQ(valid, c.valid) << c.name;
        EXPECT_EQ(messages(log), c.log) << c.name;
    }
}

} // namespace
