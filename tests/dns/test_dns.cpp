// The DNS client: query packets, the reply parsers on crafted and mutated
// replies, the front end, the exchanges on real UDP sockets, and, inside the
// network namespace of tests/peers/test_dns.sh, lookups on port 53.
#include <gtest/gtest.h>

#include <algorithm>
#include <arpa/inet.h>
#include <functional>
#include <random>
#include <ranges>
#include <set>
#include <sstream>

#include "DNS.h"
#include "fake_select.h"
#include "test_support.h"

namespace {

using Bytes = std::string;
using Strings = std::vector<std::string>;
using Outcome =
    std::tuple<int, std::string, Strings>; // a lookup's result, log, entries with valid set

Bytes u16(int v)
{
    return {static_cast<char>(v >> 8), static_cast<char>(v & 0xFF)};
}
Bytes ip(int c, int d)
{
    return {10, 0, static_cast<char>(c), static_cast<char>(d)};
} // 10.0.c.d
Bytes labels(const std::string &name)
{
    const size_t point = std::min(name.find('.'), name.size());
    const Bytes rest = point < name.size() ? labels(name.substr(point + 1)) : Bytes(1, '\0');
    return static_cast<char>(point) + name.substr(0, point) + rest;
}
// Our id, the flags, the counts and the question; records with compressed owners.
Bytes head(const std::string &name, int qtype, int an, int ns = 0, int ar = 0, int flags = 0x8180)
{
    return "\xA9\xFA" + u16(flags) + u16(1) + u16(an) + u16(ns) + u16(ar) + labels(name) +
           u16(qtype) + u16(1);
}
Bytes query(const std::string &name, int qtype)
{
    return head(name, qtype, 0, 0, 0, 0x0100);
}
Bytes rr(int owner, int type, const Bytes &data)
{
    return u16(0xC000 | owner) + u16(type) + u16(1) + u16(0) + u16(300) +
           u16(static_cast<int>(data.size())) + data;
}
// An A reply for www.dvr.test: count addresses 10.0.0.1 ... under this answer count.
Bytes www(int count, int answers)
{
    Bytes r = head("www.dvr.test", 1, answers);
    for (int i = 1; i <= count; ++i) {
        r += rr(12, 1, ip(0, i));
    }
    return r;
}
// An MX reply for dvr.test: a mail host of each preference p, its address
// 10.0.1.p in the additional section if glue, and an authority count of ns.
Bytes mx(const std::vector<int> &preferences, bool glue = true, int ns = 0)
{
    const int n = static_cast<int>(preferences.size());
    Bytes r = head("dvr.test", 15, n, ns, glue ? n : 0), additional;
    for (int i = 0; i < n; ++i) {
        additional +=
            rr(static_cast<int>(r.size()) + 14, 1, ip(1, preferences[i])); // owner: the host's name
        r += rr(12, 15, u16(preferences[i]) + '\1' + static_cast<char>('a' + i) + "\xC0\x0C");
    }
    return glue ? r + additional : r;
}
const Bytes kQueryA = query("www.dvr.test", 1), kQueryMX = query("dvr.test", 15);

// "-" an empty entry, "10.0.0.1" an A entry, "20@10.0.1.20" a mail host, "?" anything else.
std::string describe(const DnsRecord &r)
{
    char a[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &r.addr, a, sizeof a);
    if (r.valid == 1 && r.type == DNS_TYPE_MX) {
        return std::to_string(r.preference) + "@" + a;
    }
    const bool plain = r.offset == 0 && r.preference == 0,
               empty = r.valid == 0 && r.type == 0 && r.addr == 0;
    return !plain ? "?" : r.valid == 1 && r.type == DNS_TYPE_A ? a : empty ? "-" : "?";
}
// The log without file and line: "dns_x.cpp,12:DNS_GetA(): text" becomes "DNS_GetA(): text".
std::string messages(const std::string &log)
{
    std::string out;
    std::istringstream in(fake::withoutLineNumbers(log));
    for (std::string line; std::getline(in, line);) {
        out += line.substr(line.find(",N:") + 3) + "\n";
    }
    return out;
}
// The line for each of n tries, "#" standing for the try's number.
std::string tries(std::string line, int n)
{
    std::string out;
    for (int i = 0, at = static_cast<int>(line.find('#')); i < n; ++i) {
        out += at < 0 ? line : line.replace(static_cast<size_t>(at), 1, std::to_string(i));
    }
    return out;
}

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

TEST(DnsQuery, PacketLayout)
{
    std::string longest(DNS_MAX_NAME_LENGTH,
                        'a'); // labels of 63: the longest name that fits the 1,024 bytes
    for (size_t point = 63; point < longest.size(); point += 64) {
        longest[point] = '.';
    }
    const std::tuple<std::string, uint8_t, Bytes> cases[] = {
        {"abc.def", 1, Bytes("\xA9\xFA\1\0\0\1\0\0\0\0\0\0\3abc\3def\0\0\1\0\1", 25)},
        {"first.last@www.dvr.test", 1, kQueryA}, // the part behind the first "@"
        {"dvr.test.", 15, kQueryMX},             // a final point only makes the name absolute
        {"a..b", 1, Bytes("\xA9\xFA\1\0\0\1\0\0\0\0\0\0\1a\0\1b\0\0\1\0\1", 22)},
        {longest, 1, query(longest, 1)},
        {longest + "c", 1, ""},
        {"first.last@", 1, ""},
        {".", 1, ""},
    };
    for (const auto &[name, qtype, packet] : cases) {
        std::vector<uint8_t> buffer(DNS_PACKET_SIZE, 0xEE); // on the heap: an overrun is caught
        const int rc = DNS_BuildQuery(name.c_str(), buffer.data(), qtype);
        EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + std::max(rc, 0)), packet) << name;
        EXPECT_EQ(rc, packet.empty() ? -1 : static_cast<int>(packet.size())) << name;
    }
    EXPECT_EQ(query(longest, 1).size(), size_t{DNS_PACKET_SIZE});
}

