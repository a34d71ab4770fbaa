// The plain and the RBSP bit readers: bit order across bytes, emulation
// prevention, Exp-Golomb codes, and what is read at the end of the data.
#include <gtest/gtest.h>

#include <memory>

#include "COMMON.h"
#include "bit_writer.h"

namespace {

TEST(ReadBits, FieldsCrossBytesMostSignificantFirst)
{
    const uint8_t data[] = {0xA5, 0x3C, 0xFF, 0x01};
    struct Case {
        int left, n;
        uint32_t value;
        int advanced, leftAfter;
    };
    const Case cases[] = {
        {8, 0, 0, 0, 8},          {8, 1, 1, 0, 7},     {8, 8, 0xA5, 1, 8},   {3, 2, 0x2, 0, 1},
        {3, 3, 0x5, 1, 8},        {3, 7, 0x53, 1, 4},  {8, 12, 0xA53, 1, 4}, {1, 9, 0x13C, 2, 8},
        {8, 32, 0xA53CFF01, 4, 8}, {5, 20, 0x29E7F, 2, 1},
    };
    for (const Case &c : cases) {
        const uint8_t *p = data;
        int left = c.left;
        EXPECT_EQ(COM_ReadBits(&p, &left, c.n), c.value) << c.left << "/" << c.n;
        EXPECT_EQ(p - data, c.advanced) << c.left << "/" << c.n;
        EXPECT_EQ(left, c.leftAfter) << c.left << "/" << c.n;
    }
}

// The reader's cache after set-up, then 16 more bits: emulation prevention
// bytes are dropped behind two zero bytes of payload only.
TEST(RbspReader, DropsEmulationPreventionBytes)
{
    struct Case {
        std::vector<uint8_t> data;
        uint32_t cache, next16;
    };
    const Case cases[] = {
        {{0x00, 0x00, 0x03, 0x00, 0x00, 0x03, 0xAB, 0xCD}, 0x00000000, 0xABCD},
        {{0x00, 0x03, 0x00, 0x00, 0x03, 0x01, 0x02}, 0x00030000, 0x0102}, // a 3 among the first two stays
        {{0x00, 0x00, 0x03, 0x03, 0x00, 0x00, 0x04}, 0x00000300, 0x0004}, // the byte behind is not tested
        // Two zero bytes of payload, one of them behind a dropped 3: dropped too.
        {{0x12, 0x00, 0x00, 0x03, 0x00, 0x03, 0x7F, 0x55}, 0x12000000, 0x7F55},
    };
    for (const Case &c : cases) {
        COM_RBSP_READER r;
        COM_RbspInit(&r, c.data.data(), static_cast<int32_t>(c.data.size()));
        EXPECT_EQ(r.cache, c.cache);
        EXPECT_EQ(COM_RbspRead(&r, 32 - 8), c.cache >> 8);
        EXPECT_EQ(COM_RbspRead(&r, 8), c.cache & 0xFF);
        EXPECT_EQ(COM_RbspRead(&r, 16), c.next16);
    }
}

TEST(RbspReader, ExpGolombCodes)
{
    const uint32_t ues[] = {0, 1, 2, 3, 7, 254, 255, 65535, (1u << 23) - 2, (1u << 24) - 2};
    const int32_t ses[] = {0, 1, -1, 2, -2, 1000, -1000, (1 << 22), -(1 << 22) + 1};
    BitWriter w;
    w.put(0x5, 3); // out of byte alignment from the start
    for (uint32_t v : ues) {
        w.ue(v);
    }
    for (int32_t v : ses) {
        w.se(v);
    }
    const auto bytes = w.bytes();
    COM_RBSP_READER r;
    COM_RbspInit(&r, bytes.data(), static_cast<int32_t>(bytes.size()));
    EXPECT_EQ(COM_RbspRead(&r, 3), 0x5u);
    for (uint32_t v : ues) {
        EXPECT_EQ(COM_RbspReadUE(&r), v);
    }
    for (int32_t v : ses) {
        EXPECT_EQ(COM_RbspReadSE(&r), v);
    }
    EXPECT_EQ(COM_RbspRead(&r, 0), 0u);
    EXPECT_EQ(COM_RbspRead(&r, -3), 0u);
}

// Leading zeros are counted exactly up to 23; a cache below 256 counts as
// 18, so all zeros read as 2^18 - 1 after 37 bits.
TEST(RbspReader, LongRunOfZerosCountsAsEighteen)
{
    const uint8_t zeros[12] = {};
    COM_RBSP_READER r;
    COM_RbspInit(&r, zeros, sizeof zeros);
    EXPECT_EQ(COM_RbspReadUE(&r), (1u << 18) - 1);
    EXPECT_EQ(r.cur - zeros, 8); // 37 bits used, 4 bytes ahead in the cache
    EXPECT_EQ(r.offset, 5);
}

// A reader told the length never fetches past it: the bytes beyond read as
// zero, and a length of 0 or less gives four zero bytes.
TEST(RbspReader, StopsAtTheLengthItWasGiven)
{
    auto data = std::make_unique<uint8_t[]>(2); // exactly two bytes, for ASan
    data[0] = 0xAB;
    data[1] = 0xCD;
    COM_RBSP_READER r;
    COM_RbspInit(&r, data.get(), 2);
    EXPECT_EQ(r.cache, 0xABCD0000u);
    EXPECT_EQ(r.end, data.get() + 2);
    COM_RbspSkip(&r, 64);
    EXPECT_EQ(r.cur, data.get() + 2);
    EXPECT_EQ(COM_RbspRead(&r, 24), 0u);
    for (int32_t len : {0, -5}) {
        COM_RbspInit(&r, data.get(), len);
        EXPECT_EQ(r.cache, 0u);
        EXPECT_EQ(r.cur, data.get());
        EXPECT_EQ(r.offset, 0);
    }
}

TEST(BitOrder, ReverseAndSwap)
{
    EXPECT_EQ(COM_ReverseBits8(0x01), 0x80);
    EXPECT_EQ(COM_ReverseBits8(0xB1), 0x8D);
    for (unsigned v = 0; v < 256; ++v) {
        EXPECT_EQ(COM_ReverseBits8(COM_ReverseBits8(static_cast<uint8_t>(v))), v);
    }
    EXPECT_EQ(COM_SwapBytes32(0x12345678), 0x78563412u);
    EXPECT_EQ(COM_SwapBytes32(0xFF000080), 0x800000FFu);
}

} // namespace
