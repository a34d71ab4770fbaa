#include "DNS.h"
#include "com_log.h"
#include "fd_io.h"
#include "dns_name.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string_view>

// The result record is shared with callers by size: 8 bytes on every target.
static_assert(sizeof(DnsRecord) == 8);
static_assert(offsetof(DnsRecord, type) == 3);
static_assert(offsetof(DnsRecord, addr) == 4);

namespace {
constexpr char kResolvConf[] = "/etc/resolv.conf";
// resolv.conf is read in pieces of this size; a longer line arrives as several.
constexpr int kLineSize = 80;
constexpr std::string_view kNameserver = "nameserver";
constexpr std::string_view kSeparators = " \r\n";

using ViaServer = int (*)(const char *, const char *, DnsRecord *);

// The second token of a line split at blanks and line ends; empty if none.
std::string_view secondToken(std::string_view line)
{
    std::string_view token;
    for (int i = 0; i < 2; ++i) {
        const size_t begin = line.find_first_not_of(kSeparators);
        if (begin == std::string_view::npos) {
            return {};
        }
        line.remove_prefix(begin);
        token = line.substr(0, line.find_first_of(kSeparators));
        line.remove_prefix(token.size());
    }
    return token;
}

void reportInvalid(const char *func, bool withName, const char *pDomainName)
{
    if (withName) {
        COM_LOG(func, "invalid pDomainName [%s]\n",
                pDomainName != nullptr ? pDomainName : "(null)");
    } else {
        COM_LOG(func, "invalid pDomainName\n");
    }
}

// The steps DNS_GetA and DNS_GetMX share; via asks one server.
int lookup(const char *func, bool nameInMessage, const char *pDomainName, DnsRecord *pRecords,
           ViaServer via)
{
    char servers[DNS_MAX_SERVERS][DNS_SERVER_TEXT_SIZE];
    memset(servers, 0, sizeof servers);
    if (pRecords == nullptr) {
        return -1;
    }
    if (pDomainName == nullptr || strchr(pDomainName, '.') == nullptr) {
        reportInvalid(func, nameInMessage, pDomainName);
        return -1;
    }
    const char *at = strchr(pDomainName, '@');
    pRecords[0].addr = inet_addr(at != nullptr ? at + 1 : pDomainName);
    if (pRecords[0].addr != INADDR_NONE) {
        pRecords[0].valid = 1;
        pRecords[0].type = DNS_TYPE_A;
        return 0;
    }
    // Nothing behind the "@", or a name too long for a query: no server can
    // be asked about it.
    if (dnsQueryName(pDomainName).empty()) {
        reportInvalid(func, nameInMessage, pDomainName);
        return -1;
    }
    const int count = DNS_GetNameServer(servers);
    if (count < 1) {
        COM_LOG(func, "no nameserver found\n");
        return -1;
    }
    int result = -1;
    for (int i = 0; i < count; ++i) {
        result = via(servers[i], pDomainName, pRecords);
        if (result == 0) {
            return 0;
        }
    }
    return result;
}
} // namespace

int DNS_GetA(const char *pDomainName, DnsRecord *pRecords)
{
    return lookup(__func__, true, pDomainName, pRecords, DNS_GetAviaNameServer);
}

int DNS_GetMX(const char *pDomainName, DnsRecord *pRecords)
{
    return lookup(__func__, false, pDomainName, pRecords, DNS_GetMXviaNameServer);
}

int DNS_GetNameServer(char pServers[][DNS_SERVER_TEXT_SIZE])
{
    if (pServers == nullptr) {
        return 0;
    }
    const fdio::UniqueFile file = fdio::openFile(kResolvConf, "r");
    if (!file) {
        COM_LOG_FAILED_CALL(__func__, "fopen(%s) error : %s\n", kResolvConf);
        return 0;
    }
    int count = 0;
    char line[kLineSize];
    while (count < DNS_MAX_SERVERS) {
        memset(line, 0, sizeof line);
        if (fgets(line, sizeof line, file.get()) == nullptr) {
            break;
        }
        const std::string_view text(line);
        const std::string_view server = secondToken(text);
        if (text.substr(0, kNameserver.size()) != kNameserver || server.empty()) {
            continue;
        }
        const size_t kept = std::min<size_t>(server.size(), DNS_SERVER_TEXT_SIZE - 1);
        memcpy(pServers[count], server.data(), kept);
        pServers[count][kept] = '\0';
        ++count;
    }
    return count;
}
