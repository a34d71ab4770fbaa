// Buffer lengths near the top of 32 bits still round up to whole MiB.
#include <gtest/gtest.h>

#include "DEV.h"
#include "fake_scsi.h"

TEST(DriveProbeTop, BufferSizeNearFourGiB)
{
    const std::pair<uint32_t, int> cases[] = {{0xFFF00000, 4095}, {0xFFF00001, 4096}, {~0u, 4096}};
    fake::OpenDrive open(fake::media::kNone);
    for (const auto &[bytes, mib] : cases) {
        open.drive->bufferBytes = bytes;
        EXPECT_EQ(fake::logOf([&] { Dev_ReadBufferCapacity("sr0", open.fd); }),
                  "drive_probe.cpp,N:Dev_ReadBufferCapacity(): buffer_size = " +
                      std::to_string(mib) + " MB\n");
    }
}
