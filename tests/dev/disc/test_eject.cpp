// The SCSI eject commands as the drive receives them; the sweep's progress.
#include <gtest/gtest.h>

#include <cerrno>
#include <fcntl.h>
#include <linux/cdrom.h>
#include <linux/fs.h>
#include <sstream>

#include "DEV.h"
#include "fake_scsi.h"
#include "test_support.h"

namespace {

using fake::logOf;
using fake::MmcDrive;
namespace media = fake::media;

// A node that refuses its SG_IO request number failAt (from 1), unrecorded.
struct FlakyNode : fake::ScsiNode {
    using ScsiNode::ScsiNode;
    int failAt = 0;
    int ioctl(unsigned long code, void *arg) override
    {
        if (code == SG_IO && --failAt == 0) {
            errno = EIO;
            return -1;
        }
        return ScsiNode::ioctl(code, arg);
    }
};

// Each command alone in an otherwise fixed header, then the partitions anew.
// A refused request ends the sequence with its own message; a drive's
// complaint (CHECK CONDITION) doesn't. No generic driver, or an old one: -1.
TEST(Eject, ScsiCommandsByteForByte)
{
    const struct {
        int failAt, sgVersion;
        const char *outcome;
    } rows[] = {
        {0, 30000, "Try to eject '/dev/sr0' by SG_IO... DONE!\n"},
        {1, 30536, "Try to eject '/dev/sr0' by SG_IO... ALLOW_MEDIUM_REMOVAL failed"},
        {2, 30536, "Try to eject '/dev/sr0' by SG_IO... 1st START_STOP failed"},
        {3, 30536, "Try to eject '/dev/sr0' by SG_IO... 2nd START_STOP failed"},
        {-1, 29999, "'/dev/sr0' not a sg device, or old sg driver\n"},
    };
    const std::vector<std::vector<uint8_t>> blocks = {
        {0x1E, 0, 0, 0, 0, 0}, {0x1B, 0, 0, 0, 1, 0}, {0x1B, 0, 0, 0, 2, 0}};
    for (const auto &row : rows) {
        auto drive = std::make_shared<MmcDrive>(media::kCdRom);
        drive->failNext(0x1B, 2, fake::Sense{0x02, 0x3A, 0x00}); // no medium: not looked at
        auto node = std::make_shared<FlakyNode>(fake::ScsiAddress{}, drive);
        node->failAt = row.failAt;
        node->sgVersion = row.sgVersion;
        fake::addDevice("/dev/sr0", node);
        const int fd = open("/dev/sr0", O_RDONLY | O_NONBLOCK);
        const std::string end = row.failAt > 0 ? " (5:Input/output error)!\n" : "";
        EXPECT_EQ(logOf([&] { EXPECT_EQ(EjectScsi("/dev/sr0", fd), row.failAt == 0 ? 0 : -1); }),
                  "eject.cpp,N:EjectScsi(): " + std::string(row.outcome) + end);
        close(fd);
        const size_t sent = row.failAt == 0 ? 3 : row.failAt < 0 ? 0 : row.failAt - 1;
        ASSERT_EQ(drive->issued.size(), sent);
        for (size_t i = 0; i < sent; ++i) {
            const sg_io_hdr_t &h = drive->issued[i].hdr;
            EXPECT_EQ(drive->issued[i].cdb, blocks[i]) << i;
            EXPECT_EQ(
                std::tie(h.interface_id, h.dxfer_direction, h.cmd_len, h.mx_sb_len, h.dxfer_len,
                         h.timeout, h.flags),
                std::make_tuple(int{'S'}, SG_DXFER_NONE, uint8_t{6}, uint8_t{32}, 0u, 2000u, 0u));
            EXPECT_TRUE(h.dxferp != nullptr && h.sbp != nullptr);
        }
        // The version first; BLKRRPART only after the last command.
        const auto requests = node->requests();
        EXPECT_EQ(requests.size(), 1 + sent + (row.failAt == 0 ? 1 : 0));
        EXPECT_EQ(requests.back().code, row.failAt == 0 ? BLKRRPART
                                        : sent != 0     ? SG_IO
                                                        : SG_GET_VERSION_NUM);
    }
}

class EjectSweep : public testing::Test {
protected:
    void SetUp() override
    {
        fake::hideScsiNodes();
        fake::clock::enable(); // a drive without a medium costs three tries of a second
        fake::redirect("/proc/ide", dir.path());
    }
    // /dev/scd<n> on host n, with a drive of its own, and /dev/sg<n>.
    std::shared_ptr<fake::ScsiNode> drive(int n, const fake::Medium &medium, bool usb = true)
    {
        const fake::ScsiAddress a{n, 0, 0, 0};
        fake::addScsiNode("/dev/sg" + std::to_string(n), a, std::make_shared<MmcDrive>(medium));
        auto node = fake::addScsiNode("/dev/scd" + std::to_string(n), a,
                                      std::make_shared<MmcDrive>(medium));
        node->hostText = usb ? "SCSI emulation for USB Mass Storage devices" : "ata_piix";
        return node;
    }
    static std::string sweep()
    {
        int result = 0;
        std::istringstream in(logOf([&] { result = Dev_EjectUsbCdrom(); }));
        std::string out = std::to_string(result) + "\n", line;
        while (std::getline(in, line)) {
            out += line.starts_with("eject.cpp") ? line + "\n" : "";
        }
        return out;
    }

