// Address and mask texts.
#include <gtest/gtest.h>

#include "COMMON.h"
#include "test_support.h"

namespace {

TEST(NetAddr, AddressAndMaskTexts)
{
    const struct {
        const char *text;
        int result;
        uint8_t addr[4], mask[4];
        const char *log;
    } cases[] = {
        {"10.0.0.1/8", 0, {10, 0, 0, 1}, {255, 0, 0, 0}, ""},
        {"192.168.1.20/24\n", 0, {192, 168, 1, 20}, {255, 255, 255, 0}, ""},
        {"10.0.0.1/0", 0, {10, 0, 0, 1}, {0, 0, 0, 0}, ""},
        {"10.0.0.1/32", 0, {10, 0, 0, 1}, {255, 255, 255, 255}, ""},
        {"10.0.0.1/1", 0, {10, 0, 0, 1}, {128, 0, 0, 0}, ""},
        {"10.0.0.1 255.255.0.0", 0, {10, 0, 0, 1}, {255, 255, 0, 0}, ""},
        {"10.0.0.1", 0, {10, 0, 0, 1}, {255, 255, 255, 255}, ""},
        {"10.0.0.1/33",
         0,
         {10, 0, 0, 1},
         {255, 255, 255, 255},
         "net_addr.cpp,N:COM_ConvertNetworkAddr(): offset : (33, 33) : isn't resonable\n"},
        {"10.0.0.1/-1",
         0,
         {10, 0, 0, 1},
         {255, 255, 255, 255},
         "net_addr.cpp,N:COM_ConvertNetworkAddr(): offset : (-1, -1) : isn't resonable\n"},
        {"10.0.0.1/255.x",
         0,
         {10, 0, 0, 1},
         {255, 255, 255, 255},
         "net_addr.cpp,N:COM_ConvertNetworkAddr(): [255.x] is not a valid netmask\n"},
        {"", -1, {}, {255, 255, 255, 255}, ""},
        {" / \r\n", -1, {}, {255, 255, 255, 255}, ""},
        {"host/24",
         -1,
         {},
         {255, 255, 255, 255},
         "net_addr.cpp,N: [host/24][host] is not a valid ip address\n"},
    };
    for (const auto &c : cases) {
        uint32_t addr = 1, mask = 1;
        EXPECT_EQ(fake::withoutLineNumbers(fake::captureStdout(
                      [&] { EXPECT_EQ(COM_ConvertNetworkAddr(c.text, &addr, &mask), c.result); })),
                  c.log)
            << c.text;
        EXPECT_EQ(memcmp(&addr, c.addr, 4), 0) << c.text;
        EXPECT_EQ(memcmp(&mask, c.mask, 4), 0) << c.text;
    }
}

TEST(NetAddr, FamilyMembersRefuseOtherFlags)
{
    uint8_t out[4] = {1, 2, 3, 4};
    EXPECT_EQ(COM_GetMAC(NETINFO_IP_RAW, "lo", out), -1);
    EXPECT_EQ(COM_SubGetNetInfo(NETINFO_MAC_RAW_TAIL2, "lo", out), -1);
    EXPECT_EQ(COM_GetDNSServer(NETINFO_MTU, "lo", out), -1);
    EXPECT_EQ(out[0] + out[3], 5);
}

} // namespace
