// Network queries, unit identity and link-level broadcasts against the real
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
constexpr uint16_t kMarkerType = 0x88B5;

std::string quiet(const std::function<void()> &fn)
{
    return fake::withoutLineNumbers(fake::captureStdout(fn));
}

std::string hex(const uint8_t *bytes, size_t n)
{
    std::string s;
    char two[3];
    for (size_t i = 0; i < n; ++i) {
        snprintf(two, sizeof two, "%02x", bytes[i]);
        s += two;
    }
    return s;
}

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

// The flag's out buffer, rendered as the data file writes it.
std::string render(int flag, const std::string &expected, const uint8_t *out)
{
    if (expected.rfind("hex:", 0) == 0) {
        return "hex:" + hex(out, (expected.size() - 4) / 2);
    }
    if (expected.rfind("int:", 0) == 0) {
        int32_t value;
        memcpy(&value, out, sizeof value);
        return "int:" + std::to_string(value);
    }
    return std::string(reinterpret_cast<const char *>(out), strnlen((const char *)out, 32));
}

TEST_F(NetPeer, Queries)
{
    std::ifstream table(DVR_TEST_DATA_DIR "/net/queries.txt");
    const std::string wanted = std::string(getenv("DVR_NET_TABLE")) + "|";
    int rows = 0;
    for (std::string line; std::getline(table, line);) {
        if (line.rfind(wanted, 0) != 0) {
            continue;
        }
        std::vector<std::string> f;
        for (size_t at = wanted.size(), bar; at <= line.size(); at = bar + 1) {
            bar = std::min(line.find('|', at), line.size());
            f.push_back(line.substr(at, bar - at));
        }
        ASSERT_EQ(f.size(), 5u) << line;
        std::string log = f[4];
        for (size_t nl; (nl = log.find("\\n")) != std::string::npos;) {
            log.replace(nl, 2, "\n");
        }
        uint8_t out[32];
        memset(out, 0x5A, sizeof out);
        const int flag = std::stoi(f[0]);
        int result = 0;
        EXPECT_EQ(quiet([&] {
                      result = COM_GetNetInfo(flag, f[1] == "-" ? nullptr : f[1].c_str(), out);
                  }),
                  log)
            << line;
        EXPECT_EQ(result, std::stoi(f[2])) << line;
        EXPECT_EQ(render(flag, f[3], out), f[3]) << line;
        ++rows;
    }
    EXPECT_GT(rows, 0);
}

void writeEtc(const char *path, const char *text)
{
    std::ofstream(path) << text;
}

TEST_F(NetPeer, AutoChoosesByTheInterfacesFile)
{
    const struct {
        const char *text;
        const char *device;
    } cases[] = {
        {"auto eth0\niface eth0 inet dhcp\n", "eth0"},
        {"iface eth0 inet static\n", "eth0"},
        {"auto eth0\nauto lo\n", "ppp0"},
        {"iface ppp0 inet ppp\n# autostart\n", "ppp0"},
    };
    for (const auto &c : cases) {
        writeEtc("/etc/network/interfaces", c.text);
        EXPECT_STREQ(COM_ChooseNetDevice("auto"), c.device) << c.text;
    }
    EXPECT_STREQ(COM_ChooseNetDevice(nullptr), "eth0");
    EXPECT_STREQ(COM_ChooseNetDevice("Auto"), "Auto");
    unlink("/etc/network/interfaces");
    EXPECT_EQ(quiet([] { EXPECT_STREQ(COM_ChooseNetDevice("auto"), "eth0"); }),
              "etc_net.cpp,N: fopen(/etc/network/interfaces) error : No such file or directory\n");
}