    fake::TempDir dir;
};

TEST_F(EjectSweep, OnlyUsbDrivesWithCdRoms)
{
    auto cd = drive(0, media::kCdRom);
    drive(1, media::kDvdR);
    drive(2, media::kCdRom, false);
    drive(3, media::kNone);
    auto silent = drive(4, media::kCdRw); // GET CONFIGURATION refused: taken as a CD-ROM
    const auto sg4 = std::make_shared<MmcDrive>(media::kCdRw);
    sg4->failNext(0x46, 9, fake::Sense{0x05, 0x20, 0x00});
    fake::addScsiNode("/dev/sg4", {4, 0, 0, 0}, sg4);
    EXPECT_EQ(sweep(), "0\n"
                       "eject.cpp,N:EjectCdrom(): Try to eject '/dev/scd0' by CDROMEJECT "
                       "command... DONE!\n"
                       "eject.cpp,N:EjectCdrom(): Try to eject '/dev/scd4' by CDROMEJECT "
                       "command... DONE!\n");
    cd->openErrno = silent->openErrno = ENOENT; // no USB drive with a CD-ROM left
    EXPECT_EQ(sweep(), "-1\n");
    EXPECT_EQ(Dev_RescanScsiBus(), 0);
}

// A drive refusing both ways stays; the next one is still tried.
TEST_F(EjectSweep, NextDriveAfterAFailure)
{
    auto first = drive(0, media::kCdRom);
    auto second = drive(1, media::kCdRom);
    first->failures = second->failures = {{CDROMEJECT, EIO}};
    first->failures[SG_GET_VERSION_NUM] = ENOTTY;
    const std::string firstLines =
        "eject.cpp,N:EjectCdrom(): Try to eject '/dev/scd0' by CDROMEJECT command... Failed "
        "(5:Input/output error)!\n"
        "eject.cpp,N:EjectScsi(): '/dev/scd0' not a sg device, or old sg driver\n";
    EXPECT_EQ(sweep(), "0\n" + firstLines +
                           "eject.cpp,N:EjectCdrom(): Try to eject '/dev/scd1' by CDROMEJECT "
                           "command... Failed (5:Input/output error)!\n"
                           "eject.cpp,N:EjectScsi(): Try to eject '/dev/scd1' by SG_IO... DONE!\n");
    second->openErrno = ENOENT;
    EXPECT_EQ(sweep(), "-1\n" + firstLines);
}

} // namespace
