// Operations of the DNS case files (tests/cases/dns): query packets, the reply
// parsers on the replies of tests/data/dns, lookups, and exchanges on real UDP
// sockets with the fake clock.
#include <filesystem>
#include <set>

#include "case_runner.h"
#include "dns_text.h"
#include "fake_select.h"

namespace {
using cases::Args;

// "= file" for the data file that holds the same packet, or the packet.
std::string fileOf(const std::string &packet)
{
    for (const auto &e : std::filesystem::directory_iterator(DVR_TEST_DATA_DIR "/dns")) {
        if (fake::readFile(e.path()) == packet) {
            return "= " + e.path().filename().string();
        }
    }
    return cases::q(packet);
}

// The length, and the data file that holds the same packet.
std::string query(Args &a)
{
    std::string packet(DNS_PACKET_SIZE, '\xEE');
    const int rc = DNS_BuildQuery(a.s(0), reinterpret_cast<uint8_t *>(packet.data()),
                                  static_cast<uint8_t>(a.n(1)));
    packet.resize(static_cast<size_t>(std::max(rc, 0)));
    return std::to_string(rc) + (rc > 0 ? " " + fileOf(packet) : "");
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
        if (bind(fd, sa(addr), len) != 0 || getsockname(fd, sa(addr), &len) != 0) {
            addr.sin_port = 0;
        }
    }
    ~Socket() { COM_SafeClose(&fd); }
    // The datagrams that have come, as data files with repeats counted, and
    // how many sockets sent them.
    std::string heard()
    {
        std::string out = "heard", last;
        std::set<in_port_t> ports;
        char buf[2048];
        sockaddr_in from{};
        socklen_t len = sizeof from;
        int times = 0;
        for (ssize_t n; (n = recvfrom(fd, buf, sizeof buf, MSG_DONTWAIT, sa(from), &len)) >= 0;) {
            const std::string one = fileOf(std::string(buf, static_cast<size_t>(n)));
            if (one != last && times > 0) {
                out += " " + last + "*" + std::to_string(times);
                times = 0;
            }
            last = one;
            ++times;
            ports.insert(from.sin_port);
        }
        const std::string sockets = " from " + std::to_string(ports.size()) + " socket";
        return times == 0 ? "heard nothing"
                          : out + " " + last + "*" + std::to_string(times) + sockets;
    }

    int fd = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in addr;
};

std::unique_ptr<Socket> silent;

// The valid entries, in order or sorted.
std::string entries(const DnsRecord (&records)[DNS_MAX_RECORDS], bool sorted = false)
{
    std::vector<std::string> valid;
    for (const DnsRecord &r : records) {
        if (r.valid != 0) {
            valid.push_back(describe(r));
        }
    }
    if (sorted) {
        std::sort(valid.begin(), valid.end());
    }
    return valid.empty() ? "" : " " + cases::join(valid);
}

// Exchange A|MX answering|port0|badfd timeOuts reply...: the replies wait on
// the client's socket, the peer "port0" is sent to port 0, "badfd" has no
// socket. The result, entries and fake seconds, then what the server heard.
std::string exchange(Args &a)
{
    Socket server("127.0.0.1", 0), client("127.0.0.1", 0);
    for (size_t i = 3; i < a.size(); ++i) {
        const std::string reply = dnsData(a.str(i));
        sendto(server.fd, reply.data(), reply.size(), 0, sa(client.addr), sizeof client.addr);
    }
    sockaddr_in to = server.addr;
    to.sin_port = a.str(1) == "port0" ? 0 : to.sin_port;
    const int fd = a.str(1) == "badfd" ? -1 : client.fd;
    fake::clock::enable();
    fake::clock::timeOutWaits(static_cast<int>(a.n(2)));
    const int64_t start = fake::clock::nowNs();
    DnsRecord records[DNS_MAX_RECORDS] = {};
    const int rc = a.str(0) == "MX" ? DNS_SendMXQuery(fd, &to, "postmaster@dvr.test", records)
                                    : DNS_SendAQuery(fd, &to, "www.dvr.test", records);
    fake::clock::timeOutWaits(0);
    char seconds[32];
    snprintf(seconds, sizeof seconds, " in %.1f s\n", (fake::clock::nowNs() - start) / 1e9);
    return std::to_string(rc) + entries(records) + seconds + server.heard();
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

// Name [timeOuts]: the result and the valid entries, sorted (a server may give
// them in any order); after a failure, the first entry's address. With
// timeOuts, that many waits time out on the fake clock.
cases::Op lookup(int (*fn)(const char *, DnsRecord *))
{
    return [fn](Args &a) {
        DnsRecord records[DNS_MAX_RECORDS] = {};
        errno = EDOM; // a message that prints a stale errno shows it
        if (a.size() > 1) {
            fake::clock::enable();
            fake::clock::timeOutWaits(static_cast<int>(a.n(1)));
        }
        const int rc = fn(a.s(0), records);
        fake::clock::timeOutWaits(0);
        return std::to_string(rc) + entries(records, true) +
               (rc != 0 ? " first " + describe({1, 0, 0, DNS_TYPE_A, records[0].addr}) : "");
    };
}

const cases::Register ops({
    {"Query", query},
    {"ParseA", parse(DNS_ParserA)},
    {"ParseMX", parse(DNS_ParserMX)},
    {"GetA", lookup(DNS_GetA)},
    {"GetMX", lookup(DNS_GetMX)},
    // A lookup through the name server 127.0.0.1 alone.
    {"GetAvia127", lookup(+[](const char *name, DnsRecord *r) {
         return DNS_GetAviaNameServer("127.0.0.1", name, r);
     })},
    // Each builder and reader with a null packet or record array.
    {"NullArgs",
     [](Args &) {
         uint8_t packet[DNS_PACKET_SIZE] = {};
         DnsRecord records[DNS_MAX_RECORDS];
         return cases::nums({DNS_BuildQuery(nullptr, packet, 1), DNS_BuildQuery("a.b", nullptr, 1),
                             DNS_ParserA(nullptr, 12, records), DNS_ParserA(packet, 12, nullptr),
                             DNS_ParserMX(nullptr, 12, records),
                             DNS_ParserMX(packet, 12, nullptr)});
     }},
    {"Exchange", exchange},
    // A server on 127.0.0.1 that never answers, until what it heard is read.
    {"Silent",
     [](Args &a) {
         silent = std::make_unique<Socket>("127.0.0.1", a.n(0));
         return std::string(silent->addr.sin_port != 0 ? "" : "not bound");
     }},
    {"Heard",
     [](Args &) {
         const std::string heard = silent->heard();
         silent.reset();
         return heard;
     }},
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
