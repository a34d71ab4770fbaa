// The query packet byte for byte, and the two reply parsers on crafted and
// hostile replies.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <random>

#include "DNS.h"
#include "dns_responder.h"
#include "test_support.h"

namespace {

using namespace fake::dns;

const std::string kHeader("\xA9\xFA\x01\x00\x00\x01\x00\x00\x00\x00\x00\x00", 12);

struct QueryCase {
    std::string name;
    uint8_t qtype;
    std::string packet; // empty: refused
};

TEST(DnsQuery, PacketLayout)
{
    std::string longest = std::string(63, 'a');
    while (longest.size() < DNS_MAX_NAME_LENGTH) {
        longest += "." + std::string(std::min<size_t>(63, DNS_MAX_NAME_LENGTH - longest.size() - 1), 'b');
    }
    const QueryCase cases[] = {
        {"abc.def", 1, kHeader + std::string("\3abc\3def\0\0\1\0\1", 13)},
        {"x.y@mail.dvr.test", 15, kHeader + labels("mail.dvr.test") + std::string("\0\x0F\0\1", 4)},
        {"dvr.test.", 1, kHeader + labels("dvr.test") + std::string("\0\1\0\1", 4)},
        {"a..b", 1, kHeader + std::string("\1a\0\1b\0\0\1\0\1", 10)},
        {longest, 1, kHeader + labels(longest) + std::string("\0\1\0\1", 4)},
        {longest + "c", 1, ""},
        {"first.last@", 1, ""},
        {".", 1, ""},
    };
    for (const QueryCase &c : cases) {
        std::vector<uint8_t> packet(DNS_PACKET_SIZE, 0xEE); // on the heap: overruns are caught
        const int rc = DNS_BuildQuery(c.name.c_str(), packet.data(), c.qtype);
        if (c.packet.empty()) {
            EXPECT_EQ(rc, -1) << c.name;
            EXPECT_EQ(packet[0], 0xEE) << c.name;
        } else {
            ASSERT_EQ(rc, static_cast<int>(c.packet.size())) << c.name;
            EXPECT_EQ(std::string(packet.begin(), packet.begin() + rc), c.packet) << c.name;
        }
    }
    EXPECT_EQ(labels(longest).size() + 16, size_t{DNS_PACKET_SIZE});
}

// "10.0.0.1": a valid A entry; "-": an entry written empty. Entries past the
// list must stay untouched.
struct ParseCase {
    const char *what;
    std::string reply;
    int rc;
    std::vector<std::string> records;
};

std::vector<std::string> parse(int (*parser)(const uint8_t *, int, DnsRecord *), const std::string &reply,
                               int &rc)
{
    std::vector<uint8_t> packet(reply.begin(), reply.end()); // exactly the reply's length
    DnsRecord records[DNS_MAX_RECORDS + 2];
    memset(records, 0xEE, sizeof records);
    rc = parser(packet.data(), static_cast<int>(packet.size()), records);
    std::vector<std::string> out;
    for (const DnsRecord &r : records) {
        if (&r - records >= DNS_MAX_RECORDS) {
            if (r.valid != 0xEE || r.addr != 0xEEEEEEEE) {
                out.push_back("written past the array");
            }
        } else if (r.valid != 0xEE) {
            out.push_back(describe(r));
        }
    }
    return out;
}

std::string www(int count, int answers)
{
    return addresses("www.dvr.test", count, answers);
}

std::string mx(std::vector<int> preferences, bool glue = true, int authority = 0)
{
    return mailHosts("dvr.test", std::move(preferences), glue, authority);
}

const std::string kCname = reply("www.dvr.test", 1, 2, 0, 0) + record(12, 5, labels("web.dvr.test")) +
                           record(42, 1, ip4("10.0.0.9"));

class DnsParserA : public testing::TestWithParam<ParseCase> {};
TEST_P(DnsParserA, TakesAddressesByPosition)
{
    int rc = 0;
    const auto records = parse(DNS_ParserA, GetParam().reply, rc);
    EXPECT_EQ(rc, GetParam().rc) << GetParam().what;
    EXPECT_EQ(records, GetParam().records) << GetParam().what;
}

INSTANTIATE_TEST_SUITE_P(
    DnsReplies, DnsParserA,
    testing::Values(
        ParseCase{"two", www(2, 2), 0, {"10.0.0.1", "10.0.0.2"}},
        ParseCase{"cname first", kCname, 0, {"10.0.0.9", "-"}},
        ParseCase{"twelve", www(12, 12), 0,
                  {"10.0.0.1", "10.0.0.2", "10.0.0.3", "10.0.0.4", "10.0.0.5", "10.0.0.6", "10.0.0.7",
                   "10.0.0.8", "10.0.0.9", "10.0.0.10"}},
        ParseCase{"count above the records", www(1, 3), 0, {"10.0.0.1", "-", "-"}},
        ParseCase{"no answers", www(0, 0), -1, {}},
        ParseCase{"cut in an address", www(2, 2).substr(0, 60), 0, {"10.0.0.1", "10.0.0.0"}},
        ParseCase{"cut before the data", www(1, 1).substr(0, 40), -1, {}},
        ParseCase{"header only", www(1, 1).substr(0, 8), -1, {}},
        ParseCase{"shorter than the counts", std::string("\xA9\xFA\x81\x80\0\1\0", 7), -1, {}},
        ParseCase{"cname only", kCname.substr(0, 56), -1, {}},
        ParseCase{"zero address", www(0, 2) + record(12, 1, std::string(4, '\0')), 0, {"-", "-"}}));

class DnsParserMX : public testing::TestWithParam<ParseCase> {};
TEST_P(DnsParserMX, SortsHostsByPreference)
{
    int rc = 0;
    std::string log = fake::captureStdout([&] { EXPECT_EQ(parse(DNS_ParserMX, GetParam().reply, rc), GetParam().records); });
    EXPECT_EQ(rc, GetParam().rc) << GetParam().what;
    EXPECT_EQ(fake::withoutLineNumbers(log),
              GetParam().what == std::string("too short") ? "dns_reply.cpp,N:DNS_ParserMX(): Packet Size error!\n" : "")
        << GetParam().what;
}

INSTANTIATE_TEST_SUITE_P(
    DnsReplies, DnsParserMX,
    testing::Values(
        ParseCase{"three", mx({20, 10, 30}), 0, {"10@10.0.1.10", "20@10.0.1.20", "30@10.0.1.30"}},
        ParseCase{"twelve", mx({120, 110, 100, 90, 80, 70, 60, 50, 40, 30, 20, 10}), 0,
                  {"10@10.0.1.10", "20@10.0.1.20", "30@10.0.1.30", "40@10.0.1.40", "50@10.0.1.50",
                   "60@10.0.1.60", "70@10.0.1.70", "80@10.0.1.80", "90@10.0.1.90", "100@10.0.1.100"}},
        ParseCase{"authority as large", mx({20, 10}, true, 2), 0, {"20@10.0.1.20"}},
        ParseCase{"no additional", mx({10}, false), -1, {}},
        ParseCase{"too short", reply("d.t", 15, 1, 0, 2).substr(0, 32), -1, {}},
        ParseCase{"pointer to offset 0", reply("d.t", 15, 1, 0, 1) + record(0, 1, ip4("10.0.0.1")), 0,
                  {"0@10.0.0.1"}}));

TEST(DnsParsers, MxOffsetIsTheMailHostsName)
{
    MxReply r{reply("dvr.test", 15, 1, 0, 1)};
    const int name = r.host(0x0105, "mail");
    r.glue(name, "10.0.0.25");
    DnsRecord records[DNS_MAX_RECORDS] = {};
    ASSERT_EQ(DNS_ParserMX(reinterpret_cast<const uint8_t *>(r.bytes.data()), static_cast<int>(r.bytes.size()), records), 0);
    EXPECT_EQ(records[0].offset, name);
    EXPECT_EQ(records[0].preference, 5); // the low byte only
}

// Whatever the counts and offsets say, neither parser leaves the reply or the
// caller's 10 entries (the reply is a heap block of its exact length).
TEST(DnsParsers, HostileRepliesStayInBounds)
{
    std::mt19937 random(7);
    const std::string seeds[] = {www(3, 3), kCname, mx({5, 7, 9}), mx({1}, true, 1)};
    fake::StdoutCapture quiet;
    for (int i = 0; i < 20000; ++i) {
        std::string reply = seeds[i % 4];
        for (int flips = random() % 6; flips > 0; --flips) {
            reply[random() % reply.size()] = static_cast<char>(random() % 4 == 0 ? 0xFF : random());
        }
        reply.resize(random() % (reply.size() + 20));
        int rc = 0;
        const auto records = parse(i % 2 ? DNS_ParserA : DNS_ParserMX, reply, rc);
        ASSERT_EQ(std::count(records.begin(), records.end(), "written past the array"), 0);
    }
}

} // namespace
