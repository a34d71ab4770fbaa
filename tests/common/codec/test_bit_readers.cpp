// The plain and the RBSP bit readers: bit order across bytes, emulation
// prevention, Exp-Golomb codes, and the end of the data.
#include <gtest/gtest.h>

#include "COMMON.h"
#include "bit_writer.h"

namespace {

TEST(BitReaders, PlainBitsCrossBytesMostSignificantFirst)
{
    const uint8_t data[] = {0xA5, 0x3C, 0xFF, 0x01};
    const uint8_t *p = data;
    int left = 5;
    EXPECT_EQ(COM_ReadBits(&p, &left, 20), 0x29E7Fu); // 00101 00111100 1111111
    EXPECT_EQ(p, data + 2);
    EXPECT_EQ(left, 1);
    EXPECT_EQ(COM_ReadBits(&p, &left, 0), 0u);
    EXPECT_EQ(COM_ReadBits(&p, &left, 9), 0x101u);
    EXPECT_EQ(COM_ReverseBits8(0xB1), 0x8D);
    EXPECT_EQ(COM_SwapBytes32(0xFF000080), 0x800000FFu);
}

// The cache after set-up, then 16 more bits.
TEST(BitReaders, RbspDropsEmulationPreventionBytes)
{
    const std::pair<std::vector<uint8_t>, uint64_t> cases[] = {
        {{0x00, 0x00, 0x03, 0x00, 0x00, 0x03, 0xAB, 0xCD}, 0x00000000ABCD},
        {{0x00, 0x03, 0x00, 0x00, 0x03, 0x03, 0x00, 0x04},
         0x000300000300}, // a 3 among the first two
        {{0x12, 0x00, 0x00, 0x03, 0x00, 0x03, 0x7F, 0x55},
         0x120000007F55}, // zeros of payload, not raw
    };
    for (const auto &[data, bits] : cases) {
        COM_RBSP_READER r;
        COM_RbspInit(&r, data.data(), static_cast<int32_t>(data.size()));
        EXPECT_EQ(r.cache, bits >> 16);
        EXPECT_EQ(COM_RbspRead(&r, 24), bits >> 24);
        EXPECT_EQ(COM_RbspRead(&r, 24), bits & 0xFFFFFF);
    }
}

// Longer ue codes, and a cache below 256, are read in the parameter set tests.
TEST(BitReaders, RbspExpGolombCodes)
{
    const auto bytes =
        BitWriter().put(0x5, 3).ue(0).ue((1u << 24) - 2).se(1000).se(-(1 << 22) + 1).bytes();
    COM_RBSP_READER r;
    COM_RbspInit(&r, bytes.data(), static_cast<int32_t>(bytes.size()));
    EXPECT_EQ(COM_RbspRead(&r, 3), 0x5u);
    EXPECT_EQ(COM_RbspReadUE(&r), 0u);
    EXPECT_EQ(COM_RbspReadUE(&r), (1u << 24) - 2); // 23 leading zeros and 23 bits of value
    EXPECT_EQ(COM_RbspReadSE(&r), 1000);
    EXPECT_EQ(COM_RbspReadSE(&r), -(1 << 22) + 1);
}

// A reader told the length never fetches past it: the bytes beyond read as
// zero, and a length of 0 or less gives four zero bytes.
TEST(BitReaders, RbspStopsAtTheLengthItWasGiven)
{
    const auto data = exactCopy({0xAB, 0xCD});
    COM_RBSP_READER r;
    COM_RbspInit(&r, data.get(), 2);
    EXPECT_EQ(r.cache, 0xABCD0000u);
    COM_RbspSkip(&r, 64);
    EXPECT_EQ(r.cur - data.get(), 12); // fetches past the end move on, reading nothing
    EXPECT_EQ(COM_RbspRead(&r, 24), 0u);
    COM_RbspInit(&r, data.get(), -5);
    EXPECT_EQ(r.cache, 0u);
}

} // namespace
