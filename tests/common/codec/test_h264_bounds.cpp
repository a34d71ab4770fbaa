// The readers never touch a byte behind the end of the caller's data: each
// unit is placed right before a page that can't be read.
#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include "COMMON.h"
#include "bit_writer.h"

namespace {

// Copies the bytes to the end of a page whose next page is unreadable.
const uint8_t *beforeGuardPage(const std::vector<uint8_t> &bytes)
{
    static const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    static auto *base = static_cast<uint8_t *>(
        mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    static const int guarded = mprotect(base + page, page, PROT_NONE);
    EXPECT_EQ(guarded, 0);
    return std::copy_backward(bytes.begin(), bytes.end(), base + page);
}

TEST(H264Bounds, UnitsEndingAtTheEndOfTheBuffer)
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
        EXPECT_EQ(COM_ProcH264SPS(beforeGuardPage(unit), &width, &height, 0, nullptr), 0);
        EXPECT_EQ(width * 1000 + height, 640480);
    }
    EXPECT_EQ(COM_GetH264SliceType(beforeGuardPage({0x88})), 1); // I slice: ue 0, ue 7
}

// The public reader takes nothing at or past its length: those bytes read as
// zero, while cur moves on with every fetch. A 3 behind two zeros is dropped.
TEST(H264Bounds, PublicReaderStaysInsideItsLength)
{
    COM_RBSP_READER r;
    const uint8_t *data = beforeGuardPage({0x00, 0x00, 0x03, 0x01, 0xAB, 0xCD});
    COM_RbspInit(&r, data, 6);
    EXPECT_EQ(r.cache, 0x0000'01ABu);
    EXPECT_EQ(COM_RbspRead(&r, 24), 0x0000'01u);
    EXPECT_EQ(COM_RbspRead(&r, 24), 0xABCD'00u);
    EXPECT_EQ(r.cur - data, 11);
    COM_RbspInit(&r, beforeGuardPage({0x12, 0x34, 0x56}), 3);
    EXPECT_EQ(r.cache, 0x1234'5600u);
}

} // namespace
