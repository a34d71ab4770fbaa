// MPEG-4 video object layer headers written field by field, for what the encoders of the fixture
// tests leave out: vbv parameters, the shapes without a size, rates of a few increment bits.
#include <gtest/gtest.h>

#include <array>

#include "COMMON.h"
#include "bit_writer.h"

namespace {

struct Vol {
    uint32_t verid = 0; // 0: no object layer identifier
    bool vbv = false;
    uint32_t shape = 0, resolution = 25;
    int incrementBits = 0; // 0: variable VOP rate
    uint32_t increment = 0, width = 352, height = 288;
    bool interlaced = false;

    std::vector<uint8_t> bytes() const
    {
        BitWriter w;
        w.put(0, 1)
            .put(1, 8)
            .put(verid != 0, 1)
            .put(verid, verid != 0 ? 4 : 0)
            .put(1, verid != 0 ? 3 : 0);
        w.put(1, 4).put(vbv, 1).put(0x7, vbv ? 4 : 0); // square pixels; control parameters with vbv
        for (int n : {15, 1, 15, 1, 15, 1, 3, 11, 1, 15, 1}) {
            w.put(0x5555, vbv ? n : 0);
        }
        w.put(shape, 2).put(0xF, shape == 3 && verid != 1 ? 4 : 0);
        w.put(1, 1)
            .put(resolution, 16)
            .put(1, 1)
            .put(incrementBits != 0, 1)
            .put(increment, incrementBits);
        if (shape == 0) {
            w.put(1, 1).put(width, 13).put(1, 1).put(height, 13).put(1, 1);
        }
        return w.put(interlaced, 1).put(1, 1).bytes(false);
    }
};

TEST(Mpeg4Vol, SizeAndFrameRate)
{
    const std::pair<Vol, std::array<int32_t, 4>> cases[] = {
        // result, width, height, fps
        // The increment takes as many bits as the resolution has: 5 for 16.
        {{.resolution = 16, .incrementBits = 5, .increment = 1}, {0, 352, 288, 1600}},
        {{.resolution = 1, .incrementBits = 1, .increment = 1}, {0, 352, 288, 100}},
        {{.vbv = true, .incrementBits = 5, .increment = 2}, {0, 352, 288, 1250}},
        {{.verid = 2, .width = 8191, .height = 1}, {0, 8191, 1, -5}},
        {{.height = 1, .interlaced = true}, {-1, -5, -5, -5}}, // half of 1 is 0
        {{.shape = 1}, {-1, -5, -5, -5}},                      // binary
        {{.shape = 2}, {-1, -5, -5, -5}},                      // binary only
        {{.verid = 2, .shape = 3}, {-1, -5, -5, -5}}, // grey-scale, with its shape extension
    };
    for (const auto &[vol, expected] : cases) {
        std::array<int32_t, 4> got = {0, -5, -5, -5};
        got[0] = COM_ProcMpeg4VOL(vol.bytes().data(), &got[1], &got[2], &got[3]);
        EXPECT_EQ(got, expected) << vol.shape << " " << vol.width << " " << vol.resolution;
    }
}

} // namespace
