// The DNS client: query packets, the reply parsers on crafted and hostile
// replies, the front end, the exchanges against crafted servers on real UDP
// sockets, and, inside the network namespace of tests/peers/test_dns.sh, the
// lookups on port 53 against crafted servers and dnsmasq.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <pthread.h>
#include <random>
#include <sstream>
#include <sys/socket.h>

#include "DNS.h"
#include "fake_select.h"
#include "test_support.h"

namespace {

using Bytes = std::string;
using Strings = std::vector<std::string>;

Bytes u16(int v) { return {static_cast<char>(v >> 8), static_cast<char>(v & 0xFF)}; }
Bytes ip4(const std::string &dotted)
{
    const in_addr_t a = inet_addr(dotted.c_str());
    return Bytes(reinterpret_cast<const char *>(&a), 4);
}
Bytes labels(const std::string &name)
{
    Bytes out;
    std::istringstream in(name);
    for (std::string label; std::getline(in, label, '.');) {
        out += static_cast<char>(label.size()) + label;
    }
    return out + '\0';
}
// Our id, the flags, the counts and the question; records with compressed owners.
Bytes head(const std::string &name, int qtype, int an, int ns = 0, int ar = 0, int flags = 0x8180)
{
    return "\xA9\xFA" + u16(flags) + u16(1) + u16(an) + u16(ns) + u16(ar) + labels(name) + u16(qtype) + u16(1);
}
Bytes rr(int owner, int type, const Bytes &data)
{
    return u16(0xC000 | owner) + u16(type) + u16(1) + u16(0) + u16(300) + u16(static_cast<int>(data.size())) + data;
}
// An A reply for www.dvr.test: count addresses 10.0.0.1 ... under this answer count.
Bytes www(int count, int answers)
{
    Bytes r = head("www.dvr.test", 1, answers);
    for (int i = 1; i <= count; ++i) {
        r += rr(12, 1, ip4("10.0.0." + std::to_string(i)));
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
        const int name = static_cast<int>(r.size()) + 14;
        r += rr(12, 15, u16(preferences[i]) + '\1' + static_cast<char>('a' + i) + "\xC0\x0C");
        additional += rr(name, 1, ip4("10.0.1." + std::to_string(preferences[i])));
    }
    return glue ? r + additional : r;
}
const Bytes kHeader("\xA9\xFA\1\0\0\1\0\0\0\0\0\0", 12);
const Bytes kQueryA = kHeader + labels("www.dvr.test") + u16(1) + u16(1);
const Bytes kQueryMX = kHeader + labels("dvr.test") + u16(15) + u16(1);

// "-" an empty entry, "10.0.0.1" an A entry, "20@10.0.1.20" a mail host.
std::string describe(const DnsRecord &r)
{
    char a[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &r.addr, a, sizeof a);
    if (r.valid == 0 && r.type == 0 && r.addr == 0 && r.preference == 0 && r.offset == 0) {
        return "-";
    }
    if (r.valid == 1 && r.type == DNS_TYPE_MX) {
        return std::to_string(r.preference) + "@" + a;
    }
    return r.valid == 1 && r.type == DNS_TYPE_A && r.preference == 0 && r.offset == 0 ? a : "?";
}
Strings validOnes(const DnsRecord *records)
{
    Strings out;
    for (int i = 0; i < DNS_MAX_RECORDS; ++i) {
        if (records[i].valid == 1) {
            out.push_back(describe(records[i]));
        }
    }
    return out;
}

// "dns_x.cpp,12:DNS_GetA(): text" becomes "DNS_GetA: text"; "#" in a line
// given to repeat() counts the tries.
std::string messages(const std::string &log)
{
    std::string out;
    std::istringstream in(fake::withoutLineNumbers(log));
    for (std::string line; std::getline(in, line);) {
        const size_t start = line.find(",N:") + 3, call = line.find("(): ");
        out += line.substr(start, call - start) + ": " + line.substr(call + 4) + "\n";
    }
    return out;
}
std::string repeat(std::string line, int tries)
{
    std::string out;
    for (int i = 0, at = static_cast<int>(line.find('#')); i < tries; ++i) {
        out += at < 0 ? line : line.replace(static_cast<size_t>(at), 1, std::to_string(i));
    }
    return out;
}

// A name server on a real UDP socket, serving on a thread of its own: the n-th
// query gets the n-th reply (the last one again when they run out); an empty
// reply is silence.
struct Server {
    Server(const char *ip, int port, Strings answers) : replies(std::move(answers))
    {
        addr.sin_family = AF_INET;
        addr.sin_port = htons(static_cast<uint16_t>(port));
        addr.sin_addr.s_addr = inet_addr(ip);
        socklen_t len = sizeof addr;
        if (bind(fd, sa(), len) == 0 && getsockname(fd, sa(), &len) == 0) {
            pthread_create(&thread, nullptr, serve, this);
        } else {
            ADD_FAILURE() << "bind " << ip << ":" << port;
            COM_SafeClose(&fd);
        }
    }
    ~Server() { stop(); }
    // Serves what has come, then ends: an empty datagram queued last stops it.
    void stop()
    {
        if (fd >= 0 && sendto(fd, "", 0, 0, sa(), sizeof addr) == 0) {
            pthread_join(thread, nullptr);
        }
        COM_SafeClose(&fd);
    }
    static void *serve(void *self)
    {
        auto *s = static_cast<Server *>(self);
        char buf[2048];
        sockaddr_in from{};
        socklen_t len = sizeof from;
        for (ssize_t n; (n = recvfrom(s->fd, buf, sizeof buf, 0, reinterpret_cast<sockaddr *>(&from), &len)) > 0;) {
            const Bytes &r = s->replies[std::min(s->queries.size(), s->replies.size() - 1)];
            s->queries.emplace_back(buf, static_cast<size_t>(n));
            s->ports.push_back(from.sin_port);
            if (!r.empty()) {
                sendto(s->fd, r.data(), r.size(), 0, reinterpret_cast<sockaddr *>(&from), len);
            }
        }
        return nullptr;
    }
    sockaddr *sa() { return reinterpret_cast<sockaddr *>(&addr); }

