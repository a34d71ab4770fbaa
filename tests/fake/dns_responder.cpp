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
