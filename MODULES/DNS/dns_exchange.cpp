#include "DNS.h"
#include "com_log.h"
#include "fd_io.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <sys/select.h>
#include <sys/socket.h>

namespace {
constexpr int kTries = 3;
constexpr time_t kWaitSeconds = 20;
// Our transaction id, then the flags of a response with the name error code.
constexpr uint8_t kNameError[] = {0xA9, 0xFA, 0x81, 0x83};
constexpr int kAnswerCountLow = 7;

enum class Wait { Readable, Writable };

// select() on the one socket; the kernel leaves in tv what is left of it.
int waitFor(int fd, Wait what, timeval *tv)
{
    if (fd < 0 || fd >= FD_SETSIZE) {
        errno = fd < 0 ? EBADF : EINVAL;
        return -1;
    }
    fd_set set;
    FD_ZERO(&set);
    FD_SET(fd, &set);
    return what == Wait::Readable ? select(fd + 1, &set, nullptr, nullptr, tv)
                                  : select(fd + 1, nullptr, &set, nullptr, tv);
}

// The packet of one exchange, built once and sent in every try; length is
// -1 when the name can't be asked for.
struct Query {
    uint8_t bytes[DNS_PACKET_SIZE] = {};
    int length;
    Query(const char *pDomainName, uint8_t qtype)
        : length(DNS_BuildQuery(pDomainName, bytes, qtype))
    {
    }
};

// The sending half of a try: zeroes the reply buffer, starts the time value,
// waits until the socket takes the query and sends it, reporting a failure
// in the words of the A or the MX exchange. Returns -1 when the query went
// out, -2 when it didn't; tv keeps what the wait left of it.
int sendTry(const char *func, uint8_t qtype, int fd, const Query &query, const sockaddr_in *to,
            uint8_t *reply, timeval *tv)
{
    memset(reply, 0, DNS_PACKET_SIZE);
    *tv = {kWaitSeconds, 0};
    if (waitFor(fd, Wait::Writable, tv) < 1) {
        if (qtype == DNS_TYPE_A) {
            COM_LOG_FAILED_CALL(func, "select(writeset:%d) timeout! : %s\n", fd);
        } else {
            COM_LOG(func, "select(&writeset) timeout!\n");
        }
        return -2;
    }
    const ssize_t sent = sendto(fd, query.bytes, static_cast<size_t>(query.length), 0,
                                reinterpret_cast<const sockaddr *>(to), sizeof *to);
    if (sent != query.length) {
        if (qtype == DNS_TYPE_A) {
            COM_LOG_FAILED_CALL(func, "sendto() error : %d/%d - %s\n", static_cast<int>(sent),
                                query.length);
        } else {
            COM_LOG_FAILED_CALL(func, "sendto() error : %s\n");
        }
        return -2;
    }
    return -1;
}

// Reads one datagram into the zeroed reply buffer, leaving its last byte
// alone; a failed read counts as an empty reply.
int receive(int fd, uint8_t *reply)
{
    const ssize_t got = recvfrom(fd, reply, DNS_PACKET_SIZE - 1, 0, nullptr, nullptr);
    return got > 0 ? static_cast<int>(got) : 0;
}

// Asks one server: the A exchange, or the MX exchange with the A exchange as
// fallback on the same socket.
int viaServer(const char *func, const char *pServer, const char *pDomainName, DnsRecord *pRecords,
              bool mx)
{
    sockaddr_in server;
    memset(&server, 0, sizeof server);
    server.sin_family = AF_INET;
    server.sin_port = htons(DNS_PORT);
    server.sin_addr.s_addr = pServer != nullptr ? inet_addr(pServer) : INADDR_NONE;
    if (server.sin_addr.s_addr == INADDR_NONE) {
        COM_LOG_FAILED_CALL(func, "inet_addr(%s) error : %s\n",
                            pServer != nullptr ? pServer : "(null)");
        return -1;
    }
    // The socket of one lookup; closed however the lookup ends.
    const fdio::UniqueFd sock = fdio::openSocket(AF_INET, SOCK_DGRAM, 0);
    if (!sock.valid()) {
        COM_LOG_FAILED_CALL(func, "socket() error : %s\n");
        return -1;
    }
    sockaddr_in local;
    memset(&local, 0, sizeof local);
    local.sin_family = AF_INET;
    local.sin_addr.s_addr = htonl(INADDR_ANY);
    if (bind(sock.get(), reinterpret_cast<const sockaddr *>(&local), sizeof local) != 0) {
        COM_LOG_FAILED_CALL(func, "bind() error : %s\n");
        return -1;
    }
    if (mx) {
        if (DNS_SendMXQuery(sock.get(), &server, pDomainName, pRecords) == 0) {
            return 0;
        }
        COM_LOG(func, "MX record not found! Try A record.\n");
    }
    const int result = DNS_SendAQuery(sock.get(), &server, pDomainName, pRecords);
    if (result != 0) {
        COM_LOG(func, "A record not found!\n");
    }
    return result;
}
} // namespace