// The result, then what a parser wrote in 10 + 2 guard entries, from a heap copy
// of exactly the reply's length; "past the array" if a guard was written.
Strings parse(bool mxReply, const Bytes &reply)
{
    const std::vector<uint8_t> packet(reply.begin(), reply.end());
    DnsRecord records[DNS_MAX_RECORDS + 2];
    memset(records, 0xEE, sizeof records);
    Strings out = {std::to_string((mxReply ? DNS_ParserMX : DNS_ParserA)(
        packet.data(), static_cast<int>(packet.size()), records))};
    for (int i = 0; i < DNS_MAX_RECORDS + 2; ++i) {
        if (records[i].valid != 0xEE || records[i].addr != 0xEEEEEEEE) {
            out.push_back(i < DNS_MAX_RECORDS ? describe(records[i]) : "past the array");
        }
    }
    return out;
}

TEST(DnsParsers, RepliesByPositionAndMutated)
{
    const Bytes cname =
        head("www.dvr.test", 1, 2) + rr(12, 5, labels("web.dvr.test")) + rr(42, 1, ip(0, 9));
    Strings ten = {"0"},
            tenHosts = {"0"}; // the first 10 of 12 addresses, the lowest 10 of 12 mail hosts
    for (int i = 1; i <= 10; ++i) {
        ten.push_back("10.0.0." + std::to_string(i));
        tenHosts.push_back(std::to_string(10 * i) + "@10.0.1." + std::to_string(10 * i));
    }
    const std::string tooShort = "DNS_ParserMX(): Packet Size error!\n";
    const struct {
        bool mx;
        Bytes reply;
        Strings expected;
        std::string log = "";
    } cases[] = {
        {false, www(2, 2), {"0", "10.0.0.1", "10.0.0.2"}},
        {false, cname, {"0", "10.0.0.9", "-"}},
        {false, www(12, 12), ten},
        {false, www(1, 3), {"0", "10.0.0.1", "-", "-"}},
        {false, www(0, 0), {"-1"}},
        {false,
         www(2, 2).substr(0, 60),
         {"0", "10.0.0.1", "10.0.0.0"}},          // cut inside the second address
        {false, www(1, 1).substr(0, 40), {"-1"}}, // cut before the data
        {false, www(1, 1).substr(0, 8), {"-1"}},
        {false, Bytes("\xA9\xFA\x81\x80\0\1\0", 7), {"-1"}}, // shorter than its counts
        {false, cname.substr(0, 56), {"-1"}},                // no address behind the CNAME
        {false, www(0, 2) + rr(12, 1, Bytes(4, '\0')), {"0", "-", "-"}},
        {true, mx({20, 10, 30}), {"0", "10@10.0.1.10", "20@10.0.1.20", "30@10.0.1.30"}},
        {true, mx({120, 110, 100, 90, 80, 70, 60, 50, 40, 30, 20, 10}), tenHosts},
        {true, mx({20, 10}, true, 2), {"0", "20@10.0.1.20"}}, // the authority's share left aside
        {true, mx({0x0105}), {"0", "5@10.0.1.5"}},            // the low byte of the preference
        {true, mx({10}, false), {"-1"}},
        {true, head("d.t", 15, 1, 0, 2), {"-1"}, tooShort}, // 21 bytes, too short for two records
        {true, head("d.t", 15, 1, 0, 2) + Bytes(11, '\0'), {"-1"}, tooShort}, // 32, just as short
        {true, head("d.t", 15, 1, 0, 1) + rr(0, 1, ip(0, 1)), {"0", "0@10.0.0.1"}},
    };
    for (const auto &c : cases) {
        const auto log = fake::captureStdout(
            [&] { EXPECT_EQ(parse(c.mx, c.reply), c.expected) << c.reply.size(); });
        EXPECT_EQ(messages(log), c.log) << c.reply.size();
    }
    const Bytes one = mx({5});
    DnsRecord r[DNS_MAX_RECORDS] = {};
    ASSERT_EQ(DNS_ParserMX(reinterpret_cast<const uint8_t *>(one.data()),
                           static_cast<int>(one.size()), r),
              0);
    EXPECT_EQ(r[0].offset, 40); // the mail host's name in the MX answer
    // These replies mutated: whatever their counts and offsets say, no parser
    // reads past a reply (under ASan) or writes past the caller's 10 entries.
    std::mt19937 random(7);
    fake::StdoutCapture quiet;
    for (int i = 0; i < 20000; ++i) {
        Bytes reply = cases[i % std::size(cases)].reply;
        for (int flips = random() % 6; flips > 0; --flips) {
            reply[random() % reply.size()] = static_cast<char>(random() % 4 == 0 ? 0xFF : random());
        }
        reply.resize(random() % (reply.size() + 20));
        ASSERT_EQ(std::ranges::count(parse(random() % 2 == 1, reply), "past the array"), 0) << i;
    }
}

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
        const auto log = fake::captureStdout(
            [&] { rc = call ? call() : (mx ? DNS_GetMX : DNS_GetA)(name, records); });
        auto valid = std::views::filter(records, [](auto &r) { return r.valid; }) |
                     std::views::transform(describe);
        return {rc, messages(log), {valid.begin(), valid.end()}};
    }

    fake::TempDir dir;
    DnsRecord records[DNS_MAX_RECORDS];
};
using DnsPeer = DnsLookup;

