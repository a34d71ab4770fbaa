// COM_GetNetInfo: one query flag, dispatched by its family.
#include "com_log.h"
#include "net_flags.h"

#include <cstring>

namespace {

using Query = int (*)(int, const char *, void *);

constexpr Query queryOf(net::Family family)
{
    switch (family) {
    case net::Family::Mac:
        return COM_GetMAC;
    case net::Family::Arp:
        return COM_GetMACViaARP;
    case net::Family::Iface:
        return COM_SubGetNetInfo;
    case net::Family::Gateway:
        return COM_SubGetGateway;
    case net::Family::Dns:
        return COM_GetDNSServer;
    case net::Family::Mtu:
        return COM_GetMTU;
    }
    return nullptr;
}

constexpr char kUnknown[] = "unknown";

} // namespace

int COM_GetNetInfo(int flag, const char *dev, void *out)
{
    const char *name = COM_ChooseNetDevice(dev);
    if (flag >= 0 && flag < static_cast<int>(net::kFlags.size())) {
        return queryOf(net::kFlags[static_cast<size_t>(flag)].family)(flag, name, out);
    }
    if (out != nullptr) {
        memcpy(out, kUnknown, sizeof kUnknown);
    }
    COM_LOG(__func__, "flag(%d) not implemented yet.\n", flag);
    return -1;
}
