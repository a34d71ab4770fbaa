#include "dns_responder.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

namespace fake::dns {

std::string u16(int value)
{
    return {static_cast<char>(value >> 8 & 0xFF), static_cast<char>(value & 0xFF)};
}

std::string ip4(const char *dotted)
{
    in_addr a{};
    inet_aton(dotted, &a);
    return std::string(reinterpret_cast<const char *>(&a), 4);
}

std::string labels(const std::string &name)
{
    std::string out;
    for (size_t start = 0; start <= name.size();) {
        const size_t end = std::min(name.find('.', start), name.size());
        out += static_cast<char>(end - start) + name.substr(start, end - start);
        start = end + 1;
    }
    return out + '\0';
}

std::string reply(const std::string &name, int qtype, int answers, int authority, int additional,
                  int flags)
{
    return "\xA9\xFA" + u16(flags) + u16(1) + u16(answers) + u16(authority) + u16(additional) +
           labels(name) + u16(qtype) + u16(1);
}

std::string record(int owner, int type, const std::string &data)
{
    return u16(0xC000 | owner) + u16(type) + u16(1) + u16(0) + u16(3600) +
           u16(static_cast<int>(data.size())) + data;
}

int MxReply::host(int preference, const std::string &label)
{
    const int at = static_cast<int>(bytes.size()) + 14; // record head and preference
    bytes += record(12, 15, u16(preference) + static_cast<char>(label.size()) + label + "\xC0\x0C");
    return at;
}

void MxReply::glue(int nameOffset, const char *dotted)
{
    bytes += record(nameOffset, 1, ip4(dotted));
}

std::string addresses(const std::string &name, int count, int answers)
{
    std::string r = reply(name, 1, answers, 0, 0);
    for (int i = 1; i <= count; ++i) {
        r += record(12, 1, ip4(("10.0.0." + std::to_string(i)).c_str()));
    }
    return r;
}

std::string mailHosts(const std::string &domain, std::vector<int> preferences, bool glue, int authority)
{
    const int n = static_cast<int>(preferences.size());
    MxReply r{reply(domain, 15, n, authority, glue ? n : 0)};
    std::vector<int> names;
    for (int i = 0; i < n; ++i) {
        names.push_back(r.host(preferences[i], std::string(1, static_cast<char>('a' + i))));
    }
    for (int i = 0; glue && i < n; ++i) {
        r.glue(names[i], ("10.0.1." + std::to_string(preferences[i])).c_str());
    }
    return r.bytes;
}

std::string describe(const DnsRecord &r)
{
    char addr[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &r.addr, addr, sizeof addr);
    if (r.valid == 0 && r.type == 0 && r.addr == 0 && r.preference == 0 && r.offset == 0) {
        return "-";
    }
    if (r.valid == 1 && r.type == DNS_TYPE_A && r.preference == 0 && r.offset == 0) {
        return addr;
    }
    if (r.valid == 1 && r.type == DNS_TYPE_MX) {
        return std::to_string(r.preference) + "@" + addr;
    }
    return "?";
}

Responder::Responder(const char *ip, uint16_t port, std::vector<std::string> replies)
    : replies_(std::move(replies))
{
    addr.sin_family = AF_INET;
    addr.sin_port = htons(port);
    inet_aton(ip, &addr.sin_addr);
    socklen_t len = sizeof addr;
    fd_ = socket(AF_INET, SOCK_DGRAM, 0);
    if (fd_ >= 0 && bind(fd_, reinterpret_cast<sockaddr *>(&addr), sizeof addr) == 0 &&
        getsockname(fd_, reinterpret_cast<sockaddr *>(&addr), &len) == 0) {
        running_ = pthread_create(&thread_, nullptr, serve, this) == 0;
    }
}

Responder::~Responder()
{
    stop();
    if (fd_ >= 0) {
        close(fd_);
    }
}

void Responder::stop()
{
    if (!running_) {
        return;
    }
    // An empty datagram, queued behind every query, ends the thread.
    const int s = socket(AF_INET, SOCK_DGRAM, 0);
    sendto(s, "", 0, 0, reinterpret_cast<const sockaddr *>(&addr), sizeof addr);
    close(s);
    pthread_join(thread_, nullptr);
    running_ = false;
}

void *Responder::serve(void *self)
{
    auto *r = static_cast<Responder *>(self);
    char buf[2048];
    for (;;) {
        sockaddr_in from{};
        socklen_t len = sizeof from;
        const ssize_t n = recvfrom(r->fd_, buf, sizeof buf, 0, reinterpret_cast<sockaddr *>(&from), &len);
        if (n <= 0) {
            return nullptr;
        }
        const std::string &answer = r->replies_.empty() ? std::string()
                                    : r->replies_[std::min(r->queries.size(), r->replies_.size() - 1)];
        r->queries.emplace_back(buf, static_cast<size_t>(n));
        r->ports.push_back(ntohs(from.sin_port));
        if (!answer.empty()) {
            sendto(r->fd_, answer.data(), answer.size(), 0, reinterpret_cast<sockaddr *>(&from), len);
        }
    }
}

} // namespace fake::dns
