// Interface queries through the kernel's control requests on an AF_INET
// datagram socket: hardware address, addresses and MTU.
#include "fd_io.h"
#include "net_flags.h"

#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

// Issues one interface request for dev on a fresh socket and reports a
// failure as func's. Returns the control call's result, or -1 when no socket
// opens. An address request that meets an interface without an address yet
// (EADDRNOTAVAIL) fails silently: that is no news.
int askInterface(const char *func, unsigned long request, const char *dev, struct ifreq *req)
{
    fdio::UniqueFd sock = fdio::openSocket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (!sock.valid()) {
        COM_LOG_FAILED_CALL(func, "socket() error : %s\n");
        return -1;
    }
    memset(req, 0, sizeof *req);
    net::copyIfName(req->ifr_name, dev);
    const int result = ioctl(sock.get(), request, req);
    if (result == 0) {
        return 0;
    }
    if (request == SIOCGIFHWADDR || request == SIOCGIFMTU) {
        COM_LOG_FAILED_CALL(func, "ioctl() error : %s\n");
    } else if (errno != EADDRNOTAVAIL) {
        COM_LOG_FAILED_CALL(func, "ioctl(%d:%s) error : %s\n", static_cast<int>(request), dev);
    }
    return result;
}

} // namespace

int COM_GetMAC(int flag, const char *dev, void *out)
{
    const net::FlagInfo *info = net::flagOf(flag, net::Family::Mac);
    if (info == nullptr || dev == nullptr || out == nullptr) {
        return -1;
    }
    struct ifreq req;
    const int result = askInterface(__func__, SIOCGIFHWADDR, dev, &req);
    uint8_t bytes[net::kMacBytes] = {};
    if (result == 0) {
        memcpy(bytes, req.ifr_hwaddr.sa_data, sizeof bytes);
    }
    net::writeMac(*info, bytes, out);
    return result == 0 ? 0 : -1;
}

int COM_SubGetNetInfo(int flag, const char *dev, void *out)
{
    const net::FlagInfo *info = net::flagOf(flag, net::Family::Iface);
    if (info == nullptr || dev == nullptr || out == nullptr) {
        return -1;
    }
    struct ifreq req;
    if (askInterface(__func__, info->request, dev, &req) != 0) {
        net::writeAddressFallback(info->form, out);
        return -1;
    }
    const auto *in = reinterpret_cast<const struct sockaddr_in *>(&req.ifr_addr);
    net::writeAddress(info->form, in->sin_addr.s_addr, out);
    return 0;
}

int COM_GetMTU(int flag, const char *dev, void *out)
{
    if (net::flagOf(flag, net::Family::Mtu) == nullptr || dev == nullptr || out == nullptr) {
        return -1;
    }
    struct ifreq req;
    const int result = askInterface(__func__, SIOCGIFMTU, dev, &req);
    if (result == 0) {
        const int32_t mtu = req.ifr_mtu;
        memcpy(out, &mtu, sizeof mtu);
    }
    return result;
}
