// Disk statistics and the ID file on real file systems, run by
// tests/peers/test_storage.sh in a private mount namespace where /dev/hda
// (ext2, 8 MiB, unmounted), /dev/hdb (ext3, mounted), /dev/hdc (blank) and
// /dev/md0 (the device of hda) stand on loop devices.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <vector>

#include "DEV.h"
#include "test_support.h"

namespace {

// statfs figures as `stat -f -c '%t %S %b %f'` printed them.
struct Figures {
    unsigned type = 0, blockSize = 0, blocks = 0, free = 0;
};

Figures figures(const char *variable)
{
    Figures f;
    std::istringstream(getenv(variable) != nullptr ? getenv(variable) : "") >> std::hex >> f.type >>
        std::dec >> f.blockSize >> f.blocks >> f.free;
    return f;
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
    void expectFigures(const HDStat &hd, const Figures &f)
    {
        EXPECT_EQ(
            std::vector<uint64_t>({uint32_t(hd.fs_type), uint32_t(hd.block_size), hd.blocks_total,
                                   hd.blocks_free, hd.total_bytes, hd.free_bytes}),
            std::vector<uint64_t>({f.type, f.blockSize, f.blocks, f.free,
                                   uint64_t{f.blocks} * f.blockSize,
                                   uint64_t{f.free} * f.blockSize}));
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

TEST_F(StoragePeer, MountedForTheMomentAndTakenBack)
{
    DevRecord hda = record("/dev/hda");
    EXPECT_EQ(Dev_GetHDStat(&hda, DEV_FS_AUTO), 1);
    EXPECT_EQ(hda.info.hd.device_bytes, 8u << 20);
    expectFigures(hda.info.hd, figures("DVR_STORAGE_REF_A"));
    EXPECT_EQ(std::string(hda.mpt, sizeof hda.mpt), noMpt);
    char mpt[DEV_MPT_SIZE];
    EXPECT_EQ(Dev_GetMPT("/dev/hda", mpt), -1); // unmounted again
    EXPECT_TRUE(std::filesystem::is_empty("/var"));

    DevRecord md0 = record("/dev/md0"); // software RAID: its size stays as found
    md0.info.hd.device_bytes = 12345;
    EXPECT_EQ(Dev_GetHDStat(&md0, 1), 1);
    EXPECT_EQ(md0.info.hd.device_bytes, 12345u);
    expectFigures(md0.info.hd, figures("DVR_STORAGE_REF_A"));

    DevRecord hdc = record("/dev/hdc"); // no file system (as ext2: the automatic road ends
    // at tmpfs, which takes any source)
    EXPECT_EQ(Dev_GetHDStat(&hdc, 1), -1);
    EXPECT_EQ(hdc.info.hd.device_bytes, 4u << 20);
    EXPECT_EQ(std::string(hdc.mpt, sizeof hdc.mpt), noMpt);
    EXPECT_TRUE(std::filesystem::is_empty("/var"));
}

TEST_F(StoragePeer, AlreadyMountedAndItsIdFile)
{
    const std::string mounted = std::string(work) + "/mnt/hdb";
    DevRecord hdb = record("/dev/hdb");
    EXPECT_EQ(Dev_GetHDStat(&hdb, DEV_FS_AUTO), 0);
    EXPECT_EQ(hdb.mpt, mounted);
    EXPECT_EQ(hdb.info.hd.device_bytes, 6u << 20);
    expectFigures(hdb.info.hd, figures("DVR_STORAGE_REF_B"));

    fake::redirect("/proc/ide", DVR_TEST_DATA_DIR "/storage/proc_ide");
    char id[DEV_ID_SIZE] = {};
    EXPECT_EQ(Dev_GetIDViaDev(id, "/dev/hdb"), 0);
    EXPECT_STREQ(id, "S1234567            ");
    EXPECT_EQ(fake::readFile(mounted + "/ID"), "S1234567            ");
    EXPECT_EQ(Dev_GetIDViaMount(id, mounted.c_str()), 0); // now read from the file
    EXPECT_STREQ(id, "S1234567            ");
}

} // namespace
