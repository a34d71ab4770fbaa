// The readers never touch a byte behind the end of the caller's data: each
// unit is placed right before a page that can't be read.
#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include "COMMON.h"
#include "bit_writer.h"

namespace {

// Two pages, the second unreadable; at() copies bytes to the end of the first.
class H264Bounds : public testing::Test {
protected:
    void SetUp() override
    {
        page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        void *map =
            mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        ASSERT_NE(map, MAP_FAILED);
        base = static_cast<uint8_t *>(map);
        ASSERT_EQ(mprotect(base + page, page, PROT_NONE), 0);
    }
    void TearDown() override { munmap(base, 2 * page); }
    const uint8_t *at(const std::vector<uint8_t> &bytes)
    {
        uint8_t *start = base + page - bytes.size();
        std::copy(bytes.begin(), bytes.end(), start);
        return start;
    }
    size_t page = 0;
    uint8_t *base = nullptr;
};

TEST_F(H264Bounds, UnitsEndingAtTheEndOfTheBuffer)
{
    // Without VUI, as in MP4 headers and SDP lines; then one whose ue fields
    // hold 00 00 03 (23 leading zeros in num_ref_frames).
    const std::vector<uint8_t> units[] = {
        {0x42, 0xC0, 0x1E, 0xDA, 0x02, 0x80, 0xF6, 0x40},
        BitWriter()
            .put(0x4D4028, 24)
            .ue(0)
            .ue(0)
            .ue(2)
            .ue((1u << 23) - 1)
            .put(0, 1)
            .ue(39)
            .ue(29)
            .put(1, 1)
            .bytes(),
    };
    for (const auto &unit : units) {
        int32_t width = 0, height = 0;
        EXPECT_EQ(COM_ProcH264SPS(at(unit), &width, &height, 0, nullptr), 0);
        EXPECT_EQ(width * 1000 + height, 640480);
    }
    EXPECT_EQ(COM_GetH264SliceType(at({0x88})), 1); // I slice: ue 0, ue 7
}

// The public reader takes nothing at or past the length it was given: those
// bytes read as zero, while cur moves on with every fetch. A 3 behind two zero
// bytes of payload is dropped.
TEST_F(H264Bounds, PublicReaderStaysInsideItsLength)
{
    COM_RBSP_READER r;
    const uint8_t *data = at({0x00, 0x00, 0x03, 0x01, 0xAB, 0xCD});
    COM_RbspInit(&r, data, 6);
    EXPECT_EQ(r.cache, 0x0000'01ABu);
    EXPECT_EQ(COM_RbspRead(&r, 24), 0x0000'01u);
    EXPECT_EQ(COM_RbspRead(&r, 24), 0xABCD'00u);
    EXPECT_EQ(r.cur - data, 11);
    COM_RbspInit(&r, at({0x12, 0x34, 0x56}), 3);
    EXPECT_EQ(r.cache, 0x1234'5600u);
}

} // namespace
