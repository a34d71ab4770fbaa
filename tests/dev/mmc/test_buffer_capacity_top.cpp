// Buffer lengths near the top of 32 bits still round up to whole MiB.
#include <gtest/gtest.h>

#include "DEV.h"
#include "fake_scsi.h"

namespace {

TEST(DriveProbeTop, BufferSizeNearFourGiB)
{
    const std::pair<uint32_t, const char *> cases[] = {
        {0xFFF00000, "4095 MB"}, {0xFFF00001, "4096 MB"}, {0xFFFFFFFF, "4096 MB"}};
    fake::OpenDrive open(fake::media::kNone);
    for (const auto &[bytes, line] : cases) {
        open.drive->bufferBytes = bytes;
        EXPECT_EQ(fake::logOf([&] { Dev_ReadBufferCapacity("sr0", open.fd); }),
                  std::string("drive_probe.cpp,N:Dev_ReadBufferCapacity(): buffer_size = ") + line +
                      "\n");
    }
}

} // namespace
