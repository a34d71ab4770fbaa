// Interface lists, unit identity and link-level broadcasts against the real
// kernel: NetPeer runs inside tests/peers/test_net.sh, whose namespaces hold
// the interfaces, routes, neighbours and /etc files named here.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <fstream>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "COMMON.h"
#include "test_support.h"

namespace {

constexpr uint16_t kPort = 0xABCD;

// Runs fn in a child whose real, effective and saved user is nobody; gives
// fn's result as the child's exit code.
int asNobody(const std::function<int()> &fn)
{
    const pid_t pid = fork();
    if (pid == 0) {
        _exit(setresuid(65534, 65534, 65534) == 0 ? fn() : 99);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

class NetPeer : public testing::Test {
protected:
    void SetUp() override
    {
        if (getenv("DVR_NET_TABLE") == nullptr) {
            GTEST_SKIP() << "runs in tests/peers/test_net.sh";
        }
    }
};

TEST_F(NetPeer, InterfaceListsDropPointsAndDashes)
{
    COM_NET_DEV_NAME *names = nullptr;
    const int count = COM_GetNetDevices(&names);
    std::vector<std::string> got(names, names + std::max(count, 0));
    std::sort(got.begin(), got.end());
    EXPECT_EQ(got, (std::vector<std::string>{"bare0", "bare1", "eth0", "lo", "peer0", "pp0", "pp1",
                                             "wan5x", "wanpeer"}));
    EXPECT_EQ(fake::logOf([&] { EXPECT_EQ(COM_GetNetDevices(&names), -1); }),
              "dev_list.cpp,N:COM_GetDeviceFromProc(): Warnning!! (*pBuf != NULL)\n");
    free(names);
    names = nullptr;
    // The kernel here has no wireless extensions: no table.
    EXPECT_EQ(fake::logOf([&] { EXPECT_EQ(COM_GetWirelessDevices(&names), -1); }),
              "dev_list.cpp,N:COM_GetDeviceFromProc(): fopen(/proc/net/wireless) error : No such "
              "file or directory\n");
    std::ofstream("/etc/net_dev_empty") << "Inter-|   Receive\n face |bytes\n";
    EXPECT_EQ(COM_GetDeviceFromProc(&names, "/etc/net_dev_empty"), 0);
    EXPECT_EQ(names, nullptr);
}

bool isUp(const char *dev)
{
    const int sock = socket(AF_INET, SOCK_DGRAM, 0);
    struct ifreq req {};
    snprintf(req.ifr_name, sizeof req.ifr_name, "%s", dev);
    const int result = ioctl(sock, SIOCGIFFLAGS, &req);
    close(sock);
    return result == 0 && (req.ifr_flags & IFF_UP) != 0;
}

TEST_F(NetPeer, UpAndDownThroughIfconfig)
{
    EXPECT_EQ(COM_NetDeviceDown("pp1"), 0);
    EXPECT_FALSE(isUp("pp1"));
    EXPECT_EQ(asNobody([] { return COM_NetDeviceUp("pp1") == -1 ? 0 : 1; }), 0);
    EXPECT_FALSE(isUp("pp1"));
    EXPECT_EQ(COM_NetDeviceUp("pp1"), 0);
    EXPECT_TRUE(isUp("pp1"));
    EXPECT_NE(COM_NetDeviceUp("nosuch0"), 0);
}

TEST_F(NetPeer, UnitRecordFromFilesAndQueries)
{
    ASSERT_EQ(COM_SetUnitName("dvr-unit"), 0);
    EXPECT_EQ(fake::readFile("/etc/hostname"), "dvr-unit");
    char cut[3];
    EXPECT_EQ(COM_GetUnitName(cut, sizeof cut), -1); // too small for the name: "unknown" cut
    EXPECT_STREQ(cut, "un");
    std::ofstream("/etc/Model") << "DVR-16\nsecond line\n";
    std::ofstream("/etc/Proj") << "harbour";
    std::ofstream("/etc/network/interfaces") << "auto eth0\n";
    COM_UNIT_INFO unit;
    memset(&unit, 0x5A, sizeof unit);
    // No /etc/Port (80, a failure) and no /etc/Note (not counted, and never a failure).
    char note[8];
    EXPECT_EQ(COM_GetUnitNote(note, sizeof note), 0);
    EXPECT_EQ(COM_GetUnitInfo(&unit, "auto"), -1);
    EXPECT_EQ(unit.reserved, 0x5A5A5A5Au);
    EXPECT_EQ(unit.mtu, 1600);
    EXPECT_EQ(fake::logOf([&] { COM_ShowAllUnitInfo(1, &unit); }),
              "unit_info.cpp,N:COM_ShowAllUnitInfo(): [1/1]\n"
              "unit_info.cpp,N: (model, proj, name) = (DVR-16, harbour, dvr-unit)\n"
              "unit_info.cpp,N: (ip, trigger_port, netmask) = (10.1.0.5, 80, 255.255.255.0)\n"
              "unit_info.cpp,N: (gateway, dns, mac) = (192.168.7.1, 10.0.0.53, "
              "02:AA:BB:CC:DD:01)\n"
              "unit_info.cpp,N: (dev, note) = (eth0, unknown)\n");

    snprintf(unit.model, sizeof unit.model, "DVR-32");
    snprintf(unit.note, sizeof unit.note, "rack 4");
    EXPECT_EQ(COM_SetUnitInfo(&unit), 0);
    EXPECT_EQ(COM_SetUnitPort(1234567890), 0);
    EXPECT_EQ(fake::readFile("/etc/Port"), "1234567");
    char port[8], model[4];
    EXPECT_EQ(COM_GetUnitPort(port, sizeof port) + COM_GetUnitModel(model, sizeof model), 0);
    EXPECT_EQ(std::string(port) + " " + model, "1234567 DVR");

    // Without /etc/Model and on an interface with no address: ip and netmask
    // fall back, and the model is unknown.
    unlink("/etc/Model");
    EXPECT_EQ(COM_GetUnitInfo(&unit, "bare0"), -3);
    EXPECT_EQ(std::string(unit.model) + " " + unit.ip + " " + unit.note + " " + unit.dev,
              "unknown 000.000.000.000 rack 4 bare0");

    COM_UNIT_INFO other = unit;
    snprintf(unit.ip, sizeof unit.ip, "10.1.0.5");
    snprintf(other.ip, sizeof other.ip, "10.1.0.9");
    EXPECT_LT(COM_CompareUnitIp(&unit, &other), 0);
    EXPECT_GT(COM_CompareUnitIp(&other, &unit), 0);
    EXPECT_EQ(COM_CompareUnitIp(&unit, &unit), 0);
    EXPECT_EQ(asNobody([] { return COM_SetUnitName("x") == -1 ? 0 : 1; }), 0);
}

using Frame = std::vector<uint8_t>;

// The IP frames that a capture socket on peer receives while send runs, up to
// the marker frame sent from sender behind them.
std::vector<Frame> captured(const char *peer, const char *sender, const std::function<void()> &send)
{
    const int in = socket(AF_PACKET, SOCK_RAW, htons(ETH_P_ALL));
    sockaddr_ll at{}, to{};
    at.sll_family = to.sll_family = AF_PACKET;
    at.sll_protocol = htons(ETH_P_ALL);
    at.sll_ifindex = static_cast<int>(if_nametoindex(peer));
    to.sll_ifindex = static_cast<int>(if_nametoindex(sender));
    to.sll_halen = 6;
    EXPECT_EQ(bind(in, reinterpret_cast<sockaddr *>(&at), sizeof at), 0);
    send();
    Frame marker = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0, 0, 0, 0x88, 0xB5}; // local type
    marker.resize(60);
    EXPECT_EQ(sendto(in, marker.data(), 60, 0, reinterpret_cast<sockaddr *>(&to), sizeof to), 60);
    std::vector<Frame> got;
    bool marked = false;
    // The marker arrives behind everything sent before it; the time limit
    // only keeps a lost marker from hanging the test.
    for (pollfd p = {in, POLLIN, 0}; !marked && poll(&p, 1, 5000) == 1;) {
        Frame f(2048);
        f.resize(static_cast<size_t>(std::max<ssize_t>(recv(in, f.data(), f.size(), 0), 0)));
        marked = f.size() >= 14 && std::equal(f.begin() + 12, f.begin() + 14, &marker[12]);
        if (f.size() >= 14 && f[12] == 0x08 && f[13] == 0x00) {
            got.push_back(f);
        }
    }
    EXPECT_TRUE(marked) << "no marker frame";
    close(in);
    return got;
}

// The Internet checksum computed on big-endian 16-bit numbers.
uint16_t sum16(const std::vector<uint8_t> &bytes)
{
    uint32_t sum = 0;
    for (size_t i = 0; i < bytes.size(); i += 2) {
        sum += (bytes[i] << 8) | (i + 1 < bytes.size() ? bytes[i + 1] : 0);
    }
    while (sum >> 16) {
        sum = (sum & 0xFFFF) + (sum >> 16);
    }
    return static_cast<uint16_t>(~sum);
}

// Checks one captured frame: Ethernet broadcast from mac, then every field;
// a header with a right checksum sums to 0.
void checkFrame(const std::vector<uint8_t> &f, const std::string &mac, const char *from,
                const char *to, const std::vector<uint8_t> &payload)
{
    const size_t n = payload.size();
    ASSERT_EQ(f.size(), 42 + n);
    in_addr a{}, b{};
    inet_aton(from, &a);
    inet_aton(to, &b);
    char fields[100], two[4];
    snprintf(fields, sizeof fields,
             "ffffffffffff%s0800 4500%04zx000000004011 %08x%08x %04x%04x%04zx", mac.c_str(), n + 28,
             ntohl(a.s_addr), ntohl(b.s_addr), kPort, kPort, n + 8);
    std::string h; // the header in hex without its two checksums
    for (size_t i = 0; i < 40; ++i) {
        snprintf(two, sizeof two, i == 14 || i == 26 || i == 34 ? " %02x" : "%02x", f[i]);
        h += i == 24 || i == 25 ? "" : two;
    }
    EXPECT_EQ(h, fields);
    EXPECT_EQ(sum16({f.begin() + 14, f.begin() + 34}), 0);
    std::vector<uint8_t> pseudo(f.begin() + 26, f.begin() + 34);
    pseudo.insert(pseudo.end(), {0, 17, uint8_t((n + 8) >> 8), uint8_t(n + 8)});
    pseudo.insert(pseudo.end(), f.begin() + 34, f.end());
    EXPECT_EQ(sum16(pseudo), 0);
    EXPECT_TRUE(std::equal(payload.begin(), payload.end(), f.begin() + 42));
}

TEST_F(NetPeer, BroadcastOnTheWire)
{
    for (size_t n : {0, 1, 1500}) {
        std::vector<uint8_t> payload(n);
        for (size_t i = 0; i < n; ++i) {
            payload[i] = static_cast<uint8_t>(i * 7 + 3);
        }
        std::string log = "not sent";
        const auto frames = captured("peer0", "eth0", [&] {
            log = fake::logOf(
                [&] { EXPECT_EQ(COM_SendUDPBroadcast("eth0", kPort, payload.data(), n), 0); });
        });
        EXPECT_EQ(log, "");
        ASSERT_EQ(frames.size(), 2u) << n;
        checkFrame(frames[0], "02aabbccdd01", "0.0.0.0", "255.255.255.255", payload);
        checkFrame(frames[1], "02aabbccdd01", "10.1.0.5", "10.1.0.255", payload);
    }
}

// Too long, and without a name the kernel has no interface to send on
// (index 0): the first send fails, silently, and nothing goes out.
TEST_F(NetPeer, BroadcastLimits)
{
    const std::vector<uint8_t> payload(1501, 0xEE);
    std::string log;
    EXPECT_TRUE(captured("peer0", "eth0", [&] {
                    log = fake::logOf([&] {
                        EXPECT_EQ(COM_SendUDPBroadcast("eth0", kPort, payload.data(), 1501), -1);
                        EXPECT_EQ(COM_SendUDPBroadcast(nullptr, kPort, payload.data(), 1), -1);
                    });
                }).empty());
    EXPECT_EQ(log,
              "udp_broadcast.cpp,N:COM_SendUDPBroadcast(): data_sz[1501] exceed limit[1500]!\n");

    // No address: only the limited broadcast from 0.0.0.0.
    const auto frames = captured("bare1", "bare0", [&] {
        EXPECT_EQ(COM_SendUDPBroadcast("bare0", kPort, payload.data(), 2), 0);
    });
    ASSERT_EQ(frames.size(), 1u);
    checkFrame(frames[0], "0200000000b0", "0.0.0.0", "255.255.255.255", {0xEE, 0xEE});

    EXPECT_EQ(asNobody([&] {
                  return fake::logOf([&] { COM_SendUDPBroadcast("eth0", kPort, nullptr, 0); }) !=
                         "udp_broadcast.cpp,N:COM_SendUDPBroadcast(): socket(SOCK_DGRAM) failed : "
                         "Operation not permitted\n";
              }),
              0);
}
} // namespace
