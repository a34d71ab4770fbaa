// Readers of the kernel's network tables: a neighbour's hardware address from
// /proc/net/arp and the default gateway from /proc/net/route.
#include "fd_io.h"
#include "net_flags.h"
#include "net_text.h"

namespace {

constexpr const char *kArpPath = "/proc/net/arp";
constexpr const char *kRoutePath = "/proc/net/route";
constexpr int kArpLineSize = 256;
constexpr int kRouteLineSize = 256;

// Finds the ARP entry of addr; false when there is none or the table can't
// be read.
bool findNeighbour(const char *addr, uint8_t mac[net::kArpMacMax])
{
    fdio::UniqueFile table = fdio::openFile(kArpPath, "re");
    if (!table) {
        COM_LOG_FAILED_CALL(nullptr, "fopen(%s) fail : %s\n", kArpPath);
        return false;
    }
    char line[kArpLineSize];
    while (fgets(line, sizeof line, table.get()) != nullptr) {
        if (net::parseArpLine(line, addr, mac)) {
            return true;
        }
    }
    return false;
}

// The gateway of the first default route, whatever its interface.
bool findGateway(uint32_t *gateway)
{
    fdio::UniqueFile table = fdio::openFile(kRoutePath, "re");
    if (!table) {
        COM_LOG_FAILED_CALL("COM_SubGetGateway", "fopen(%s) : %s\n", kRoutePath);
        return false;
    }
    char line[kRouteLineSize];
    while (fgets(line, sizeof line, table.get()) != nullptr) {
        switch (net::parseRouteLine(line, gateway)) {
        case net::RouteLine::Default:
            return true;
        case net::RouteLine::BadGateway:
            COM_LOG_FAILED_CALL("COM_SubGetGateway", "strtoul() error : %s\n");
            break;
        case net::RouteLine::Other:
            break;
        }
    }
    return false;
}

} // namespace

int COM_GetMACViaARP(int flag, const char *dev, void *out)
{
    const net::FlagInfo *info = net::flagOf(flag, net::Family::Arp);
    if (info == nullptr || dev == nullptr || out == nullptr) {
        return -1;
    }
    uint8_t mac[net::kArpMacMax] = {};
    const bool found = findNeighbour(dev, mac);
    if (!found) {
        memset(mac, 0, sizeof mac);
    }
    net::writeMac(*info, mac, out);
    return found ? 0 : -1;
}

int COM_SubGetGateway(int flag, const char *dev, void *out)
{
    const net::FlagInfo *info = net::flagOf(flag, net::Family::Gateway);
    if (info == nullptr || out == nullptr) {
        return -1;
    }
    uint32_t gateway = 0;
    if (!findGateway(&gateway)) {
        net::writeAddressFallback(info->form, out);
        return -1;
    }
    net::writeAddress(info->form, gateway, out);
    return 0;
}
