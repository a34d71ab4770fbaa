// Disk statistics and the ID file on real file systems, run by
// tests/peers/test_storage.sh in a private mount namespace where /dev/hda
// (ext2, 8 MiB, unmounted), /dev/hdb (ext3, mounted), /dev/hdc (blank) and
// /dev/md0 (the device of hda) stand on loop devices.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "DEV.h"
#include "test_support.h"

namespace {

// The statfs figures of a record as `stat -f -c '%t %S %b %f'` prints them
// (type in hex, block size, blocks, free blocks), then the two byte counts.
std::string figures(const HDStat &hd)
{
    char text[128];
    snprintf(text, sizeof text, "%x %d %u %u %llu %llu", hd.fs_type, hd.block_size, hd.blocks_total,
             hd.blocks_free, static_cast<unsigned long long>(hd.total_bytes),
             static_cast<unsigned long long>(hd.free_bytes));
    return text;
}

std::string reference(const char *variable)
{
    unsigned long long type, size, blocks, free;
    std::istringstream(getenv(variable)) >> std::hex >> type >> std::dec >> size >> blocks >> free;
    return std::string(getenv(variable)) + " " + std::to_string(blocks * size) + " " +
           std::to_string(free * size);
}

class StoragePeer : public testing::Test {
protected:
    void SetUp() override
    {
        if (work == nullptr) {
            GTEST_SKIP() << "run by tests/peers/test_storage.sh";
        }
        fake::redirect("/proc/partitions",
                       dir.write("partitions", "major minor  #blocks  name\n\n   7  0  8192 hda\n"
                                               "   7  1  6144 hdb\n   7  2  4096 hdc\n"
                                               "   7  0  8192 md0\n"));
    }
    DevRecord record(const char *dev)
    {
        DevRecord r{};
        snprintf(r.dev, sizeof r.dev, "%s", dev);
        return r;
    }
    const std::string noMpt = std::string(DEV_MPT_SIZE, '\0');

    const char *work = getenv("DVR_STORAGE_PEER");
    fake::TempDir dir;
};

TEST_F(StoragePeer, MeasuredOnItsMountOrOneForTheMoment)
{
    DevRecord hda = record("/dev/hda");
    EXPECT_EQ(Dev_GetHDStat(&hda, DEV_FS_AUTO), 1);
    EXPECT_EQ(hda.info.hd.device_bytes, 8u << 20);
    EXPECT_EQ(figures(hda.info.hd), reference("DVR_STORAGE_REF_A"));
    EXPECT_EQ(std::string(hda.mpt, sizeof hda.mpt), noMpt);
    char mpt[DEV_MPT_SIZE];
    EXPECT_EQ(Dev_GetMPT("/dev/hda", mpt), -1); // unmounted again
    EXPECT_TRUE(std::filesystem::is_empty("/var"));

    DevRecord md0 = record("/dev/md0"); // software RAID: its size stays as found
    md0.info.hd.device_bytes = 12345;
    EXPECT_EQ(Dev_GetHDStat(&md0, 1), 1);
    EXPECT_EQ(md0.info.hd.device_bytes, 12345u);
    EXPECT_EQ(figures(md0.info.hd), reference("DVR_STORAGE_REF_A"));

    DevRecord hdc = record("/dev/hdc"); // no file system (as ext2: the automatic road ends
    // at tmpfs, which takes any source)
    EXPECT_EQ(Dev_GetHDStat(&hdc, 1), -1);
    EXPECT_EQ(hdc.info.hd.device_bytes, 4u << 20);
    EXPECT_EQ(std::string(hdc.mpt, sizeof hdc.mpt), noMpt);
    EXPECT_TRUE(std::filesystem::is_empty("/var"));

    // Already mounted: measured where it is, and its ID file made there.
    const std::string mounted = std::string(work) + "/mnt/hdb";
    DevRecord hdb = record("/dev/hdb");
    EXPECT_EQ(Dev_GetHDStat(&hdb, DEV_FS_AUTO), 0);
    EXPECT_EQ(hdb.mpt, mounted);
    EXPECT_EQ(hdb.info.hd.device_bytes, 6u << 20);
    EXPECT_EQ(figures(hdb.info.hd), reference("DVR_STORAGE_REF_B"));

    fake::redirect("/proc/ide", DVR_TEST_DATA_DIR "/storage/proc_ide");
    char id[DEV_ID_SIZE] = {};
    EXPECT_EQ(Dev_GetIDViaDev(id, "/dev/hdb"), 0);
    EXPECT_STREQ(id, "S1234567            ");
    EXPECT_EQ(fake::readFile(mounted + "/ID"), "S1234567            ");
    EXPECT_EQ(Dev_GetIDViaMount(id, mounted.c_str()), 0); // now read from the file
    EXPECT_STREQ(id, "S1234567            ");
}

} // namespace