// A tab is no separator, a first word need only begin with "nameserver", lines
// are read 79 bytes at a time, and a fifth server is left out.
TEST_F(DnsLookup, NameServersFromResolvConf)
{
    resolvConf("nameserver 10.0.0.1\nnameserver\t10.0.0.9\n# nameserver 10.0.0.8\nnameservers "
               "10.0.0.2 x\nnameserver\n"
               " nameserver 10.0.0.7\n#" +
               std::string(78, ' ') +
               "nameserver 10.0.0.3\r\nnameserver 10.0.0.4\n"
               "nameserver 10.0.0.5\n");
    char servers[DNS_MAX_SERVERS][DNS_SERVER_TEXT_SIZE];
    memset(servers, 0x55, sizeof servers);
    EXPECT_EQ(Strings(servers, servers + DNS_GetNameServer(servers)),
              Strings({"10.0.0.1", "10.0.0.2", "10.0.0.3", "10.0.0.4"}));
}

TEST_F(DnsLookup, FrontEndAnswersWithoutAskingAServer)
{
    const std::string tooLong = "x." + std::string(DNS_MAX_NAME_LENGTH - 1, 'y');
    const std::string noFile =
        "DNS_GetNameServer(): fopen(/etc/resolv.conf) error : No such file or directory\n";
    const std::tuple<const char *, bool, Outcome> cases[] = {
        {"localhost", false, {-1, "DNS_GetA(): invalid pDomainName [localhost]\n", {}}},
        {"localhost", true, {-1, "DNS_GetMX(): invalid pDomainName\n", {}}},
        {nullptr, false, {-1, "DNS_GetA(): invalid pDomainName [(null)]\n", {}}},
        {"10.1.2.3", false, {0, "", {"10.1.2.3"}}},
        {"first.last@10.1.2.3", true, {0, "", {"10.1.2.3"}}},
        {"first.last@", false, {-1, "DNS_GetA(): invalid pDomainName [first.last@]\n", {}}},
        {tooLong.c_str(), true, {-1, "DNS_GetMX(): invalid pDomainName\n", {}}},
        {"dvr.test", true, {-1, noFile + "DNS_GetMX(): no nameserver found\n", {}}},
        {"255.255.255.255",
         false,
         {-1, noFile + "DNS_GetA(): no nameserver found\n", {}}}, // all ones: a name
    };
    fake::redirect("/etc/resolv.conf", dir.file("missing"));
    for (const auto &[name, mx, outcome] : cases) {
        EXPECT_EQ(lookup(mx, name), outcome);
        // A failure past the test for a point leaves inet_addr's failure value in the first entry.
        const bool pointed = name != nullptr && strchr(name, '.') != nullptr;
        if (std::get<0>(outcome) != 0) {
            EXPECT_EQ(records[0].addr, pointed ? INADDR_NONE : 0) << (pointed ? name : "");
        }
    }
    resolvConf("# no servers\n");
    EXPECT_EQ(lookup(true, "dvr.test"), Outcome(-1, "DNS_GetMX(): no nameserver found\n", {}));
    resolvConf("nameserver 1234567890.1234567890\n"); // cut to 15 characters
    errno = EDOM;
    const std::string badServer = "DNS_GetAviaNameServer(): inet_addr(1234567890.1234) error : ";
    EXPECT_EQ(lookup(false, "www.dvr.test"), Outcome(-1, badServer + strerror(EDOM) + "\n", {}));
}

