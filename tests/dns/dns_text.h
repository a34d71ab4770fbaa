// Helpers of the DNS tests: result entries as text, and the recorded replies
// and queries of tests/data/dns.
#ifndef DVR_TEST_DNS_TEXT_H
#define DVR_TEST_DNS_TEXT_H

#include <arpa/inet.h>

#include <string>

#include "DNS.h"
#include "test_support.h"

// "-" an empty entry, "10.0.0.1" an address, "20@10.0.1.20" a mail host of
// preference 20, "?" anything else.
inline std::string describe(const DnsRecord &r)
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

inline std::string dnsData(const std::string &name)
{
    return fake::readFile(DVR_TEST_DATA_DIR "/dns/" + name);
}

#endif
