/* Private to the library: the line parsers of the kernel's and the system's
 * network text (/proc/net/arp, /proc/net/route, /proc/net/dev and wireless,
 * /etc/resolv.conf, /etc/network/interfaces). Each takes one line as read
 * into its reader's buffer and never reads past its terminator. */
#ifndef DVR_NET_TEXT_H
#define DVR_NET_TEXT_H

#include <cstdint>

namespace net {

// Most hardware-address bytes an ARP line gives.
constexpr int kArpMacMax = 8;

// An ARP table line whose first token is addr and which has a fourth token
// (the hardware address): fills mac with its decoded bytes, the rest 0, and
// gives true. The line is cut into tokens in place.
bool parseArpLine(char *line, const char *addr, uint8_t mac[kArpMacMax]);

enum class RouteLine { Other, Default, BadGateway };
// A route table line, tab-separated: Default with the gateway's raw value when
// it is a default route (destination and mask "00000000"); BadGateway when
// the gateway column converts to 0xFFFFFFFF. The line is cut in place.
RouteLine parseRouteLine(char *line, uint32_t *gateway);

// A resolver line holding "nameserver" anywhere: the start of the match,
// otherwise null.
const char *findNameServer(const char *line);
// The first token of the text behind a name-server match, cut in place, or
// null when there is none.
char *nameServerToken(char *match);

// An /etc/network/interfaces line that brings up something other than eth0.
bool bringsUpOther(const char *line);

// A /proc/net/dev or wireless line naming an interface (it holds a ":"): its
// alphanumeric characters before the first ":" go to name (15 at most and a
// terminator).
bool parseDeviceLine(const char *line, char name[16]);

} // namespace net

#endif
