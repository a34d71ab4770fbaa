// Drive probing against the fake drive: readiness tries on the fake clock,
// the buffer size, the model text, and the classification by profile.
#include <gtest/gtest.h>

#include <algorithm>

#include "DEV.h"
#include "fake_scsi.h"

namespace {

using fake::logOf;
using fake::Sense;
namespace media = fake::media;
using Bytes = std::vector<uint8_t>;

// A drive without a medium costs three tries and three seconds, on the fake clock.
TEST(DriveProbe, ReadinessTriesSleepASecondAfterEachFailure)
{
    fake::clock::enable();
    for (const int failures : {0, 1, 2, 3}) {
        fake::OpenDrive open(failures < 3 ? media::kCdRom : media::kNone);
        open.drive->failNext(0x00, failures, Sense{0x02, 0x04, 0x01});
        const int64_t before = fake::clock::sleptNs();
        const std::string log =
            logOf([&] { EXPECT_EQ(Dev_TestUnitReady(nullptr, open.fd), failures < 3 ? 1 : 0); });
        EXPECT_EQ(open.drive->issued.size(), static_cast<size_t>(std::min(failures + 1, 3)));
        EXPECT_EQ(fake::clock::sleptNs() - before, failures * 1'000'000'000LL);
        EXPECT_EQ(
            log.size(),
            failures *
                std::string("mmc_exec.cpp,N:Dev_ExecMMC(): (() TEST UNIT READY) Fail\n").size());
    }
}

TEST(DriveProbe, BufferSizeInWholeMegabytes)
{
    const std::pair<uint32_t, const char *> cases[] = {
        {0x100001, "2 MB"}, {0x200000, "2 MB"}, {0x100000, "???"}, {0x1000000, "16 MB"}};
    fake::OpenDrive open(media::kNone);
    for (const auto &[bytes, line] : cases) {
        open.drive->bufferBytes = bytes;
        EXPECT_EQ(logOf([&] { EXPECT_EQ(Dev_ReadBufferCapacity("sr0", open.fd), 1); }),
                  std::string("drive_probe.cpp,N:Dev_ReadBufferCapacity(): buffer_size = ") + line +
                      "\n");
    }
    open.drive->failNext(0x5C, 1, Sense{0x05, 0x20, 0x00});
    logOf([&] { EXPECT_EQ(Dev_ReadBufferCapacity("sr0", open.fd), 0); });
}

// The four lines without a model buffer; with one, the model text from
// vendor and product. A failed command leaves the buffer alone.
TEST(DriveProbe, InquiryLinesAndModelText)
{
    fake::OpenDrive open(media::kNone);
    EXPECT_EQ(logOf([&] { EXPECT_EQ(Dev_Inquiry("sr0", open.fd, nullptr), 1); }),
              "drive_probe.cpp,N: [sr0] : pModel = (nil)\n"
              "drive_probe.cpp,N: Vendor          = HL-DT-ST\n"
              "drive_probe.cpp,N: Product ID      = DVDRAM GSA-4083N\n"
              "drive_probe.cpp,N: Revision        = 1.00\n");
    struct Case {
        std::string vendor, product;
        const char *model;
    };
    const Case cases[] = {
        {"HL-DT-ST", "DVDRAM GSA-4083N", "HLDTSTDVDRAM GSA4083N"},
        {"PIONEER ", "DVD-RW  DVR-108 ", "PIONEER DVDRW DVR108"},
        {"_NEC    ", " DVD_RW ND-3550A", "NEC DVDRW ND3550A"},
        {"        ", "                ", ""},
        {std::string("\0ABCDEFG", 8), "DVD", ""},
        {"A.B-C   ", "\tx", "ABC x"},
    };
    for (const Case &c : cases) {
        open.drive->vendor = c.vendor;
        open.drive->product = c.product;
        char model[DEV_INQUIRY_MODEL_SIZE];
        memset(model, 'Z', sizeof model);
        const std::string log = logOf([&] { EXPECT_EQ(Dev_Inquiry("sr0", open.fd, model), 1); });
        EXPECT_STREQ(model, c.model) << c.vendor;
        EXPECT_NE(log.find(std::string("drive_probe.cpp,N: pModel = [") + c.model + "]\n"),
                  std::string::npos);
        // What the compaction freed is zeroed, up to where the text ended.
        const size_t end = c.vendor[0] != '\0' ? 24 : 0;
        EXPECT_EQ(std::count(model, model + end, '\0'), static_cast<long>(end - strlen(model)))
            << c.vendor;
    }
    open.drive->failNext(0x12, 1, Sense{0x04, 0x44, 0x00});
    char model[DEV_INQUIRY_MODEL_SIZE] = "kept";
    logOf([&] { EXPECT_EQ(Dev_Inquiry("sr0", open.fd, model), 0); });
    EXPECT_STREQ(model, "kept");
}

// Every row of the profile table, and profiles outside it: a type3 of 9 is
// reset to 0 where the row has none, appendable is left alone.
TEST(DriveProbe, ProfilesClassifyTheDisc)
{
    struct Case {
        uint16_t profile;
        const char *message;
        int type1, type2, type3, result;
    };
    const Case cases[] = {
        {0x0008, "It's CD-ROM and CANNOT be used for export!\n", 1, 1, 0, 0},
        {0x0009, "It's CD-R and supported!\n", 1, 2, 0, 1},
        {0x000A, "It's CD-RW and supported!\n", 1, 3, 0, 1},
        {0x0010, "It's DVD-ROM and supported!\n", 2, 1, 0, 1},
        {0x0011, "It's DVD-R Sequential Recording and supported!\n", 3, 2, 0, 1},
        {0x0012, "It's DVD-RAM but NOT supported!\n", 5, 4, 0, 0},
        {0x0013, "It's DVD-RW Restricted Overwrite and supported!\n", 3, 3, 2, 1},
        {0x0014, "It's DVD-RW Sequential Recording and supported!\n", 3, 3, 1, 1},
        {0x001A, "It's DVD+RW and supported!\n", 4, 3, 0, 1},
        {0x001B, "It's DVD+R and supported!\n", 4, 2, 0, 1},
        {0x0020, "It's DDCD-ROM and CANNOT be used for export!\n", 6, 1, 0, 0},
        {0x0021, "It's DDCD-R but NOT supported!\n", 6, 2, 0, 0},
        {0x0022, "It's DDCD-RW but NOT supported!\n", 6, 3, 0, 0},
        {0x0040, "It's BD-ROM and supported!\n", 7, 1, 0, 1},
        {0x0043, "Disc type(0x0043) unreconfized and unsupported!\n", 1, 1, 0, 0},
        {0x0015, "Disc type(0x0015) unreconfized and unsupported!\n", 1, 1, 0, 0},
        {0x0050, "Disc type(0x0050) unreconfized and unsupported!\n", 1, 1, 0, 0},
        {0x0000, "Disc type(0x0000) unreconfized and unsupported!\n", 1, 1, 0, 0},
    };
    for (const Case &c : cases) {
        fake::Medium medium = c.profile != 0 ? media::kDvdRom : media::kNone;
        medium.profile = c.profile;
        fake::OpenDrive open(medium);
        DiscInfo info{};
        info.type3 = 9;
        info.appendable = 5;
        const std::string log =
            logOf([&] { EXPECT_EQ(Dev_GetConfiguration("sr0", open.fd, &info), c.result); });
        EXPECT_EQ(log.substr(log.rfind("drive_probe.cpp")),
                  std::string("drive_probe.cpp,N:Dev_GetConfiguration(): ") + c.message);
        EXPECT_EQ(std::tuple(info.type1, info.type2, info.type3, info.appendable),
                  std::tuple(c.type1, c.type2, c.type3, 5))
            << c.message;
    }
}

// The header reply is dumped on success; a failed command leaves the preset.
TEST(DriveProbe, ConfigurationDumpAndFailure)
{
    fake::OpenDrive open(media::kBdR);
    DiscInfo info{};
    EXPECT_EQ(logOf([&] { EXPECT_EQ(Dev_GetConfiguration(nullptr, open.fd, &info), 0); }),
              "mmc_exec.cpp,N:Dev_ExecMMC(): (() GET CONFIGURATION) Success\n\n"
              "0000h  00 00 00 0C 00 00 00 41 " +
                  std::string(24, ' ') +
                  "|.......A|\n\n"
                  "drive_probe.cpp,N:Dev_GetConfiguration(): Disc type(0x0041) unreconfized and "
                  "unsupported!\n");

    info = {7, 3, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    open.drive->failNext(0x46, 1, Sense{0x02, 0x3A, 0x00});
    logOf([&] { EXPECT_EQ(Dev_GetConfiguration("sr0", open.fd, &info), 0); });
    EXPECT_EQ(std::tuple(info.type1, info.type2, info.type3), std::tuple(1, 1, 0));
}

} // namespace
