// Enumeration over recorded /proc/ide texts and fake SCSI nodes: the printed
// device list against its golden file, the /dev/sd nodes made in the test's
// root, and a full array.
#include <gtest/gtest.h>

#include <filesystem>
#include <linux/fs.h>
#include <scsi/scsi.h>
#include <sstream>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include "DEV.h"
#include "fake_scsi.h"
#include "test_support.h"

namespace {

using fake::addScsiNode;
using fake::MmcDrive;
using fake::ScsiAddress;

const std::string kData = DVR_TEST_DATA_DIR "/storage";
const std::string kUsb = "SCSI emulation for USB Mass Storage devices";

class DevEnum : public testing::Test {
protected:
    void SetUp() override
    {
        fake::hideScsiNodes();
        fake::clock::enable(); // not-ready drives cost three tries of a second
        fake::redirect("/proc/ide", kData + "/proc_ide");
        fake::redirect("/proc/mounts",
                       dir.write("mounts", "/dev/hda1 /nonexistent/hda1 ext3 rw\n"));
        fake::redirect("/proc/partitions", dir.write("partitions", "")); // nothing mounts
        fake::redirect("/var", dir.file("var"));
        std::filesystem::create_directories(dir.file("var"));
        for (char c = 'a'; c <= 'z'; ++c) {
            fake::redirect(std::string("/dev/sd") + c, dir.file(std::string("sd") + c));
        }
        fsReady = gFsArrayReady;
        gFsArrayReady = 1; // no file-system probing in the log
    }
    void TearDown() override { gFsArrayReady = fsReady; }

    // A block node on a host, and its generic node in the map.
    std::shared_ptr<fake::ScsiNode> device(const std::string &path, const std::string &sg,
                                           ScsiAddress a, const std::string &host, uint64_t bytes,
                                           const fake::Medium &medium = fake::media::kDisk)
    {
        auto drive = std::make_shared<MmcDrive>(medium);
        if (medium.profile == 0 && medium.present) {
            drive->vendor = "SanDisk";
            drive->product = "Cruzer Blade";
        }
        addScsiNode(sg, a, drive);
        auto node = addScsiNode(path, a, drive);
        node->hostText = host;
        node->bytes = bytes;
        return node;
    }
    void ideNode(char letter, uint64_t bytes)
    {
        addScsiNode(std::string("/dev/hd") + letter, {})->bytes = bytes;
    }
    // The lines of the enumeration and the disk statistics, and the list.
    static std::string ownLines(const std::string &log)
    {
        std::istringstream in(log);
        std::string out, line;
        while (std::getline(in, line)) {
            for (const char *start : {"dev_enum.cpp", "disk_stat.cpp", "  pDev["}) {
                out += line.starts_with(start) ? line + "\n" : "";
            }
        }
        return out;
    }

    fake::TempDir dir;
    DevRecord devs[DEV_MAX_DEVICES] = {};
    int fsReady = 0;
};

TEST_F(DevEnum, ListOfDisksAndDrives)
{
    for (char letter : {'a', 'b', 'd', 'e'}) {
        ideNode(letter, (80ull << 30) + letter);
    }
    device("/dev/sda", "/dev/sg0", {0, 0, 0, 0}, kUsb, 8ull << 30);
    device("/dev/sdb", "/dev/sg1", {1, 0, 3, 0}, "IEEE-1394 SBP-2 storage", 1ull << 40)
        ->failures[BLKGETSIZE64] = ENOTTY; // sectors instead
    device("/dev/sdc", "/dev/sg2", {2, 0, 0, 0}, kUsb, 1ull << 30, fake::media::kNone);
    addScsiNode("/dev/sdd", {9, 0, 0, 0})->failures[SCSI_IOCTL_GET_BUS_NUMBER] = EIO;
    addScsiNode("/dev/sde", {9, 0, 0, 0})->failures[SCSI_IOCTL_GET_IDLUN] = EIO;
    addScsiNode("/dev/sdf", {9, 0, 0, 0}); // no host text, no generic node
    device("/dev/sdq", "/dev/sg3", {3, 0, 1, 0}, "ata_piix", 500ull << 30);
    device("/dev/scd0", "/dev/sg4", {4, 0, 0, 0}, "SCSI emulation for IEEE-1394 SBP-2", 0,
           fake::media::kNone);
    addScsiNode("/dev/sr0", {4, 0, 0, 0})->hostText = "usb-storage"; // USB only at byte 19
    device("/dev/nst0", "/dev/sg5", {5, 0, 2, 1}, kUsb, 0, fake::media::kDvdRom);

    const std::string log =
        fake::withoutLineNumbers(fake::captureStdout([&] { EXPECT_EQ(Dev_Get(devs), 10); }));
    EXPECT_EQ(ownLines(log), fake::readFile(kData + "/dev_get.golden")) << log;

    EXPECT_STREQ(devs[0].mpt, "/nonexistent/hda1");
    EXPECT_EQ(devs[2].model[0], '\0'); // hdd: counted, not printed
    EXPECT_TRUE(std::filesystem::is_empty(dir.file("var")));
    for (const auto &[name, number] : {std::pair{"sda", makedev(8, 0)},
                                       {"sdp", makedev(8, 240)},
                                       {"sdq", makedev(65, 0)},
                                       {"sdz", makedev(65, 144)}}) {
        struct stat st {};
        EXPECT_TRUE(stat(dir.file(name).c_str(), &st) == 0 && S_ISBLK(st.st_mode)) << name;
        EXPECT_EQ(st.st_rdev, number) << name;
    }
    EXPECT_EQ(fake::logOf([] { EXPECT_EQ(Dev_Get(nullptr), 0); }),
              "dev_enum.cpp,N:Dev_Get(): ((nil)) : Null Ptr\n");
}

// Eight IDE disks and 24 SCSI disks fill the array; the 25th SCSI node is
// never asked.
TEST_F(DevEnum, FullArray)
{
    const std::string ide = dir.file("ide");
    std::filesystem::create_directories(ide);
    for (char letter = 'a'; letter <= 'h'; ++letter) {
        std::filesystem::copy(kData + "/proc_ide/hda", ide + "/hd" + letter);
        ideNode(letter, 1ull << 30);
    }
    fake::redirect("/proc/ide", ide);
    std::shared_ptr<fake::ScsiNode> last;
    for (int i = 0; i < 25; ++i) {
        last = device(std::string("/dev/sd") + static_cast<char>('a' + i),
                      "/dev/sg" + std::to_string(i), {i, 0, 0, 0}, kUsb, 1ull << 30);
    }
    fake::captureStdout([&] { EXPECT_EQ(Dev_Get(devs), DEV_MAX_DEVICES); });
    EXPECT_STREQ(devs[7].dev, "/dev/hdh");
    EXPECT_EQ(devs[7].id, 'h');
    EXPECT_STREQ(devs[31].dev, "/dev/sdx");
    EXPECT_STREQ(devs[31].sg, "/dev/sg23");
    EXPECT_EQ(devs[31].info.hd.device_bytes, 1ull << 30);
    EXPECT_TRUE(last->requests().empty()); // /dev/sdy
}

} // namespace
