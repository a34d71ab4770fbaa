// Operations of the DNS case files (tests/cases/dns): query packets, the reply
// parsers on the replies of tests/data/dns, and lookups that end before an
// exchange.
#include <filesystem>

#include "case_runner.h"
#include "dns_text.h"

namespace {
using cases::Args;

// The length, and the data file that holds the same packet (or the packet).
std::string query(Args &a)
{
    std::string packet(DNS_PACKET_SIZE, '\xEE');
    const int rc = DNS_BuildQuery(a.s(0), reinterpret_cast<uint8_t *>(packet.data()),
                                  static_cast<uint8_t>(a.n(1)));
    packet.resize(static_cast<size_t>(std::max(rc, 0)));
    for (const auto &e : std::filesystem::directory_iterator(DVR_TEST_DATA_DIR "/dns")) {
        if (rc > 0 && fake::readFile(e.path()) == packet) {
            return std::to_string(rc) + " = " + e.path().filename().string();
        }
    }
    return std::to_string(rc) + (rc > 0 ? " " + cases::q(packet) : "");
}

// Parse file [length]: the reply, cut or padded with zeros to the length, in a
// block of exactly that size; the result, then what the parser wrote in 10 + 2
// guard entries (a mail host with its name's offset behind "+").
cases::Op parse(int (*parser)(const uint8_t *, int, DnsRecord *))
{
    return [parser](Args &a) {
        std::string text = dnsData(a.str(0));
        text.resize(a.size() > 1 ? static_cast<size_t>(a.n(1)) : text.size());
        const std::vector<uint8_t> reply(text.begin(), text.end());
        DnsRecord records[DNS_MAX_RECORDS + 2];
        memset(records, 0xEE, sizeof records);
        std::string out =
            std::to_string(parser(reply.data(), static_cast<int>(reply.size()), records));
        for (int i = 0; i < DNS_MAX_RECORDS + 2; ++i) {
            const DnsRecord &r = records[i];
            if (r.valid != 0xEE || r.addr != 0xEEEEEEEE) {
                out += " " + (i < DNS_MAX_RECORDS ? describe(r) : "past the array");
                out += r.type == DNS_TYPE_MX ? "+" + std::to_string(r.offset) : "";
            }
        }
        return out;
    };
}

// The result and the valid entries; after a failure, the first entry's address.
cases::Op lookup(int (*fn)(const char *, DnsRecord *))
{
    return [fn](Args &a) {
        DnsRecord records[DNS_MAX_RECORDS] = {};
        errno = EDOM; // a message that prints a stale errno shows it
        const int rc = fn(a.s(0), records);
        std::string out = std::to_string(rc);
        for (const DnsRecord &r : records) {
            out += r.valid != 0 ? " " + describe(r) : "";
        }
        return out + (rc != 0 ? " first " + describe({1, 0, 0, DNS_TYPE_A, records[0].addr}) : "");
    };
}

const cases::Register ops({
    {"Query", query},
    {"ParseA", parse(DNS_ParserA)},
    {"ParseMX", parse(DNS_ParserMX)},
    {"GetA", lookup(DNS_GetA)},
    {"GetMX", lookup(DNS_GetMX)},
    {"NameServers",
     [](Args &) {
         char servers[DNS_MAX_SERVERS][DNS_SERVER_TEXT_SIZE];
         memset(servers, 0x55, sizeof servers);
         std::string out = std::to_string(DNS_GetNameServer(servers));
         for (int i = 0; i < std::stoi(out); ++i) {
             out += " " + std::string(servers[i]);
         }
         return out;
     }},
});

} // namespace
