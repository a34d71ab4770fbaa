// Line parsers of the network text files: token and column splits, hexadecimal
// hardware addresses and gateways.
#include "net_text.h"

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace net {
namespace {

constexpr const char *kArpDelims = " \t\r\n";
constexpr int kArpTokens = 6;
constexpr int kArpAddr = 0;
constexpr int kArpHwAddr = 3;
// Hardware-address bytes are two digits and a colon apart.
constexpr size_t kArpByteStep = 3;

constexpr int kRouteColumns = 11;
constexpr int kRouteDestination = 1;
constexpr int kRouteGateway = 2;
constexpr int kRouteMask = 7;
constexpr std::string_view kRouteAny = "00000000";
constexpr uint32_t kBadGateway = 0xFFFFFFFFu;

constexpr std::string_view kNameServer = "nameserver";
constexpr const char *kNameServerDelims = " \t\r\n";

// Cuts line in place on delims into at most count tokens; gives how many.
int splitTokens(char *line, const char *delims, char **tokens, int count)
{
    char *save = nullptr;
    int n = 0;
    for (char *t = strtok_r(line, delims, &save); t != nullptr && n < count;
         t = strtok_r(nullptr, delims, &save)) {
        tokens[n++] = t;
    }
    return n;
}

} // namespace

bool parseArpLine(char *line, const char *addr, uint8_t mac[kArpMacMax])
{
    char *tokens[kArpTokens] = {};
    if (splitTokens(line, kArpDelims, tokens, kArpTokens) <= kArpHwAddr ||
        strcmp(tokens[kArpAddr], addr) != 0) {
        return false;
    }
    memset(mac, 0, kArpMacMax);
    const char *hw = tokens[kArpHwAddr];
    const size_t length = strlen(hw);
    for (size_t pos = 0, i = 0; pos < length && i < kArpMacMax; pos += kArpByteStep, ++i) {
        mac[i] = static_cast<uint8_t>(strtol(hw + pos, nullptr, 16) & 0xFF);
    }
    return true;
}

RouteLine parseRouteLine(char *line, uint32_t *gateway)
{
    char *columns[kRouteColumns] = {};
    if (splitTokens(line, "\t", columns, kRouteColumns) <= kRouteMask ||
        columns[kRouteDestination] != kRouteAny || columns[kRouteMask] != kRouteAny) {
        return RouteLine::Other;
    }
    errno = 0;
    // The kernel writes the raw word as a host-order integer: read back the
    // same way, its bytes in memory order are the octets.
    const auto value = static_cast<uint32_t>(strtoul(columns[kRouteGateway], nullptr, 16));
    if (value == kBadGateway) {
        return RouteLine::BadGateway;
    }
    *gateway = value;
    return RouteLine::Default;
}

const char *findNameServer(const char *line)
{
    return strstr(line, kNameServer.data());
}

char *nameServerToken(char *match)
{
    char *save = nullptr;
    return strtok_r(match + kNameServer.size(), kNameServerDelims, &save);
}

bool bringsUpOther(const char *line)
{
    return strstr(line, "auto") != nullptr && strstr(line, "eth0") == nullptr;
}

bool parseDeviceLine(const char *line, char name[16])
{
    const char *colon = strchr(line, ':');
    if (colon == nullptr) {
        return false;
    }
    size_t n = 0;
    for (const char *p = line; p < colon && n < 15; ++p) {
        if (isalnum(static_cast<unsigned char>(*p))) {
            name[n++] = *p;
        }
    }
    name[n] = '\0';
    return true;
}

} // namespace net
