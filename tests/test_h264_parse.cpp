// Sequence parameter sets, slice types, and the NAL and SEI search, on units
// written field by field.
#include <gtest/gtest.h>

#include <memory>

#include "COMMON.h"
#include "bit_writer.h"
#include "test_support.h"

namespace {

using fake::captureStdout;
using fake::withoutLineNumbers;

struct Sps {
    uint32_t pocType = 0;
    uint32_t pocLsb = 0;
    std::vector<int32_t> cycle; // offset_for_ref_frame values
    uint32_t cycleCount = 0;    // written in place of cycle.size() when above it
    uint32_t numRefFrames = 1;
    uint32_t widthMbsMinus1 = 39;
    uint32_t heightMapUnitsMinus1 = 29;
    uint32_t frameNumBits = 0;

    std::vector<uint8_t> bytes(size_t padding = 8, bool escape = true) const
    {
        BitWriter w;
        w.put(77, 8).put(0x4, 4).put(0, 4).put(30, 8); // profile, flags, level
        w.ue(0).ue(frameNumBits).ue(pocType);
        if (pocType == 0) {
            w.ue(pocLsb);
        } else if (pocType == 1) {
            w.put(0, 1).se(-2).se(3).ue(std::max<uint32_t>(cycleCount, static_cast<uint32_t>(cycle.size())));
            for (int32_t v : cycle) {
                w.se(v);
            }
        }
        w.ue(numRefFrames).put(0, 1).ue(widthMbsMinus1).ue(heightMapUnitsMinus1);
        w.put(1, 1).put(1, 1).put(0, 1).put(0, 1).put(1, 1); // frame_mbs_only ... stop bit
        return w.bytes(escape, padding);
    }
};

struct SpsResult {
    int rc;
    int32_t width, height, profile;
};

SpsResult parse(const std::vector<uint8_t> &sps)
{
    SpsResult r{0, -1, -1, -1};
    r.rc = COM_ProcH264SPS(sps.data(), &r.width, &r.height, 0, &r.profile);
    return r;
}

TEST(H264Sps, TheSevenBytesOfA640x480BaselineSet)
{
    const std::vector<uint8_t> sps = {0x42, 0x00, 0x1E, 0xDA, 0x02, 0x80, 0xF0, 0, 0, 0, 0, 0};
    const SpsResult r = parse(sps);
    EXPECT_EQ(r.rc, 0);
    EXPECT_EQ(r.profile, 66);
    EXPECT_EQ(r.width, 640);
    EXPECT_EQ(r.height, 480);
    int32_t w = 0, h = 0;
    EXPECT_EQ(COM_ProcH264SPS(sps.data(), &w, &h, 12345, nullptr), 0); // profile may be null
    EXPECT_EQ(w, 640);
}

TEST(H264Sps, EveryPictureOrderCountType)
{
    Sps poc1;
    poc1.pocType = 1;
    poc1.cycle = std::vector<int32_t>(255, -7);
    poc1.cycle[100] = 1 << 20;
    Sps poc2;
    poc2.pocType = 2;
    Sps lsb12;
    lsb12.pocLsb = 12;
    Sps bigNumbers; // long Exp-Golomb codes, whose zero bytes need emulation prevention
    bigNumbers.numRefFrames = (1u << 23) - 1;
    bigNumbers.widthMbsMinus1 = 119;
    bigNumbers.heightMapUnitsMinus1 = 67;
    ASSERT_NE(bigNumbers.bytes(8, true), bigNumbers.bytes(8, false));
    for (const Sps &s : {poc1, poc2, lsb12, bigNumbers}) {
        const SpsResult r = parse(s.bytes());
        EXPECT_EQ(r.rc, 0) << s.pocType;
        EXPECT_EQ(r.profile, 77);
        EXPECT_EQ(r.width, static_cast<int32_t>(s.widthMbsMinus1 + 1) * 16) << s.pocType;
        EXPECT_EQ(r.height, static_cast<int32_t>(s.heightMapUnitsMinus1 + 1) * 16) << s.pocType;
    }
}

TEST(H264Sps, ValuesTheStandardForbidsAreReported)
{
    Sps lsb13;
    lsb13.pocLsb = 13;
    Sps cycle256;
    cycle256.pocType = 1;
    cycle256.cycleCount = 256;
    const struct {
        Sps sps;
        int rc;
    } cases[] = {{lsb13, 1}, {cycle256, 2}};
    for (const auto &c : cases) {
        SpsResult r{};
        const std::string log = captureStdout([&] { r = parse(c.sps.bytes()); });
        EXPECT_EQ(r.rc, c.rc);
        EXPECT_EQ(r.profile, 77); // stored before the failure
        EXPECT_EQ(r.width, -1);
        EXPECT_EQ(r.height, -1);
        EXPECT_EQ(withoutLineNumbers(log), "h264_parse.cpp,N:COM_ProcH264SPS(): Err : (profile_idc, level_idc, "
                                           "result) = (0x4D, 0x1E, " + std::to_string(c.rc) + ")\n");
    }
}

// Without a length, the reader of a unit stops at the start code behind it:
// a set followed by 00 00 00 at the very end of the buffer is read within it.
TEST(H264Sps, ReadingEndsAtTheNextStartCode)
{
    Sps s;
    s.widthMbsMinus1 = 0x7FFF; // a long last field
    const std::vector<uint8_t> unit = s.bytes(0);
    const size_t size = unit.size() + 3;
    auto buf = std::make_unique<uint8_t[]>(size); // exact size, for ASan
    std::copy(unit.begin(), unit.end(), buf.get());
    std::fill(buf.get() + unit.size(), buf.get() + size, 0);
    int32_t w = 0, h = 0;
    EXPECT_EQ(COM_ProcH264SPS(buf.get(), &w, &h, 0, nullptr), 0);
    EXPECT_EQ(w, 0x8000 * 16);
    EXPECT_EQ(h, 30 * 16);
}

TEST(H264Slice, TypesByFirstByteAndByCode)
{
    const uint8_t i[] = {0x88, 0, 0, 0}, p[] = {0x9A, 0, 0, 0}, b[] = {0x9E, 0, 0, 0};
    EXPECT_EQ(COM_GetH264SliceType(i), 1);
    EXPECT_EQ(COM_GetH264SliceType(p), 2);
    EXPECT_EQ(COM_GetH264SliceType(b), 3);
    const int expected[] = {2, 3, 1, 2, 1, 2, 3, 1, 2, 1, 0, 0};
    for (uint32_t type = 0; type < std::size(expected); ++type) {
        BitWriter w;
        w.ue(type * 37).ue(type).ue(0);
        EXPECT_EQ(COM_GetH264SliceType(w.bytes().data()), expected[type]) << type;
    }
}

TEST(H264Nal, FourByteStartCodesAtAnyAlignment)
{
    for (int32_t at = 0; at < 9; ++at) {
        std::vector<uint8_t> data(at, 0x55);
        data.insert(data.end(), {0x00, 0x00, 0x01, 0x09, 0x00, 0x00, 0x00, 0x01, 0x67, 0x42});
        if (at >= 2) {
            data[0] = 0x00; // a lone zero before it changes nothing
        }
        int32_t type = -1;
        EXPECT_EQ(COM_FindH264NAL(data.data(), static_cast<int32_t>(data.size()), &type), at + 4) << at;
        EXPECT_EQ(type, 7);
    }
    const uint8_t threeByteOnly[] = {0x00, 0x00, 0x01, 0x65, 0x88, 0x00, 0x00, 0x01, 0x41, 0x9A};
    const uint8_t headerOutside[] = {0x11, 0x00, 0x00, 0x00, 0x01, 0x65};
    int32_t type = -1;
    EXPECT_EQ(COM_FindH264NAL(threeByteOnly, sizeof threeByteOnly, &type), -1);
    EXPECT_EQ(COM_FindH264NAL(headerOutside, 5, &type), -1);
    EXPECT_EQ(type, -1);
    EXPECT_EQ(COM_FindH264NAL(headerOutside, 6, nullptr), 1);
}

TEST(H264Sei, FindsTheFirstSeiAndReadsItsMessageHeader)
{
    struct Case {
        std::vector<uint8_t> data;
        int32_t offset, type, size;
    };
    const Case cases[] = {
        {{0, 0, 0, 1, 0x67, 0x42, 0, 0, 0, 1, 0x06, 0xFF, 0x05, 0x10, 0x80}, 6, 260, 16},
        {{0, 0, 0, 1, 0x06, 0x05, 0xFF, 0xFF, 0x02, 0x80}, 0, 5, 512},
        {{0, 0, 0, 1, 0x65, 0x88, 0, 0, 1, 0x06, 0x05, 0x01}, -1, -7, -7}, // 3-byte start code
        {{0, 0, 0, 1, 0x09, 0xF0, 0, 0, 0, 1}, -1, -7, -7},                 // no header byte
        // The ff-byte fields end at the end of the data.
        {{0, 0, 0, 1, 0x06, 0xFF, 0xFF}, 0, 510, 0},
        {{0, 0, 0, 1, 0x06, 0x04, 0xFF}, 0, 4, 255},
        {{0, 0, 0, 1, 0x06}, 0, 0, 0},
    };
    for (const Case &c : cases) {
        auto data = std::make_unique<uint8_t[]>(c.data.size()); // exact size, for ASan
        std::copy(c.data.begin(), c.data.end(), data.get());
        int32_t type = -7, size = -7;
        EXPECT_EQ(COM_FindH264SEI(data.get(), static_cast<int32_t>(c.data.size()), &type, &size), c.offset);
        EXPECT_EQ(type, c.type);
        EXPECT_EQ(size, c.size);
    }
}

} // namespace
