// JPEG start-of-frame segments and MPEG-4 video object layer headers written
// field by field: the optional parts of the layer header that the encoders of
// the fixture tests leave out, the shapes without a size, frame rates.
#include <gtest/gtest.h>

#include <array>

#include "COMMON.h"
#include "bit_writer.h"

namespace {

// Colour, grey and progressive images are in the fixture tests.
TEST(JpegSof, ZeroWidthIsStoredAndFails)
{
    const uint8_t segment[] = {0xC0, 0x00, 0x11, 0x08, 0x00, 0x30, 0x00, 0x00};
    int32_t w = -5, h = -5;
    EXPECT_EQ(COM_ProcJpegSOF(segment, &w, &h), -1);
    EXPECT_EQ(w, 0);
    EXPECT_EQ(h, 48);
}

struct Vol {
    uint32_t verid = 0; // 0: no object layer identifier
    bool extendedPar = false, vbv = false;
    uint32_t shape = 0, resolution = 25;
    int incrementBits = 0; // 0: variable VOP rate
    uint32_t increment = 0, width = 352, height = 288;
    bool interlaced = false;

    std::vector<uint8_t> bytes() const
    {
        BitWriter w;
        w.put(0, 1).put(1, 8).put(verid != 0, 1).put(verid, verid != 0 ? 4 : 0).put(1, verid != 0 ? 3 : 0);
        w.put(extendedPar ? 0xF402D : 1, extendedPar ? 20 : 4); // aspect 15, par 64:45
        w.put(vbv, 1).put(0x7, vbv ? 4 : 0);                    // control parameters with vbv
        for (int n : {15, 1, 15, 1, 15, 1, 3, 11, 1, 15, 1}) {
            w.put(0x5555, vbv ? n : 0);
        }
        w.put(shape, 2).put(0xF, shape == 3 && verid != 1 ? 4 : 0);
        w.put(1, 1).put(resolution, 16).put(1, 1).put(incrementBits != 0, 1).put(increment, incrementBits);
        if (shape == 0) {
            w.put(1, 1).put(width, 13).put(1, 1).put(height, 13).put(1, 1);
        }
        return w.put(interlaced, 1).put(1, 1).bytes(false);
    }
};

TEST(Mpeg4Vol, SizeAndFrameRate)
{
    const std::pair<Vol, std::array<int32_t, 4>> cases[] = { // result, width, height, fps
        {{}, {0, 352, 288, -5}},                              // variable rate: fps stays
        // The increment takes as many bits as the resolution has: 5 for 16.
        {{.resolution = 16, .incrementBits = 5, .increment = 1}, {0, 352, 288, 1600}},
        {{.resolution = 1, .incrementBits = 1, .increment = 1}, {0, 352, 288, 100}},
        {{.vbv = true, .incrementBits = 5, .increment = 2}, {0, 352, 288, 1250}},
        {{.verid = 2, .extendedPar = true, .width = 8191, .height = 1}, {0, 8191, 1, -5}},
        {{.width = 720, .height = 575, .interlaced = true}, {0, 360, 287, -5}},
        {{.height = 1, .interlaced = true}, {-1, -5, -5, -5}},
        {{.shape = 1}, {-1, -5, -5, -5}},              // binary
        {{.shape = 2}, {-1, -5, -5, -5}},              // binary only
        {{.verid = 2, .shape = 3}, {-1, -5, -5, -5}}, // grey-scale, with its shape extension
    };
    for (const auto &[vol, expected] : cases) {
        std::array<int32_t, 4> got = {0, -5, -5, -5};
        got[0] = COM_ProcMpeg4VOL(vol.bytes().data(), &got[1], &got[2], &got[3]);
        EXPECT_EQ(got, expected) << vol.shape << " " << vol.width << " " << vol.resolution;
    }
}

} // namespace
