// Link-level UDP broadcasts: IP and UDP headers built by hand behind the
// Ethernet header the kernel adds on an AF_PACKET datagram socket.
#include "fd_io.h"
#include "net_flags.h"

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace {

constexpr uint32_t kPayloadMax = COM_UDP_PAYLOAD_MAX;
constexpr size_t kIpHeaderSize = 20;
constexpr size_t kHeadersSize = 28;
constexpr uint16_t kEtherTypeIp = 0x0800;
constexpr uint8_t kVersionAndLength = 0x45;
constexpr uint8_t kTimeToLive = 64;
constexpr uint8_t kProtocolUdp = 17;

// Header offsets.
constexpr size_t kTotalLength = 2;
constexpr size_t kTtl = 8;
constexpr size_t kProtocol = 9;
constexpr size_t kHeaderChecksum = 10;
constexpr size_t kSource = 12;
constexpr size_t kDestination = 16;
constexpr size_t kSourcePort = 20;
constexpr size_t kDestinationPort = 22;
constexpr size_t kUdpLength = 24;
constexpr size_t kUdpChecksum = 26;

using Datagram = uint8_t[kHeadersSize + kPayloadMax];

void put16(uint8_t *at, uint32_t value)
{
    at[0] = static_cast<uint8_t>(value >> 8);
    at[1] = static_cast<uint8_t>(value);
}

void putChecksum(uint8_t *at, uint16_t sum)
{
    memcpy(at, &sum, sizeof sum);
}

// Builds the datagram from source to destination (raw addresses). The UDP
// checksum is taken while the IP header, with only the addresses, the
// protocol and the UDP length set, holds the pseudo-header's fields.
void buildDatagram(Datagram &buf, uint32_t source, uint32_t destination, uint16_t port,
                   const void *data, uint32_t size)
{
    memset(buf, 0, sizeof buf);
    buf[kProtocol] = kProtocolUdp;
    memcpy(buf + kSource, &source, sizeof source);
    memcpy(buf + kDestination, &destination, sizeof destination);
    put16(buf + kSourcePort, port);
    put16(buf + kDestinationPort, port);
    put16(buf + kUdpLength, size + kHeadersSize - kIpHeaderSize);
    if (size > 0) {
        memcpy(buf + kHeadersSize, data, size);
    }
    put16(buf + kTotalLength, size + kHeadersSize - kIpHeaderSize);
    putChecksum(buf + kUdpChecksum, COM_IpChecksum(buf, static_cast<int>(size + kHeadersSize)));
    put16(buf + kTotalLength, size + kHeadersSize);
    buf[0] = kVersionAndLength;
    buf[kTtl] = kTimeToLive;
    putChecksum(buf + kHeaderChecksum, COM_IpChecksum(buf, kIpHeaderSize));
}

// The link-level broadcast address on dev (index 0 when dev is null or
// unknown).
struct sockaddr_ll broadcastAddress(int sock, const char *dev)
{
    struct sockaddr_ll to {};
    to.sll_family = AF_PACKET;
    to.sll_protocol = htons(kEtherTypeIp);
    to.sll_halen = net::kMacBytes;
    memset(to.sll_addr, 0xFF, net::kMacBytes);
    if (dev != nullptr) {
        struct ifreq req {};
        net::copyIfName(req.ifr_name, dev);
        if (ioctl(sock, SIOCGIFINDEX, &req) == 0) {
            to.sll_ifindex = req.ifr_ifindex;
        }
    }
    return to;
}

} // namespace

uint16_t COM_IpChecksum(const void *data, int len)
{
    const auto *bytes = static_cast<const uint8_t *>(data);
    uint32_t sum = 0;
    int i = 0;
    for (; i + 1 < len; i += 2) {
        uint16_t word;
        memcpy(&word, bytes + i, sizeof word);
        sum += word;
    }
    if (i < len) {
        // An odd last byte is the first byte of a word whose second is 0.
        const uint8_t last[2] = {bytes[i], 0};
        uint16_t word;
        memcpy(&word, last, sizeof word);
        sum += word;
    }
    while ((sum >> 16) != 0) {
        sum = (sum & 0xFFFFu) + (sum >> 16);
    }
    return static_cast<uint16_t>(~sum);
}

int COM_SendUDPBroadcast(const char *dev, uint16_t port, const void *data, uint32_t data_sz)
{
    if (data_sz > kPayloadMax) {
        COM_LOG(__func__, "data_sz[%d] exceed limit[%d]!\n", static_cast<int>(data_sz),
                static_cast<int>(kPayloadMax));
        return -1;
    }
    fdio::UniqueFd sock =
        fdio::openSocket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC, htons(kEtherTypeIp));
    if (!sock.valid()) {
        COM_LOG_FAILED_CALL(__func__, "socket(SOCK_DGRAM) failed : %s\n");
        return -1;
    }
    const int on = 1;
    if (setsockopt(sock.get(), SOL_SOCKET, SO_BROADCAST, &on, sizeof on) != 0) {
        COM_LOG_FAILED_CALL(__func__, "setsockopt(SOL_SOCKET(%d), SO_BROADCAST(%d)) error : %s\n",
                            SOL_SOCKET, SO_BROADCAST);
        return -1;
    }
    static_assert(SOL_SOCKET == 1 && SO_BROADCAST == 6);
    Datagram buf;
    buildDatagram(buf, htonl(INADDR_ANY), htonl(INADDR_BROADCAST), port, data, data_sz);
    const struct sockaddr_ll to = broadcastAddress(sock.get(), dev);
    const auto *toAddr = reinterpret_cast<const struct sockaddr *>(&to);
    if (bind(sock.get(), toAddr, sizeof to) != 0) {
        COM_LOG_FAILED_CALL(nullptr, "bind([%d][%s]) failed! : %s\n", to.sll_ifindex,
                            dev != nullptr ? dev : "(null)");
    }
    const size_t length = data_sz + kHeadersSize;
    if (sendto(sock.get(), buf, length, MSG_NOSIGNAL, toAddr, sizeof to) < 0) {
        if (dev != nullptr) {
            COM_LOG_FAILED_CALL(nullptr, "sendto(%s:%d) error : %s\n", dev, port);
        }
        return -1;
    }
    if (dev == nullptr) {
        return 0;
    }
    uint32_t source = 0, destination = 0;
    memset(buf, 0, sizeof buf);
    if (COM_GetNetInfo(NETINFO_BROADCAST_RAW, dev, &destination) != 0 ||
        COM_GetNetInfo(NETINFO_IP_RAW, dev, &source) != 0) {
        return 0;
    }
    buildDatagram(buf, source, destination, port, data, data_sz);
    if (sendto(sock.get(), buf, length, 0, toAddr, sizeof to) < 0) {
        COM_LOG_FAILED_CALL(nullptr, "sendto(%s) error : %s\n", dev);
    }
    return 0;
}
