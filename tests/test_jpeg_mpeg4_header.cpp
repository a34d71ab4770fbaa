// JPEG start-of-frame segments and MPEG-4 video object layer headers written
// field by field: every optional part of the layer header, sizes, frame rate.
#include <gtest/gtest.h>

#include "COMMON.h"
#include "bit_writer.h"

namespace {

TEST(JpegSof, OnlyThreeComponentSegmentsGiveASize)
{
    struct Case {
        std::vector<uint8_t> segment; // from the marker's second byte
        int rc;
        int32_t width, height;
    };
    const Case cases[] = {
        {{0xC0, 0x00, 0x11, 0x08, 0x04, 0x38, 0x07, 0x80}, 0, 1920, 1080},
        {{0xC2, 0x00, 0x11, 0x08, 0x00, 0x01, 0xFF, 0xFF}, 0, 65535, 1},
        {{0xC0, 0x00, 0x0B, 0x08, 0x00, 0x10, 0x00, 0x20}, -1, -5, -5}, // one component
        {{0xC0, 0x01, 0x11, 0x08, 0x00, 0x10, 0x00, 0x20}, -1, -5, -5},
        {{0xC0, 0x00, 0x11, 0x08, 0x00, 0x30, 0x00, 0x00}, -1, 0, 48}, // stored all the same
    };
    for (const Case &c : cases) {
        int32_t w = -5, h = -5;
        EXPECT_EQ(COM_ProcJpegSOF(c.segment.data(), &w, &h), c.rc);
        EXPECT_EQ(w, c.width);
        EXPECT_EQ(h, c.height);
    }
}

struct Vol {
    uint32_t verid = 0; // 0: no object layer identifier
    bool extendedPar = false;
    bool controlParameters = false;
    bool vbv = false;
    uint32_t shape = 0;
    uint32_t resolution = 25;
    int incrementBits = 0; // 0: variable VOP rate
    uint32_t increment = 0;
    uint32_t width = 352, height = 288;
    bool interlaced = false;

    std::vector<uint8_t> bytes() const
    {
        BitWriter w;
        w.put(0, 1).put(1, 8).put(verid != 0, 1);
        if (verid != 0) {
            w.put(verid, 4).put(1, 3);
        }
        if (extendedPar) {
            w.put(15, 4).put(64, 8).put(45, 8);
        } else {
            w.put(1, 4);
        }
        w.put(controlParameters, 1);
        if (controlParameters) {
            w.put(1, 2).put(1, 1).put(vbv, 1);
            for (int n : {15, 1, 15, 1, 15, 1, 3, 11, 1, 15, 1}) {
                w.put(vbv ? 0x5555 : 0, vbv ? n : 0);
            }
        }
        w.put(shape, 2);
        if (shape == 3 && verid != 1) {
            w.put(0xF, 4);
        }
        w.put(1, 1).put(resolution, 16).put(1, 1).put(incrementBits != 0, 1).put(increment, incrementBits);
        if (shape == 0) {
            w.put(1, 1).put(width, 13).put(1, 1).put(height, 13).put(1, 1);
        }
        w.put(interlaced, 1).put(1, 1); // interlaced, obmc_disable
        return w.bytes(false);
    }
};

TEST(Mpeg4Vol, SizeAndFrameRate)
{
    const auto vol = [](auto change) {
        Vol v;
        change(v);
        return v;
    };
    struct Case {
        Vol vol;
        int rc;
        int32_t width, height, fps;
    };
    const Case cases[] = {
        {vol([](Vol &) {}), 0, 352, 288, -5}, // variable rate: fps stays
        {vol([](Vol &v) { v.incrementBits = 5, v.increment = 1; }), 0, 352, 288, 2500},
        {vol([](Vol &v) { v.resolution = 30000, v.incrementBits = 15, v.increment = 1001; }), 0, 352, 288, 2997},
        // A resolution of 16 has values 0 to 15: the increment takes 4 bits.
        {vol([](Vol &v) { v.resolution = 16, v.incrementBits = 4, v.increment = 1; }), 0, 352, 288, 1600},
        {vol([](Vol &v) { v.resolution = 1, v.incrementBits = 1, v.increment = 1; }), 0, 352, 288, 100},
        {vol([](Vol &v) { v.resolution = 0, v.width = 720; }), 0, 720, 288, -5},
        {vol([](Vol &v) { v.interlaced = true, v.width = 720, v.height = 575; }), 0, 360, 287, -5},
        {vol([](Vol &v) { v.verid = 2, v.extendedPar = true; }), 0, 352, 288, -5},
        {vol([](Vol &v) { v.controlParameters = true, v.width = 8191, v.height = 1; }), 0, 8191, 1, -5},
        {vol([](Vol &v) { v.controlParameters = v.vbv = true, v.incrementBits = 5, v.increment = 2; }), 0, 352, 288,
         1250},
        {vol([](Vol &v) { v.interlaced = true, v.height = 1; }), -1, -5, -5, -5},
        {vol([](Vol &v) { v.shape = 1; }), -1, -5, -5, -5},           // binary
        {vol([](Vol &v) { v.shape = 2; }), -1, -5, -5, -5},           // binary only
        {vol([](Vol &v) { v.shape = 3, v.verid = 2; }), -1, -5, -5, -5}, // grey-scale
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        const Case &c = cases[i];
        int32_t w = -5, h = -5, fps = -5;
        EXPECT_EQ(COM_ProcMpeg4VOL(c.vol.bytes().data(), &w, &h, &fps), c.rc) << i;
        EXPECT_EQ(w, c.width) << i;
        EXPECT_EQ(h, c.height) << i;
        EXPECT_EQ(fps, c.fps) << i;
    }
}

} // namespace
