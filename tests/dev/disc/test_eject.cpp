// Ejecting: the CD-ROM request, the SCSI commands as the drive receives them,
// and the sweep over the enumerated drives.
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

const std::string kUsb = "SCSI emulation for USB Mass Storage devices";

// A node whose SG_IO request number failAt (from 1) is refused by the kernel.
struct FlakyNode : fake::ScsiNode {
    using ScsiNode::ScsiNode;
    int failAt = 0;
    int seen = 0;
    int ioctl(unsigned long code, void *arg) override
    {
        if (code == SG_IO && ++seen == failAt) {
            errno = EIO;
            return -1;
        }
        return ScsiNode::ioctl(code, arg);
    }
};

std::vector<unsigned long> codes(const fake::Device &node)
{
    std::vector<unsigned long> out;
    for (const fake::Request &r : node.requests()) {
        out.push_back(r.code);
    }
    return out;
}

TEST(Eject, CdromRequest)
{
    fake::OpenDrive d(media::kCdRom, "/dev/sr0");
    EXPECT_EQ(logOf([&] { EXPECT_EQ(EjectCdrom("/dev/sr0", d.fd), 0); }),
              "eject.cpp,N:EjectCdrom(): Try to eject '/dev/sr0' by CDROMEJECT command... DONE!\n");
    d.node->failures[CDROMEJECT] = EIO;
    EXPECT_EQ(logOf([&] { EXPECT_EQ(EjectCdrom("/dev/sr0", d.fd), -1); }),
              "eject.cpp,N:EjectCdrom(): Try to eject '/dev/sr0' by CDROMEJECT command... "
              "Failed (5:Input/output error)!\n");
    EXPECT_EQ(codes(*d.node), (std::vector<unsigned long>{CDROMEJECT, CDROMEJECT}));
    EXPECT_EQ(Dev_RescanScsiBus(), 0);
}

// The three commands, each alone in an otherwise fixed header, and the
// partitions read anew after them.
TEST(Eject, ScsiCommandsByteForByte)
{
    fake::OpenDrive d(media::kCdRom, "/dev/sr0");
    EXPECT_EQ(logOf([&] { EXPECT_EQ(EjectScsi("/dev/sr0", d.fd), 0); }),
              "eject.cpp,N:EjectScsi(): Try to eject '/dev/sr0' by SG_IO... DONE!\n");
    const std::vector<std::vector<uint8_t>> blocks = {
        {0x1E, 0, 0, 0, 0, 0}, {0x1B, 0, 0, 0, 1, 0}, {0x1B, 0, 0, 0, 2, 0}};
    ASSERT_EQ(d.drive->issued.size(), blocks.size());
    for (size_t i = 0; i < blocks.size(); ++i) {
        const sg_io_hdr_t &h = d.drive->issued[i].hdr;
        EXPECT_EQ(d.drive->issued[i].cdb, blocks[i]) << i;
        EXPECT_EQ(h.interface_id, 'S');
        EXPECT_EQ(h.dxfer_direction, SG_DXFER_NONE);
        EXPECT_EQ(h.cmd_len, 6);
        EXPECT_EQ(h.mx_sb_len, 32);
        EXPECT_EQ(h.dxfer_len, 0u);
        EXPECT_EQ(h.timeout, 2000u);
        EXPECT_EQ(h.iovec_count | h.flags | h.pack_id, 0u);
        EXPECT_TRUE(h.dxferp != nullptr && h.sbp != nullptr && h.usr_ptr == nullptr);
    }
    EXPECT_EQ(codes(*d.node),
              (std::vector<unsigned long>{SG_GET_VERSION_NUM, SG_IO, SG_IO, SG_IO, BLKRRPART}));
}