TEST_F(NetPeer, InterfaceListsDropPointsAndDashes)
{
    COM_NET_DEV_NAME *names = nullptr;
    const int count = COM_GetNetDevices(&names);
    std::vector<std::string> got(names, names + std::max(count, 0));
    std::sort(got.begin(), got.end());
    EXPECT_EQ(got, (std::vector<std::string>{"bare0", "bare1", "eth0", "lo", "peer0", "pp0", "pp1",
                                             "wan5x", "wanpeer"}));
    EXPECT_EQ(quiet([&] { EXPECT_EQ(COM_GetNetDevices(&names), -1); }),
              "dev_list.cpp,N:COM_GetDeviceFromProc(): Warnning!! (*pBuf != NULL)\n");
    free(names);
    names = nullptr;
    // The kernel here has no wireless extensions: no table.
    EXPECT_EQ(quiet([&] { EXPECT_EQ(COM_GetWirelessDevices(&names), -1); }),
              "dev_list.cpp,N:COM_GetDeviceFromProc(): fopen(/proc/net/wireless) error : No such "
              "file or directory\n");
    writeEtc("/etc/net_dev_empty", "Inter-|   Receive\n face |bytes\n");
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
    writeEtc("/etc/Model", "DVR-16\nsecond line\n");
    writeEtc("/etc/Proj", "harbour");
    writeEtc("/etc/network/interfaces", "auto eth0\n");
    COM_UNIT_INFO unit;
    memset(&unit, 0x5A, sizeof unit);
    // No /etc/Port (80, a failure) and no /etc/Note (not counted).
    EXPECT_EQ(COM_GetUnitInfo(&unit, "auto"), -1);
    EXPECT_EQ(unit.reserved, 0x5A5A5A5Au);
    EXPECT_EQ(unit.mtu, 1600);
    EXPECT_EQ(quiet([&] { COM_ShowAllUnitInfo(1, &unit); }),
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
    char port[8];
    EXPECT_EQ(COM_GetUnitPort(port, sizeof port), 0);
    EXPECT_STREQ(port, "1234567");
    char model[4];
    EXPECT_EQ(COM_GetUnitModel(model, sizeof model), 0);
    EXPECT_STREQ(model, "DVR");

    // Without /etc/Model and on an interface with no address: ip and netmask
    // fall back, and the model is unknown.
    unlink("/etc/Model");
    EXPECT_EQ(COM_GetUnitInfo(&unit, "bare0"), -3);
    EXPECT_STREQ(unit.model, "unknown");
    EXPECT_STREQ(unit.ip, "000.000.000.000");
    EXPECT_STREQ(unit.note, "rack 4");
    EXPECT_STREQ(unit.dev, "bare0");

    COM_UNIT_INFO other = unit;
    snprintf(unit.ip, sizeof unit.ip, "10.1.0.5");
    snprintf(other.ip, sizeof other.ip, "10.1.0.9");
    EXPECT_LT(COM_CompareUnitIp(&unit, &other), 0);
    EXPECT_GT(COM_CompareUnitIp(&other, &unit), 0);
    EXPECT_EQ(COM_CompareUnitIp(&unit, &unit), 0);
    EXPECT_EQ(asNobody([] { return COM_SetUnitName("x") == -1 ? 0 : 1; }), 0);
}

// Frames that a capture socket on the peer end of a veth pair receives until
// the marker frame sent behind them arrives.
class Capture {
public:
    explicit Capture(const char *peer)
        : sock_(socket(AF_PACKET, SOCK_RAW, htons(ETH_P_ALL))), index_(if_nametoindex(peer))
    {
        struct sockaddr_ll at {};
        at.sll_family = AF_PACKET;
        at.sll_protocol = htons(ETH_P_ALL);
        at.sll_ifindex = static_cast<int>(index_);
        EXPECT_EQ(bind(sock_, reinterpret_cast<sockaddr *>(&at), sizeof at), 0);
    }
    ~Capture() { close(sock_); }
    // Sends the marker from the sending end, then collects the IP frames.
    std::vector<std::vector<uint8_t>> frames(const char *sender)
    {
        struct sockaddr_ll to {};
        to.sll_family = AF_PACKET;
        to.sll_ifindex = static_cast<int>(if_nametoindex(sender));
        to.sll_halen = 6;
        uint8_t marker[60] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
        marker[12] = kMarkerType >> 8;
        marker[13] = kMarkerType & 0xFF;
        const int out = socket(AF_PACKET, SOCK_RAW, 0);
        EXPECT_EQ(
            sendto(out, marker, sizeof marker, 0, reinterpret_cast<sockaddr *>(&to), sizeof to),
            static_cast<ssize_t>(sizeof marker));
        close(out);
        std::vector<std::vector<uint8_t>> got;
        // The marker arrives behind everything sent before it; the time
        // limit only keeps a lost marker from hanging the test.
        for (struct pollfd p = {sock_, POLLIN, 0}; poll(&p, 1, 5000) == 1;) {
            std::vector<uint8_t> frame(2048);
            const ssize_t n = recv(sock_, frame.data(), frame.size(), 0);
            frame.resize(static_cast<size_t>(std::max<ssize_t>(n, 0)));
            if (frame.size() >= 14 && frame[12] == (kMarkerType >> 8) &&
                frame[13] == (kMarkerType & 0xFF)) {
                return got;
            }
            if (frame.size() >= 14 && frame[12] == 0x08 && frame[13] == 0x00) {
                got.push_back(frame);
            }
        }
        ADD_FAILURE() << "no marker frame";
        return got;
    }

private:
    int sock_;
    unsigned index_;
};

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

uint16_t be16(const std::vector<uint8_t> &f, size_t at)
{
    return static_cast<uint16_t>(f[at] << 8 | f[at + 1]);
}

// Checks one captured frame: Ethernet broadcast from mac, then every field.
void checkFrame(const std::vector<uint8_t> &f, const std::string &mac, const char *from,
                const char *to, const std::vector<uint8_t> &payload)
{
    const size_t n = payload.size();
    ASSERT_EQ(f.size(), 14 + 28 + n);
    EXPECT_EQ(hex(f.data(), 14), "ffffffffffff" + mac + "0800");
    std::vector<uint8_t> ip(f.begin() + 14, f.begin() + 34);
    EXPECT_EQ(hex(ip.data(), 10),
              "45"
              "00" +
                  hex(std::vector<uint8_t>{uint8_t((n + 28) >> 8), uint8_t(n + 28)}.data(), 2) +
                  "0000"
                  "0000"
                  "40"
                  "11");
    in_addr a{}, b{};
    inet_aton(from, &a);
    inet_aton(to, &b);
    EXPECT_EQ(memcmp(&ip[12], &a, 4), 0) << from;
    EXPECT_EQ(memcmp(&ip[16], &b, 4), 0) << to;
    const uint16_t ipSum = be16(ip, 10);
    ip[10] = ip[11] = 0;
    EXPECT_EQ(ipSum, sum16(ip));
    EXPECT_EQ(be16(f, 34), kPort);
    EXPECT_EQ(be16(f, 36), kPort);
    EXPECT_EQ(be16(f, 38), n + 8);
    std::vector<uint8_t> pseudo(ip.begin() + 12, ip.begin() + 20);
    pseudo.insert(pseudo.end(), {0, 17, uint8_t((n + 8) >> 8), uint8_t(n + 8)});
    pseudo.insert(pseudo.end(), f.begin() + 34, f.end());
    pseudo[12 + 6] = pseudo[12 + 7] = 0;
    EXPECT_EQ(be16(f, 40), sum16(pseudo));
    EXPECT_TRUE(std::equal(payload.begin(), payload.end(), f.begin() + 42));
}

TEST_F(NetPeer, BroadcastOnTheWire)
{
    for (size_t n : {0, 1, 1500}) {
        std::vector<uint8_t> payload(n);
        for (size_t i = 0; i < n; ++i) {
            payload[i] = static_cast<uint8_t>(i * 7 + 3);
        }
        Capture capture("peer0");
        EXPECT_EQ(
            quiet([&] { EXPECT_EQ(COM_SendUDPBroadcast("eth0", kPort, payload.data(), n), 0); }),
            "");
        const auto frames = capture.frames("eth0");
        ASSERT_EQ(frames.size(), 2u) << n;
        checkFrame(frames[0], "02aabbccdd01", "0.0.0.0", "255.255.255.255", payload);
        checkFrame(frames[1], "02aabbccdd01", "10.1.0.5", "10.1.0.255", payload);
    }
}

TEST_F(NetPeer, BroadcastLimits)
{
    const std::vector<uint8_t> payload(1501, 0xEE);
    Capture capture("peer0");
    EXPECT_EQ(
        quiet([&] { EXPECT_EQ(COM_SendUDPBroadcast("eth0", kPort, payload.data(), 1501), -1); }),
        "udp_broadcast.cpp,N:COM_SendUDPBroadcast(): data_sz[1501] exceed limit[1500]!\n");
    EXPECT_TRUE(capture.frames("eth0").empty());

    // Without a name the kernel has no interface to send on (index 0): the
    // first send fails, silently, and nothing goes out.
    EXPECT_EQ(
        quiet([&] { EXPECT_EQ(COM_SendUDPBroadcast(nullptr, kPort, payload.data(), 1), -1); }), "");
    EXPECT_TRUE(capture.frames("eth0").empty());

    // No address: only the limited broadcast from 0.0.0.0.
    Capture bare("bare1");
    EXPECT_EQ(COM_SendUDPBroadcast("bare0", kPort, payload.data(), 2), 0);
    const auto frames = bare.frames("bare0");
    ASSERT_EQ(frames.size(), 1u);
    checkFrame(frames[0], "0200000000b0", "0.0.0.0", "255.255.255.255", {0xEE, 0xEE});

    EXPECT_EQ(asNobody([&] {
                  const std::string log =
                      quiet([&] { COM_SendUDPBroadcast("eth0", kPort, nullptr, 0); });
                  return log == "udp_broadcast.cpp,N:COM_SendUDPBroadcast(): socket(SOCK_DGRAM) "
                                "failed : Operation not permitted\n"
                             ? 0
                             : 1;
              }),
              0);
}
} // namespace