int DNS_GetAviaNameServer(const char *pServer, const char *pDomainName, DnsRecord *pRecords)
{
    return viaServer(__func__, pServer, pDomainName, pRecords, false);
}

int DNS_GetMXviaNameServer(const char *pServer, const char *pDomainName, DnsRecord *pRecords)
{
    return viaServer(__func__, pServer, pDomainName, pRecords, true);
}

int DNS_SendAQuery(int fd, const struct sockaddr_in *pServerAddr, const char *pDomainName,
                   DnsRecord *pRecords)
{
    const Query query(pDomainName, DNS_TYPE_A);
    if (query.length < 0 || pServerAddr == nullptr || pRecords == nullptr) {
        return -1;
    }
    uint8_t reply[DNS_PACKET_SIZE];
    int result = -1;
    for (int t = 0; t < kTries; ++t) {
        // One time value for both waits: the wait for the reply gets what the
        // wait for the socket left of it.
        timeval tv;
        result = sendTry(__func__, DNS_TYPE_A, fd, query, pServerAddr, reply, &tv);
        if (result == -2) {
            continue;
        }
        const int ready = waitFor(fd, Wait::Readable, &tv);
        if (ready == 0) {
            COM_LOG(__func__, "[%d] select() timeout\n", t);
        } else if (ready < 0) {
            COM_LOG_FAILED_CALL(__func__, "[%d] select() error : %s\n", t);
        } else {
            const int got = receive(fd, reply);
            if (memcmp(reply, kNameError, sizeof kNameError) == 0) {
                return -1; // the name doesn't exist: asking again won't help
            }
            if (DNS_ParserA(reply, got, pRecords) == 0) {
                return 0;
            }
        }
    }
    return result;
}

int DNS_SendMXQuery(int fd, const struct sockaddr_in *pServerAddr, const char *pDomainName,
                    DnsRecord *pRecords)
{
    const Query query(pDomainName, DNS_TYPE_MX);
    if (query.length < 0 || pServerAddr == nullptr || pRecords == nullptr) {
        return -1;
    }
    uint8_t reply[DNS_PACKET_SIZE];
    int result = -1;
    for (int t = 0; t < kTries; ++t) {
        timeval tv;
        result = sendTry(__func__, DNS_TYPE_MX, fd, query, pServerAddr, reply, &tv);
        if (result == -2) {
            continue;
        }
        tv = {kWaitSeconds, 0}; // a full wait for the reply
        if (waitFor(fd, Wait::Readable, &tv) <= 0) {
            COM_LOG(__func__, "select(&readset) timeout!\n");
            continue;
        }
        const int got = receive(fd, reply);
        if (reply[kAnswerCountLow] != 0) {
            // An answer is final, whatever the parser makes of it.
            return DNS_ParserMX(reply, got, pRecords);
        }
    }
    return result;
}