    int fd = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in addr{};
    pthread_t thread{};
    Strings replies, queries;
    std::vector<in_port_t> ports;
};

TEST(DnsQuery, PacketLayout)
{
    std::string longest = std::string(63, 'a');
    while (longest.size() < DNS_MAX_NAME_LENGTH) {
        longest += "." + std::string(std::min<size_t>(63, DNS_MAX_NAME_LENGTH - longest.size() - 1), 'b');
    }
    const std::tuple<std::string, uint8_t, Bytes> cases[] = {
        {"abc.def", 1, kHeader + Bytes("\3abc\3def\0\0\1\0\1", 13)},
        {"first.last@www.dvr.test", 1, kQueryA},
        {"dvr.test.", 15, kQueryMX}, // a final point only makes the name absolute
        {"a..b", 1, kHeader + Bytes("\1a\0\1b\0\0\1\0\1", 10)},
        {longest, 1, kHeader + labels(longest) + u16(1) + u16(1)},
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
    EXPECT_EQ(labels(longest).size() + 16, size_t{DNS_PACKET_SIZE});
}

// The entries a parser leaves in 10 + 2 guard entries, from a heap copy of
// exactly the reply's length; "past the array" if a guard was written.
Strings parse(bool mxReply, const Bytes &reply, int &rc)
{
    const std::vector<uint8_t> packet(reply.begin(), reply.end());
    DnsRecord records[DNS_MAX_RECORDS + 2];
    memset(records, 0xEE, sizeof records);
    rc = (mxReply ? DNS_ParserMX : DNS_ParserA)(packet.data(), static_cast<int>(packet.size()), records);
    Strings out;
    for (const DnsRecord &r : records) {
        if (&r - records >= DNS_MAX_RECORDS && (r.valid != 0xEE || r.addr != 0xEEEEEEEE)) {
            out.push_back("past the array");
        } else if (&r - records < DNS_MAX_RECORDS && r.valid != 0xEE) {
            out.push_back(describe(r));
        }
    }
    return out;
}

TEST(DnsParsers, RepliesByPosition)
{
    const Bytes cname = head("www.dvr.test", 1, 2) + rr(12, 5, labels("web.dvr.test")) + rr(42, 1, ip4("10.0.0.9"));
    const Strings ten = {"10.0.0.1", "10.0.0.2", "10.0.0.3", "10.0.0.4", "10.0.0.5",
                         "10.0.0.6", "10.0.0.7", "10.0.0.8", "10.0.0.9", "10.0.0.10"};
    const struct {
        bool mx;
        Bytes reply;
        int rc;
        Strings records;
    } cases[] = {
        {false, www(2, 2), 0, {"10.0.0.1", "10.0.0.2"}},
        {false, cname, 0, {"10.0.0.9", "-"}},
        {false, www(12, 12), 0, ten},
        {false, www(1, 3), 0, {"10.0.0.1", "-", "-"}},
        {false, www(0, 0), -1, {}},
        {false, www(2, 2).substr(0, 60), 0, {"10.0.0.1", "10.0.0.0"}}, // cut inside the second address
        {false, www(1, 1).substr(0, 40), -1, {}},                     // cut before the data
        {false, www(1, 1).substr(0, 8), -1, {}},
        {false, Bytes("\xA9\xFA\x81\x80\0\1\0", 7), -1, {}}, // shorter than its counts
        {false, cname.substr(0, 56), -1, {}},              // no address behind the CNAME
        {false, www(0, 2) + rr(12, 1, Bytes(4, '\0')), 0, {"-", "-"}},
        {true, mx({20, 10, 30}), 0, {"10@10.0.1.10", "20@10.0.1.20", "30@10.0.1.30"}},
        {true, mx({120, 110, 100, 90, 80, 70, 60, 50, 40, 30, 20, 10}), 0,
         {"10@10.0.1.10", "20@10.0.1.20", "30@10.0.1.30", "40@10.0.1.40", "50@10.0.1.50", "60@10.0.1.60",
          "70@10.0.1.70", "80@10.0.1.80", "90@10.0.1.90", "100@10.0.1.100"}},
        {true, mx({20, 10}, true, 2), 0, {"20@10.0.1.20"}}, // the authority's share left aside
        {true, mx({10}, false), -1, {}},
        {true, head("d.t", 15, 1, 0, 2), -1, {}}, // 21 bytes, too short for two records
        {true, head("d.t", 15, 1, 0, 1) + rr(0, 1, ip4("10.0.0.1")), 0, {"0@10.0.0.1"}},
    };
    for (const auto &c : cases) {
        int rc = 0;
        const std::string log =
            fake::captureStdout([&] { EXPECT_EQ(parse(c.mx, c.reply, rc), c.records) << c.reply.size(); });
        EXPECT_EQ(rc, c.rc) << c.reply.size();
        EXPECT_EQ(messages(log), c.reply.size() == 21 ? "DNS_ParserMX: Packet Size error!\n" : "");
    }
    const Bytes one = mx({0x0105});
    DnsRecord r[DNS_MAX_RECORDS] = {};
    ASSERT_EQ(DNS_ParserMX(reinterpret_cast<const uint8_t *>(one.data()), static_cast<int>(one.size()), r), 0);
    EXPECT_EQ(r[0].offset, 40); // the mail host's name in the MX answer
    EXPECT_EQ(r[0].preference, 5);
}

// Whatever the counts and offsets say, no parser leaves the reply (under ASan)
// or the caller's 10 entries.
TEST(DnsParsers, HostileRepliesStayInBounds)
{
    std::mt19937 random(7);
    const Bytes seeds[] = {www(3, 3), head("w.d", 1, 2) + rr(12, 5, labels("x.d")) + rr(33, 1, ip4("1.2.3.4")),
                           mx({5, 7, 9}), mx({1}, true, 1)};
    fake::StdoutCapture quiet;
    for (int i = 0; i < 20000; ++i) {
        Bytes reply = seeds[i % 4];
        for (int flips = random() % 6; flips > 0; --flips) {
            reply[random() % reply.size()] = static_cast<char>(random() % 4 == 0 ? 0xFF : random());
        }
        reply.resize(random() % (reply.size() + 20));
        int rc = 0;
        const Strings records = parse(i % 2 == 1, reply, rc);
        ASSERT_EQ(std::count(records.begin(), records.end(), "past the array"), 0);
    }
}

class DnsLookup : public testing::Test {
protected:
    void SetUp() override { fake::clock::enable(); }
    void TearDown() override { fake::clock::timeOutWaits(0); }
    void resolvConf(const std::string &text) { fake::redirect("/etc/resolv.conf", dir.write("resolv.conf", text)); }
    // Runs DNS_GetA or DNS_GetMX on a zeroed array; returns the result and the log.
    std::pair<int, std::string> lookup(bool mxLookup, const char *name)
    {
        memset(records, 0, sizeof records);
        int rc = 0;
        const std::string log = fake::captureStdout([&] { rc = (mxLookup ? DNS_GetMX : DNS_GetA)(name, records); });
        return {rc, messages(log)};
    }

    fake::TempDir dir;
    DnsRecord records[DNS_MAX_RECORDS];
};

TEST_F(DnsLookup, NameServersFromResolvConf)
{
    const std::pair<std::string, Strings> cases[] = {
        {"nameserver 10.0.0.1\nnameserver\t10.0.0.9\n# nameserver 10.0.0.8\nnameservers 10.0.0.2 x\nnameserver\n"
         " nameserver 10.0.0.7\nnameserver 10.0.0.3\r\nnameserver 10.0.0.4\nnameserver 10.0.0.5\n",
         {"10.0.0.1", "10.0.0.2", "10.0.0.3", "10.0.0.4"}},
        {"nameserver 1234567890.1234567890\n", {"1234567890.1234"}},
        {"#" + std::string(78, ' ') + "nameserver 10.0.0.6\n", {"10.0.0.6"}}, // read 79 bytes at a time
        {"", {}},
    };
    for (const auto &[text, expected] : cases) {
        resolvConf(text);
        char servers[DNS_MAX_SERVERS][DNS_SERVER_TEXT_SIZE];
        memset(servers, 0x55, sizeof servers);
        EXPECT_EQ(Strings(servers, servers + DNS_GetNameServer(servers)), expected) << text;
    }
}

struct LookupCase {
    const char *name;
    bool mx;
    int rc;
    Strings valid;
    std::string log;
};

TEST_F(DnsLookup, FrontEndAnswersWithoutAskingAServer)
{
    const std::string tooLong = "x." + std::string(DNS_MAX_NAME_LENGTH - 1, 'y');
    const LookupCase cases[] = {
        {"localhost", false, -1, {}, "DNS_GetA: invalid pDomainName [localhost]\n"},
        {"localhost", true, -1, {}, "DNS_GetMX: invalid pDomainName\n"},
        {nullptr, false, -1, {}, "DNS_GetA: invalid pDomainName [(null)]\n"},
        {"10.1.2.3", false, 0, {"10.1.2.3"}, ""},
        {"first.last@10.1.2.3", true, 0, {"10.1.2.3"}, ""},
        {"first.last@", false, -1, {}, "DNS_GetA: invalid pDomainName [first.last@]\n"},
        {tooLong.c_str(), true, -1, {}, "DNS_GetMX: invalid pDomainName\n"},
        {"dvr.test", true, -1, {}, "DNS_GetMX: no nameserver found\n"},
    };
    resolvConf("# no servers\n");
    for (const LookupCase &c : cases) {
        EXPECT_EQ(lookup(c.mx, c.name), std::make_pair(c.rc, c.log));
        EXPECT_EQ(validOnes(records), c.valid);
        const bool pastThePointTest = c.name != nullptr && strchr(c.name, '.') != nullptr;
        EXPECT_EQ(records[0].addr, c.rc == 0 ? inet_addr(c.valid[0].c_str()) : pastThePointTest ? INADDR_NONE : 0);
    }
    fake::redirect("/etc/resolv.conf", dir.file("missing"));
    EXPECT_EQ(lookup(false, "255.255.255.255").second, // all ones is no address: looked up as a name
              "DNS_GetNameServer: fopen(/etc/resolv.conf) error : No such file or directory\n"
              "DNS_GetA: no nameserver found\n");
    resolvConf("nameserver 1234567890.1234567890\n");
    errno = EDOM;
    EXPECT_EQ(lookup(false, "www.dvr.test").second,
              "DNS_GetAviaNameServer: inet_addr(1234567890.1234) error : " + std::string(strerror(EDOM)) + "\n");
}

// One exchange against a crafted server on a loopback port.
TEST_F(DnsLookup, ExchangeTriesAndResults)
{
    const Bytes nameError = head("www.dvr.test", 1, 0, 0, 0, 0x8183);
    enum { Answering, PortZero, BadSocket };
    const struct {
        bool mx;
        Strings replies;
        int timeOuts, rc;
        size_t queries;
        Strings valid;
        std::string log;
        int peer;
    } cases[] = {
        {false, {www(2, 2)}, 0, 0, 1, {"10.0.0.1", "10.0.0.2"}, "", Answering},
        {false, {nameError}, 0, -1, 1, {}, "", Answering},
        {false, {www(0, 0)}, 0, -1, 3, {}, "", Answering},
        {false, {""}, 3, -1, 3, {}, repeat("DNS_SendAQuery: [#] select() timeout\n", 3), Answering},
        {false, {"", "", www(1, 1)}, 2, 0, 3, {"10.0.0.1"},
         repeat("DNS_SendAQuery: [#] select() timeout\n", 2), Answering},
        {false, {""}, 0, -2, 0, {},
         repeat("DNS_SendAQuery: sendto() error : -1/30 - Invalid argument\n", 3), PortZero},
        {false, {""}, 0, -2, 0, {},
         repeat("DNS_SendAQuery: select(writeset:-1) timeout! : Bad file descriptor\n", 3), BadSocket},
        {true, {mx({20, 10})}, 0, 0, 1, {"10@10.0.1.10", "20@10.0.1.20"}, "", Answering},
        {true, {mx({10}, false)}, 0, -1, 1, {}, "", Answering}, // a failing parser ends the tries
        {true, {head("dvr.test", 15, 0), nameError}, 0, -1, 3, {}, "", Answering},
        {true, {""}, 3, -1, 3, {}, repeat("DNS_SendMXQuery: select(&readset) timeout!\n", 3), Answering},
        {true, {""}, 0, -2, 0, {}, repeat("DNS_SendMXQuery: sendto() error : Invalid argument\n", 3), PortZero},
        {true, {""}, 0, -2, 0, {}, repeat("DNS_SendMXQuery: select(&writeset) timeout!\n", 3), BadSocket},
    };
    for (const auto &c : cases) {
        Server server("127.0.0.1", 0, c.replies);
        sockaddr_in to = server.addr;
        to.sin_port = c.peer == PortZero ? 0 : to.sin_port;
        int fd = c.peer == BadSocket ? -1 : socket(AF_INET, SOCK_DGRAM, 0);
        fake::clock::timeOutWaits(c.timeOuts);
        const int64_t start = fake::clock::nowNs();
        memset(records, 0, sizeof records);
        int rc = 0;
        const std::string log = fake::captureStdout([&] {
            rc = c.mx ? DNS_SendMXQuery(fd, &to, "postmaster@dvr.test", records)
                      : DNS_SendAQuery(fd, &to, "www.dvr.test", records);
        });
        COM_SafeClose(&fd);
        server.stop();
        EXPECT_EQ(rc, c.rc) << log;
        EXPECT_EQ(messages(log), c.log);
        EXPECT_EQ(validOnes(records), c.valid) << log;
        EXPECT_EQ(server.queries, Strings(c.queries, c.mx ? kQueryMX : kQueryA)) << log;
        // A time-out lets its whole 20 seconds pass (for the A exchange, what the
        // wait for the socket left of them).
        EXPECT_NEAR((fake::clock::nowNs() - start) / 1e9, 20.0 * c.timeOuts, 0.1) << log;
    }
}

// Port 53, in the network namespace of tests/peers/test_dns.sh, where
// DVR_DNS_PEERS names the dnsmasq server.
class DnsPeer : public DnsLookup {
protected:
    void SetUp() override
    {
        if (getenv("DVR_DNS_PEERS") == nullptr) {
            GTEST_SKIP() << "runs in tests/peers/test_dns.sh";
        }
        DnsLookup::SetUp();
    }
};

TEST_F(DnsPeer, SilentServerThenTheNext)
{
    resolvConf("nameserver 127.0.0.1\nnameserver 127.0.0.2\n");
    Server silent("127.0.0.1", DNS_PORT, {""}), second("127.0.0.2", DNS_PORT, {www(2, 2)});
    fake::clock::timeOutWaits(3);
    EXPECT_EQ(lookup(false, "www.dvr.test"), std::make_pair(0, repeat("DNS_SendAQuery: [#] select() timeout\n", 3) +
                                                                   "DNS_GetAviaNameServer: A record not found!\n"));
    silent.stop();
    second.stop();
    EXPECT_EQ(validOnes(records), Strings({"10.0.0.1", "10.0.0.2"}));
    EXPECT_EQ(silent.queries, Strings(3, kQueryA));
    EXPECT_EQ(second.queries, Strings(1, kQueryA));
}

TEST_F(DnsPeer, MxFallsBackToAOnTheSameSocket)
{
    resolvConf("nameserver 127.0.0.1\n");
    Server server("127.0.0.1", DNS_PORT, {"", "", "", www(1, 1)});
    fake::clock::timeOutWaits(3);
    EXPECT_EQ(lookup(true, "www.dvr.test"),
              std::make_pair(0, repeat("DNS_SendMXQuery: select(&readset) timeout!\n", 3) +
                                    "DNS_GetMXviaNameServer: MX record not found! Try A record.\n"));
    server.stop();
    EXPECT_EQ(validOnes(records), Strings{"10.0.0.1"});
    ASSERT_EQ(server.queries.size(), 4u);
    EXPECT_EQ(server.queries[3], kQueryA);
    EXPECT_EQ(server.ports, std::vector<in_port_t>(4, server.ports[0]));
}

// dnsmasq, with the records of tests/peers/test_dns.sh.
TEST_F(DnsPeer, RealServer)
{
    resolvConf("nameserver " + std::string(getenv("DVR_DNS_PEERS")) + "\n");
    const LookupCase cases[] = {
        {"www.dvr.test", false, 0, {"10.1.2.3"}, ""},
        {"www.dvr.test.", false, 0, {"10.1.2.3"}, ""},
        {"alias.dvr.test", false, 0, {"10.1.2.3"}, ""},
        {"multi.dvr.test", false, 0, {"10.1.2.4", "10.1.2.5"}, ""},
        {"missing.dvr.test", false, -1, {}, "DNS_GetAviaNameServer: A record not found!\n"},
        {"postmaster@dvr.test", true, 0, {"10@10.1.2.26", "20@10.1.2.25"}, ""},
        {"www.dvr.test", true, 0, {"10.1.2.3"}, "DNS_GetMXviaNameServer: MX record not found! Try A record.\n"},
        {"missing.dvr.test", true, -1, {},
         "DNS_GetMXviaNameServer: MX record not found! Try A record.\nDNS_GetMXviaNameServer: A record not found!\n"},
    };
    for (const LookupCase &c : cases) {
        EXPECT_EQ(lookup(c.mx, c.name), std::make_pair(c.rc, c.log)) << c.name;
        Strings valid = validOnes(records);
        std::sort(valid.begin(), valid.end());
        EXPECT_EQ(valid, c.valid) << c.name;
    }
}

} // namespace
