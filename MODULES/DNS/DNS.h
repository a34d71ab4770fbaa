/*
 * DNS: A and MX lookups over UDP against the name servers of
 * /etc/resolv.conf.
 *
 * Plain C interface over caller-owned records. A name argument is a host or
 * domain name, a dotted IPv4 address, or a mail address "user@host" of which
 * the part behind the first "@" counts. Results are 0 for success and
 * negative for failure; a caller only tells 0 from the rest.
 */
#ifndef DVR_DNS_H
#define DVR_DNS_H

#include <netinet/in.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
/* Everything declared here is the library's interface: it alone leaves the
 * shared library, whose objects are built with hidden visibility. */
#if defined(__GNUC__)
#pragma GCC visibility push(default)
#endif

#define DNS_MAX_RECORDS 10       /* entries of a caller's result array */
#define DNS_MAX_SERVERS 4        /* name servers taken from resolv.conf */
#define DNS_SERVER_TEXT_SIZE 16  /* one server's dotted address, 15 characters */
#define DNS_PACKET_SIZE 1024     /* query and reply buffers */
#define DNS_MAX_NAME_LENGTH 1006 /* longest name a query packet holds */
#define DNS_PORT 53

#define DNS_TYPE_A 1
#define DNS_TYPE_MX 15

/* One result entry. The caller passes a zeroed array of DNS_MAX_RECORDS and
 * takes the entries whose valid is 1. */
typedef struct DnsRecord {
    uint8_t valid;      /* 1 when the entry holds an address */
    uint8_t offset;     /* MX: offset of the mail host's name in the reply */
    uint8_t preference; /* MX: low byte of the preference */
    uint8_t type;       /* DNS_TYPE_A, or DNS_TYPE_MX for a mail host */
    uint32_t addr;      /* IPv4 address in network byte order */
} DnsRecord;

/* Lookups through the name servers of /etc/resolv.conf, in file order. A
 * dotted address is given back at once as a DNS_TYPE_A entry. */
int DNS_GetA(const char *pDomainName, DnsRecord *pRecords);
/* Mail hosts sorted by preference, or the domain's own addresses when no
 * server gives mail hosts with addresses. */
int DNS_GetMX(const char *pDomainName, DnsRecord *pRecords);

/* Fills the table with the "nameserver" addresses of /etc/resolv.conf, cut to
 * 15 characters; returns how many, 0 to DNS_MAX_SERVERS. */
int DNS_GetNameServer(char pServers[][DNS_SERVER_TEXT_SIZE]);

/* Writes the query for the name (behind any "@") into a buffer of
 * DNS_PACKET_SIZE bytes; returns the packet's length, or -1 for an empty name
 * or one longer than DNS_MAX_NAME_LENGTH, with nothing written. */
int DNS_BuildQuery(const char *pDomainName, uint8_t *pPacket, uint8_t qtype);

/* One lookup against one server, given as dotted text, on a socket of its own.
 * The MX lookup falls back to an A lookup on the same socket. */
int DNS_GetAviaNameServer(const char *pServer, const char *pDomainName, DnsRecord *pRecords);
int DNS_GetMXviaNameServer(const char *pServer, const char *pDomainName, DnsRecord *pRecords);

/* One exchange of up to three tries on the caller's UDP socket: 0 found, -1
 * nothing found, -2 the last try couldn't send. */
int DNS_SendAQuery(int fd, const struct sockaddr_in *pServerAddr, const char *pDomainName,
                   DnsRecord *pRecords);
int DNS_SendMXQuery(int fd, const struct sockaddr_in *pServerAddr, const char *pDomainName,
                    DnsRecord *pRecords);

/* Take the addresses out of a reply of length bytes into pRecords: 0, or -1
 * when the reply holds none. */
int DNS_ParserA(const uint8_t *pPacket, int length, DnsRecord *pRecords);
int DNS_ParserMX(const uint8_t *pPacket, int length, DnsRecord *pRecords);

#if defined(__GNUC__)
#pragma GCC visibility pop
#endif
#ifdef __cplusplus
}
#endif

#endif /* DVR_DNS_H */