// A refused request ends the sequence with its own message; a drive's
// complaint (CHECK CONDITION) doesn't. No generic driver, or an old one: -1.
TEST(Eject, ScsiFailures)
{
    const struct {
        int failAt, sgVersion, versionErrno;
        const char *outcome;
        int result;
        size_t issued;
    } rows[] = {
        {1, 30536, 0, "Try to eject '/dev/sr0' by SG_IO... ALLOW_MEDIUM_REMOVAL failed", -1, 0},
        {2, 30536, 0, "Try to eject '/dev/sr0' by SG_IO... 1st START_STOP failed", -1, 1},
        {3, 30000, 0, "Try to eject '/dev/sr0' by SG_IO... 2nd START_STOP failed", -1, 2},
        {0, 29999, 0, "'/dev/sr0' not a sg device, or old sg driver\n", -1, 0},
        {0, 30536, ENOTTY, "'/dev/sr0' not a sg device, or old sg driver\n", -1, 0},
    };
    for (const auto &row : rows) {
        auto drive = std::make_shared<MmcDrive>(media::kCdRom);
        drive->failNext(0x1B, 2, fake::Sense{0x02, 0x3A, 0x00}); // no medium: not looked at
        auto node = std::make_shared<FlakyNode>(fake::ScsiAddress{}, drive);
        node->failAt = row.failAt;
        node->sgVersion = row.sgVersion;
        if (row.versionErrno != 0) {
            node->failures[SG_GET_VERSION_NUM] = row.versionErrno;
        }
        fake::addDevice("/dev/sr0", node);
        const int fd = open("/dev/sr0", O_RDONLY | O_NONBLOCK);
        const std::string end = row.failAt != 0 ? " (5:Input/output error)!\n" : "";
        EXPECT_EQ(logOf([&] { EXPECT_EQ(EjectScsi("/dev/sr0", fd), row.result); }),
                  "eject.cpp,N:EjectScsi(): " + std::string(row.outcome) + end);
        EXPECT_EQ(drive->issued.size(), row.issued);
        EXPECT_EQ(codes(*node).size(), 1 + row.issued); // the version, no BLKRRPART
        close(fd);
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
    // A drive's block node on its own host, and its generic node. The block
    // node has a drive of its own, so that it records the eject alone.
    std::shared_ptr<fake::ScsiNode> drive(int n, const std::string &host,
                                          const fake::Medium &medium)
    {
        const fake::ScsiAddress a{n, 0, 0, 0};
        auto probed = std::make_shared<MmcDrive>(medium);
        probed->product = "DRIVE " + std::to_string(n);
        fake::addScsiNode("/dev/sg" + std::to_string(n), a, probed);
        auto node = fake::addScsiNode("/dev/scd" + std::to_string(n), a,
                                      std::make_shared<MmcDrive>(medium));
        node->hostText = host;
        return node;
    }
    // The sweep's result and the lines of the eject operations.
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
    auto cd = drive(0, kUsb, media::kCdRom);
    auto dvd = drive(1, kUsb, media::kDvdR);
    auto internal = drive(2, "ata_piix", media::kCdRom);
    auto empty = drive(3, kUsb, media::kNone);
    auto silent = drive(4, kUsb, media::kCdRw); // GET CONFIGURATION refused: taken as a CD-ROM
    const auto sg4 = std::make_shared<MmcDrive>(media::kCdRw);
    sg4->failNext(0x46, 9, fake::Sense{0x05, 0x20, 0x00});
    fake::addScsiNode("/dev/sg4", {4, 0, 0, 0}, sg4);
    EXPECT_EQ(sweep(), "0\n"
                       "eject.cpp,N:EjectCdrom(): Try to eject '/dev/scd0' by CDROMEJECT "
                       "command... DONE!\n"
                       "eject.cpp,N:EjectCdrom(): Try to eject '/dev/scd4' by CDROMEJECT "
                       "command... DONE!\n");
    for (const auto &node : {dvd, internal, empty}) {
        for (const fake::Request &r : node->requests()) {
            EXPECT_NE(r.code, CDROMEJECT);
        }
    }
    EXPECT_EQ(codes(*cd).back(), CDROMEJECT);
    EXPECT_EQ(codes(*silent).back(), CDROMEJECT);
}

// A drive refusing both ways stays; the next one is still tried.
TEST_F(EjectSweep, NextDriveAfterAFailure)
{
    auto first = drive(0, kUsb, media::kCdRom);
    auto second = drive(1, kUsb, media::kCdRom);
    first->failures = second->failures = {{CDROMEJECT, EIO}};
    first->failures[SG_GET_VERSION_NUM] = ENOTTY;
    EXPECT_EQ(sweep(), "0\n"
                       "eject.cpp,N:EjectCdrom(): Try to eject '/dev/scd0' by CDROMEJECT "
                       "command... Failed (5:Input/output error)!\n"
                       "eject.cpp,N:EjectScsi(): '/dev/scd0' not a sg device, or old sg driver\n"
                       "eject.cpp,N:EjectCdrom(): Try to eject '/dev/scd1' by CDROMEJECT "
                       "command... Failed (5:Input/output error)!\n"
                       "eject.cpp,N:EjectScsi(): Try to eject '/dev/scd1' by SG_IO... DONE!\n");
    EXPECT_EQ(second->drive->opcodes(), (std::vector<uint8_t>{0x1E, 0x1B, 0x1B}));

    second->openErrno = ENOENT;
    EXPECT_EQ(sweep(), "-1\n"
                       "eject.cpp,N:EjectCdrom(): Try to eject '/dev/scd0' by CDROMEJECT "
                       "command... Failed (5:Input/output error)!\n"
                       "eject.cpp,N:EjectScsi(): '/dev/scd0' not a sg device, or old sg driver\n");
}

TEST_F(EjectSweep, NoUsbOpticalDrive)
{
    drive(0, "ata_piix", media::kCdRom);
    drive(1, kUsb, media::kDvdRom);
    EXPECT_EQ(sweep(), "-1\n");
}

} // namespace
