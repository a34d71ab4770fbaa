// The header parsers on streams and images made by real encoders (x264, Xvid,
// ffmpeg, ImageMagick), against what the encoders' own tools report for them
// (tests/data/media/expected.txt, written by make_fixtures.sh). Each file is
// read into a buffer of exactly its size, so ASan sees any read past it.
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <memory>
#include <sstream>

#include "COMMON.h"
#include "test_support.h"

namespace {

const std::string kMediaDir = DVR_TEST_DATA_DIR "/media/";

struct Media {
    std::unique_ptr<uint8_t[]> bytes;
    int32_t size = 0;
};

Media load(const std::string &name)
{
    const std::string content = fake::readFile(kMediaDir + name);
    Media m{std::make_unique<uint8_t[]>(content.size()), static_cast<int32_t>(content.size())};
    std::copy(content.begin(), content.end(), m.bytes.get());
    return m;
}

using Words = std::vector<std::string>;

// The lines of expected.txt, split into words; only those that begin with
// kind when it is given.
std::vector<Words> expected(const std::string &kind = "")
{
    std::ifstream in(kMediaDir + "expected.txt");
    std::vector<Words> lines;
    for (std::string line; std::getline(in, line);) {
        std::istringstream words(line);
        Words w;
        for (std::string word; words >> word;) {
            w.push_back(word);
        }
        if (!w.empty() && w[0] != "#" && (kind.empty() || w[0] == kind)) {
            lines.push_back(w);
        }
    }
    return lines;
}

int32_t num(const std::string &s)
{
    return static_cast<int32_t>(std::stol(s));
}

// One H.264 unit as the script lists it: offset of its 00 00 01, whether a
// fourth zero stands before it, type, then "sps", "slice" or "sei" fields.
struct Unit {
    int32_t offset;
    bool longStart;
    int32_t type;
    std::vector<std::string> rest;
};

std::map<std::string, std::vector<Unit>> h264Streams()
{
    std::map<std::string, std::vector<Unit>> streams;
    std::string file;
    for (const Words &w : expected()) {
        if (w[0] == "h264") {
            file = w[1];
        } else if (w[0] == "unit") {
            streams[file].push_back({num(w[1]), w[2] == "1", num(w[3]), {w.begin() + 4, w.end()}});
        }
    }
    return streams;
}

int sliceKind(int32_t sliceType)
{
    constexpr int kinds[] = {2, 3, 1, 2, 1};
    return kinds[sliceType % 5];
}

TEST(MediaFixtures, H264StreamsMatchTraceHeaders)
{
    const auto streams = h264Streams();
    ASSERT_EQ(streams.size(), 5u);
    for (const auto &[file, units] : streams) {
        SCOPED_TRACE(file);
        const Media m = load(file);
        ASSERT_GT(m.size, 0);

        // The search sees the units behind 00 00 00 01 only, in order.
        std::vector<std::pair<int32_t, int32_t>> found, wanted;
        int32_t type = -1;
        for (int32_t pos = 0, at; (at = COM_FindH264NAL(m.bytes.get() + pos, m.size - pos, &type)) >= 0;) {
            found.emplace_back(pos + at, type);
            pos += at + 4;
        }
        int32_t sei = -1, seiType = -7, seiSize = -7;
        for (const Unit &u : units) {
            if (u.longStart) {
                wanted.emplace_back(u.offset - 1, u.type);
                if (u.type == 6 && sei < 0) {
                    sei = u.offset - 1;
                    seiType = num(u.rest.at(1));
                    seiSize = num(u.rest.at(2));
                }
            }
        }
        EXPECT_EQ(found, wanted);
        int32_t t = -7, s = -7;
        EXPECT_EQ(COM_FindH264SEI(m.bytes.get(), m.size, &t, &s), sei);
        EXPECT_EQ(t, seiType);
        EXPECT_EQ(s, seiSize);

        // Parameter sets and slices behind any start code.
        for (const Unit &u : units) {
            const uint8_t *payload = m.bytes.get() + u.offset + 4;
            if (u.rest.empty()) {
                continue;
            }
            if (u.rest[0] == "sps") {
                int32_t w = 0, h = 0, profile = 0;
                EXPECT_EQ(COM_ProcH264SPS(payload, &w, &h, 0, &profile), 0);
                EXPECT_EQ(profile, num(u.rest[1]));
                EXPECT_EQ(w, (num(u.rest[4]) + 1) * 16);
                EXPECT_EQ(h, (num(u.rest[5]) + 1) * 16);
                if (file == "h264_main_1920x1080.264") {
                    EXPECT_EQ(h, 1088); // coded size: no cropping
                }
            } else if (u.rest[0] == "slice") {
                EXPECT_EQ(COM_GetH264SliceType(payload), sliceKind(num(u.rest[2]))) << u.offset;
            }
        }
    }
}

TEST(MediaFixtures, Mpeg4LayersMatchFfprobe)
{
    const auto lines = expected("mpeg4");
    ASSERT_EQ(lines.size(), 6u);
    for (const auto &w : lines) {
        SCOPED_TRACE(w[1]);
        const Media m = load(w[1]);
        int32_t vol = -1;
        for (int32_t i = 0; i + 4 < m.size && vol < 0; ++i) {
            const uint8_t *p = m.bytes.get() + i;
            if (p[0] == 0 && p[1] == 0 && p[2] == 1 && (p[3] & 0xF0) == 0x20) {
                vol = i + 4;
            }
        }
        ASSERT_GE(vol, 0);
        const int32_t divisor = w[4] == "1" ? 1 : 2; // interlaced: size of a field
        const int32_t fps = w[7] == "1" ? num(w[5]) * 100 / num(w[6]) : -5;
        int32_t width = -5, height = -5, rate = -5;
        EXPECT_EQ(COM_ProcMpeg4VOL(m.bytes.get() + vol, &width, &height, &rate), 0);
        EXPECT_EQ(width, num(w[2]) / divisor);
        EXPECT_EQ(height, num(w[3]) / divisor);
        EXPECT_EQ(rate, fps);
    }
}

TEST(MediaFixtures, JpegFramesMatchIdentify)
{
    const auto lines = expected("jpeg");
    ASSERT_EQ(lines.size(), 4u);
    for (const auto &w : lines) {
        SCOPED_TRACE(w[1]);
        const Media m = load(w[1]);
        // Walk the segments from the start of image to the start of frame.
        int32_t sof = -1;
        for (int32_t i = 2; i + 3 < m.size && sof < 0;) {
            ASSERT_EQ(m.bytes[i], 0xFF);
            const uint8_t code = m.bytes[i + 1];
            if (code >= 0xC0 && code <= 0xCF && code != 0xC4 && code != 0xC8 && code != 0xCC) {
                sof = i + 1;
            }
            i += 2 + (m.bytes[i + 2] << 8 | m.bytes[i + 3]);
        }
        ASSERT_GE(sof, 0);
        const bool grey = w[4] == "Gray"; // one component: no size from this parser
        int32_t width = -5, height = -5;
        EXPECT_EQ(COM_ProcJpegSOF(m.bytes.get() + sof, &width, &height), grey ? -1 : 0);
        EXPECT_EQ(width, grey ? -5 : num(w[2]));
        EXPECT_EQ(height, grey ? -5 : num(w[3]));
    }
}

} // namespace
