// A name server for the DNS tests: crafted replies from a real UDP socket,
// and the pieces to craft them from.
#ifndef DVR_DNS_RESPONDER_H
#define DVR_DNS_RESPONDER_H

#include <netinet/in.h>
#include <pthread.h>
#include <string>
#include <vector>

#include "DNS.h"

namespace fake::dns {

// Message pieces, laid out as a name server sends them.
std::string u16(int value);
std::string ip4(const char *dotted);
std::string labels(const std::string &name);
// Our transaction id, the flags, one question for name, and the counts.
std::string reply(const std::string &name, int qtype, int answers, int authority, int additional,
                  int flags = 0x8180);
// A resource record whose owner name is a pointer to offset.
std::string record(int owner, int type, const std::string &data);

// An MX reply under construction: mail hosts in the answers, their addresses
// in the additional section.
struct MxReply {
    std::string bytes;
    // Adds an MX answer for the host label.<the question's name> and returns
    // the offset of the mail host's name.
    int host(int preference, const std::string &label);
    void glue(int nameOffset, const char *dotted);
};

// An A reply with count addresses 10.0.0.1, 10.0.0.2 ... and this answer count.
std::string addresses(const std::string &name, int count, int answers);
// An MX reply with a mail host of each preference, each with its address
// 10.0.1.<preference> in the additional section unless glue is false; the
// authority count is set but no such record sent.
std::string mailHosts(const std::string &domain, std::vector<int> preferences, bool glue = true,
                      int authority = 0);

// "-" for an empty entry, "10.0.0.1" for an A entry, "20@10.0.1.20" for a
// mail host of preference 20, "?" for anything else.
std::string describe(const DnsRecord &r);

// Serves the datagrams sent to it on its own thread: the n-th query gets the
// n-th of the replies (the last one again when they run out), an empty reply
// gets none.
class Responder {
public:
    Responder(const char *ip, uint16_t port, std::vector<std::string> replies);
    ~Responder();
    Responder(const Responder &) = delete;
    Responder &operator=(const Responder &) = delete;

    // Serves what has arrived, then stops; queries and ports are complete.
    void stop();

    sockaddr_in addr{};
    std::vector<std::string> queries;
    std::vector<uint16_t> ports; // source port of each query

private:
    static void *serve(void *self);
    int fd_ = -1;
    bool running_ = false;
    pthread_t thread_{};
    std::vector<std::string> replies_;
};

} // namespace fake::dns

#endif
