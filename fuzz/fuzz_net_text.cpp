// The network text parsers: lines of /proc/net/arp, /proc/net/route,
// /proc/net/dev, /etc/resolv.conf and /etc/network/interfaces as their
// readers hold them (fixed line buffers, any bytes), and address-and-mask
// texts. None may read or write outside its line or its outputs.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "COMMON.h"
#include "net_text.h"

namespace {

// The readers' line buffers: ARP, route and device tables 256, resolver 160,
// interfaces 128; a line is at most the buffer less its terminator.
template <size_t Size> void feedLine(const uint8_t *data, size_t size)
{
    char line[Size];
    const size_t n = std::min(size, Size - 1);
    memcpy(line, data, n);
    line[n] = '\0';

    char work[Size];
    memcpy(work, line, sizeof work);
    uint8_t mac[net::kArpMacMax];
    net::parseArpLine(work, "10.0.0.1", mac);
    memcpy(work, line, sizeof work);
    uint32_t gateway = 0;
    net::parseRouteLine(work, &gateway);
    memcpy(work, line, sizeof work);
    if (const char *match = net::findNameServer(work)) {
        net::nameServerToken(work + (match - work));
    }
    net::bringsUpOther(line);
    char name[COM_NET_DEV_NAME_SIZE];
    net::parseDeviceLine(line, name);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    feedLine<256>(data, size);
    feedLine<160>(data, size);
    feedLine<128>(data, size);
    std::vector<char> text(data, data + size);
    text.push_back('\0');
    uint32_t addr = 0, mask = 0;
    COM_ConvertNetworkAddr(text.data(), &addr, &mask);
    return 0;
}
