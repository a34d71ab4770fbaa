// Sequence parameter sets, slice types, and the NAL and SEI search, on units
// written field by field; real streams are in the fixture tests.
#include <gtest/gtest.h>

#include <array>

#include "COMMON.h"
#include "bit_writer.h"
#include "test_support.h"

namespace {

// Profile 77, level 30, a picture of 40 x 30 macroblocks; the picture order
// count fields as given.
std::vector<uint8_t> sps(uint32_t pocType, uint32_t pocValue, uint32_t numRefFrames = 1)
{
    BitWriter w;
    w.put(77, 8).put(0x40, 8).put(30, 8).ue(0).ue(0).ue(pocType);
    if (pocType == 0) {
        w.ue(pocValue);
    } else if (pocType == 1) {
        w.put(0, 1).se(-2).se(3).ue(pocValue);
        for (uint32_t i = 0; i < pocValue && i < 255; ++i) {
            w.se(i == 100 ? 1 << 20 : -7);
        }
    }
    return w.ue(numRefFrames).put(0, 1).ue(39).ue(29).put(0x19, 5).bytes(); // ... stop bit
}

TEST(H264Sps, SizeProfileAndTheTwoFailures)
{
    const std::vector<uint8_t> baseline = {0x42, 0x00, 0x1E, 0xDA, 0x02, 0x80, 0xF0, 0, 0, 0, 0};
    const std::pair<std::vector<uint8_t>, std::array<int32_t, 4>> cases[] = {
        // result, profile, size
        {baseline, {0, 66, 640, 480}},
        {sps(0, 12), {0, 77, 640, 480}},
        {sps(1, 255), {0, 77, 640, 480}},
        {sps(0, 0, (1u << 23) - 1), {0, 77, 640, 480}}, // 23 leading zeros, and 00 00 03 00
        {sps(0, 13), {1, 77, -1, -1}},
        {sps(1, 256), {2, 77, -1, -1}},
    };
    for (const auto &[bytes, expected] : cases) {
        std::array<int32_t, 4> got = {0, -1, -1, -1};
        const std::string log = fake::captureStdout([&, &bytes = bytes] {
            got[0] = COM_ProcH264SPS(bytes.data(), &got[2], &got[3], 0, &got[1]);
        });
        EXPECT_EQ(got, expected);
        EXPECT_EQ(fake::withoutLineNumbers(log),
                  got[0] == 0 ? ""
                              : "h264_parse.cpp,N:COM_ProcH264SPS(): Err : "
                                "(profile_idc, level_idc, result) = (0x4D, 0x1E, " +
                                    std::to_string(got[0]) + ")\n");
    }
    int32_t w = 0, h = 0;
    EXPECT_EQ(COM_ProcH264SPS(baseline.data(), &w, &h, 0, nullptr), 0); // the profile may be null
}

// Without a length, the reader stops at the start code behind the unit. A set
// cut short before its 255 reference frame offsets, with 00 00 00 at the very
// end of the buffer, reads zeros from there and stays inside.
TEST(H264Sps, ReadingEndsAtTheNextStartCode)
{
    BitWriter w;
    w.put(77, 8).put(0, 8).put(30, 8).ue(0).ue(0).ue(1).put(0, 1).se(0).se(0).ue(255).put(0, 24);
    const auto buf = exactCopy(w.out);
    int32_t width = 0, height = 0;
    EXPECT_EQ(COM_ProcH264SPS(buf.get(), &width, &height, 0, nullptr), 0);
    EXPECT_EQ(width, (1 << 18) * 16); // an all-zero cache reads as 2^18 - 1
    EXPECT_EQ(height, (1 << 18) * 16);
}

// Every slice_type, behind a first_mb_in_slice that is not 0.
TEST(H264Slice, TypesByCode)
{
    const int expected[] = {2, 3, 1, 2, 1, 2, 3, 1, 2, 1, 0};
    for (uint32_t type = 0; type < std::size(expected); ++type) {
        EXPECT_EQ(COM_GetH264SliceType(BitWriter().ue(type * 37).ue(type).bytes().data()),
                  expected[type]);
    }
}

TEST(H264Sei, FindsTheFirstSeiAndReadsItsMessageHeader)
{
    const std::pair<std::vector<uint8_t>, std::array<int32_t, 3>> cases[] = {
        // offset, type, size
        {{0, 0, 0, 1, 0x67, 0x42, 0, 0, 0, 1, 0x06, 0xFF, 0x05, 0x10, 0x80}, {6, 260, 16}},
        {{0, 0, 0, 1, 0x65, 0x88, 0, 0, 1, 0x06, 0x05, 0x01}, {-1, -7, -7}}, // 3-byte start code
        {{0, 0, 0, 1, 0x09, 0xF0, 0, 0, 0, 1}, {-1, -7, -7}},                // no header byte
        {{0, 0, 0, 1, 0x06, 0xFF, 0xFF}, {0, 510, 0}}, // the fields end at the end of the data
        {{0, 0, 0, 1, 0x06}, {0, 0, 0}},
    };
    for (const auto &[bytes, expected] : cases) {
        const auto data = exactCopy(bytes);
        std::array<int32_t, 3> got = {0, -7, -7};
        got[0] = COM_FindH264SEI(data.get(), static_cast<int32_t>(bytes.size()), &got[1], &got[2]);
        EXPECT_EQ(got, expected);
    }
}

} // namespace