// One exchange on a loopback socket: each try sends the query, then reads one of
// the replies that wait there or times out; or every send fails.
TEST_F(DnsLookup, ExchangeTriesAndResults)
{
    const Bytes nameError = head("www.dvr.test", 1, 0, 0, 0, 0x8183),
                noMx = head("dvr.test", 15, 0);
    const std::string timeOutA = "DNS_SendAQuery(): [#] select() timeout\n";
    enum { Answering, PortZero, BadSocket };
    const struct {
        bool mx;
        int peer;
        Strings replies;
        int timeOuts;
        Outcome outcome;
    } cases[] = {
        {false, Answering, {www(2, 2)}, 0, {0, "", {"10.0.0.1", "10.0.0.2"}}},
        {false, Answering, {nameError}, 0, {-1, "", {}}},
        {false, Answering, {www(0, 0), www(0, 0), www(0, 0)}, 0, {-1, "", {}}},
        {false, Answering, {}, 3, {-1, tries(timeOutA, 3), {}}},
        {false, Answering, {www(1, 1)}, 2, {0, tries(timeOutA, 2), {"10.0.0.1"}}},
        {false,
         PortZero,
         {},
         0,
         {-2, tries("DNS_SendAQuery(): sendto() error : -1/30 - Invalid argument\n", 3), {}}},
        {false,
         BadSocket,
         {},
         0,
         {-2,
          tries("DNS_SendAQuery(): select(writeset:-1) timeout! : Bad file descriptor\n", 3),
          {}}},
        {true, Answering, {mx({20, 10})}, 0, {0, "", {"10@10.0.1.10", "20@10.0.1.20"}}},
        {true, Answering, {mx({10}, false)}, 0, {-1, "", {}}}, // a failing parser ends the tries
        {true, Answering, {noMx, nameError, nameError}, 0, {-1, "", {}}},
        {true,
         Answering,
         {},
         3,
         {-1, tries("DNS_SendMXQuery(): select(&readset) timeout!\n", 3), {}}},
        {true,
         PortZero,
         {},
         0,
         {-2, tries("DNS_SendMXQuery(): sendto() error : Invalid argument\n", 3), {}}},
        {true,
         BadSocket,
         {},
         0,
         {-2, tries("DNS_SendMXQuery(): select(&writeset) timeout!\n", 3), {}}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(&c - cases);
        Socket server("127.0.0.1", 0), client("127.0.0.1", 0);
        for (const Bytes &reply : c.replies) {
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
                  Strings(c.replies.size() + c.timeOuts, c.mx ? kQueryMX : kQueryA));
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
                      tries("DNS_SendMXQuery(): select(&readset) timeout!\n", 3) + kFallback +
                          tries("DNS_SendAQuery(): [#] select() timeout\n", 3) +
                          "DNS_GetMXviaNameServer(): A record not found!\n",
                      {"10@10.1.2.26", "20@10.1.2.25"}));
    const Bytes m = kQueryMX, a = query("dvr.test", 1);
    EXPECT_EQ(silent.received(), Strings({m, m, m, a, a, a}));
    EXPECT_EQ(silent.ports.size(), 1u); // one socket for both exchanges
}

// dnsmasq, with the records of tests/peers/test_dns.sh.
TEST_F(DnsPeer, RealServer)
{
    resolvConf("nameserver " + std::string(getenv("DVR_DNS_PEERS")) + "\n");
    const std::tuple<const char *, bool, Outcome> cases[] = {
        {"www.dvr.test", false, {0, "", {"10.1.2.3"}}},
        {"alias.dvr.test", false, {0, "", {"10.1.2.3"}}},
        {"multi.dvr.test", false, {0, "", {"10.1.2.4", "10.1.2.5"}}},
        {"missing.dvr.test", false, {-1, "DNS_GetAviaNameServer(): A record not found!\n", {}}},
        {"www.dvr.test", true, {0, kFallback, {"10.1.2.3"}}},
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
