// Real mounts, run by tests/peers/test_mount.sh in a mount namespace of its
// own with loop disks (see there); skipped elsewhere.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fcntl.h>
#include <mntent.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "DEV.h"
#include "fake_scsi.h"
#include "test_support.h"

namespace {

using fake::logOf;

std::string env(const char *name)
{
    const char *value = getenv(name);
    return value != nullptr ? value : "";
}

class MountPeer : public testing::Test {
protected:
    void SetUp() override
    {
        if (work.empty()) {
            GTEST_SKIP() << "runs in tests/peers/test_mount.sh";
        }
    }
    // A new directory under the work area, made of base and 'x' up to length.
    std::string dir(const std::string &base, size_t length = 0)
    {
        std::string path = work + "/" + base;
        if (path.size() < length) {
            path.append(length - path.size(), 'x');
        }
        EXPECT_EQ(mkdir(path.c_str(), 0755), 0) << path;
        return path;
    }
    std::string work = env("DVR_MOUNT_WORK");
    std::string a = env("DVR_DISK_A"), b = env("DVR_DISK_B");
    std::string c = env("DVR_DISK_C"), d = env("DVR_DISK_D");
};

// The kernel's own view of a mount point, decoded by the C library: device,
// type, options of the uppermost mount.
struct Seen {
    std::string device, type, opts;
};
Seen seen(const std::string &dir)
{
    Seen s;
    FILE *f = setmntent("/proc/self/mounts", "r");
    for (const mntent *m; (m = getmntent(f)) != nullptr;) {
        if (dir == m->mnt_dir) {
            s = {m->mnt_fsname, m->mnt_type, m->mnt_opts};
        }
    }
    endmntent(f);
    return s;
}

// Which name mounts as what: the automatic road (10) tries digits 1-9 of
// partitions /proc/partitions lists, the whole of one file system before the
// next; a named one tries digits 0-8 whatever is listed, then the name.
TEST_F(MountPeer, NamedAndProbed)
{
    const std::string mnt = dir("m");
    // The first automatic mount reports the table once; this kernel lacks vfat.
    const std::string fsLog =
        logOf([&] { EXPECT_EQ(Dev_Mount((a + "p").c_str(), mnt.c_str(), 10), 0); });
    EXPECT_EQ(fsLog, logOf(Dev_InitFsArray));
    EXPECT_NE(fsLog.find("Dev_InitFsArray(): [2] vfat - Disable\n"), std::string::npos);
    EXPECT_EQ(seen(mnt).device, a + "p3"); // ext3 is tried first, on every partition
    EXPECT_EQ(Dev_uMount(mnt.c_str()), 0);

    const std::tuple<std::string, int, int, std::string, std::string> cases[] = {
        {a + "p3", 0, 0, a + "p3", "ext3"},
        {a + "p2", 0, -1, "", ""},           // no journal: not ext3
        {a + "p4", 1, -1, "", ""},           // ext4 features: not ext2
        {a + "p", 1, 0, a + "p2", "ext2"},   // p0 has no node, p1 no file system
        {b + "p", 1, -1, "", ""},            // p9 lies beyond the named road
        {b + "p", 10, 0, b + "p9", "ext2"},  // but not beyond the automatic one
        {c, 10, 0, c, "xfs"},                // a whole disk ending in a digit
        {c, 4, 0, c, "xfs"},                 //
        {d, 10, 0, d, "tmpfs"},              // no row fits btrfs; tmpfs takes any source
        {a + "p2", 2, -1, "", ""},           // no vfat in this kernel
        {a + "p", 6, -1, "", ""},            // nor iso9660
        {"127.0.0.1:/export", 8, 1, "", ""}, // nor an NFS client: a wait status
    };
    for (const auto &[src, fs, result, device, type] : cases) {
        int got = 0;
        logOf([&] { got = Dev_Mount(src.c_str(), mnt.c_str(), fs); });
        EXPECT_TRUE(result == 1 ? got != 0 : got == result) << src << " " << fs << ": " << got;
        const Seen s = seen(mnt);
        EXPECT_EQ(s.device, device) << src << " " << fs;
        EXPECT_EQ(s.type, type) << src << " " << fs;
        if (!device.empty()) {
            EXPECT_NE(s.opts.find("noatime"), std::string::npos) << s.opts;
            EXPECT_EQ(Dev_uMount(mnt.c_str()), 0);
        }
    }
}

// Busy, forced, not mounted; COM_Rmdir of a mount point with a blank.
TEST_F(MountPeer, Unmount)
{
    const std::string mnt = dir("u"), blank = dir("with blank");
    const std::string p3 = a + "p3";
    ASSERT_EQ(Dev_Mount(p3.c_str(), mnt.c_str(), 0), 0);
    int fd = open((mnt + "/busy").c_str(), O_CREAT | O_RDWR, 0644);
    const std::string prefix = "fs_umount.cpp,N:Dev_uMount";
    EXPECT_EQ(logOf([&] { EXPECT_EQ(Dev_uMount(mnt.c_str()), -1); }),
              prefix + "(): umount(" + mnt + ") failed : Device or resource busy\n");
    EXPECT_EQ(logOf([&] { EXPECT_EQ(Dev_uMount_Force(mnt.c_str()), -1); }),
              prefix + "_Force(): umount2(forced umount)(" + mnt +
                  ") failed : Device or resource busy\n");
    close(fd);
    EXPECT_EQ(Dev_uMount_Force(mnt.c_str()), 0);
    EXPECT_EQ(logOf([&] { EXPECT_EQ(Dev_uMount(mnt.c_str()), -1); }),
              prefix + "(): umount(" + mnt + ") failed : Invalid argument\n");

    ASSERT_EQ(Dev_Mount(p3.c_str(), blank.c_str(), 0), 0);
    fd = open((blank + "/busy").c_str(), O_RDWR);
    const std::string mounted =
        "fs_umount.cpp,N:COM_Rmdir(): \"" + p3 + "\" mounted on \"" + blank + "\"\n";
    EXPECT_EQ(logOf([&] { EXPECT_EQ(COM_Rmdir(blank.c_str()), -1); }),
              mounted + prefix + "(): umount(" + blank +
                  ") failed : Device or resource busy\nfs_umount.cpp,N:COM_Rmdir(): Dev_uMount(" +
                  blank + ") failed\n");
    close(fd);
    EXPECT_EQ(logOf([&] { EXPECT_EQ(COM_Rmdir(blank.c_str()), 0); }), mounted);
    EXPECT_NE(access(blank.c_str(), F_OK), 0);
}

// The queries on the namespace's /proc/mounts, over tmpfs mounts whose
// sources are chosen names: blanks written as \040, stacked mounts, paths
// against the 80-byte buffers and the 128-character entry fields, and lines
// longer than the 255 characters read of each.
TEST_F(MountPeer, Table)
{
    const std::string hd = dir("hd a"), stack = dir("stack");
    const std::string d127 = dir("e", 127), d128 = dir("f", 128);
    const std::string d240 = dir("g", 240), d250 = dir("h", 250);
    const std::pair<const char *, std::string> mounts[] = {
        {"/dev/hda1", hd}, {"lower1", stack}, {"upper2", stack}, {"long7", d127},
        {"long8", d128},   {"line1", d240},   {"line2", d250}};
    for (const auto &[src, path] : mounts) {
        ASSERT_EQ(Dev_Mount(src, path.c_str(), 9), 0) << src;
    }
    char mpt[DEV_MPT_SIZE] = "unchanged";
    EXPECT_EQ(Dev_nGetMPT("/dev/hda", mpt, 8), -1);
    EXPECT_STREQ(mpt, "unchanged");
    EXPECT_EQ(Dev_GetMPT("/dev/hda", mpt), 0);
    EXPECT_EQ(mpt, hd);
    EXPECT_EQ(Dev_GetMPT("long7", mpt), -1); // 127 characters don't fit in 80 bytes

    char device[DEV_MPT_SIZE] = {};
    const std::pair<std::string, std::string> byDir[] = {{stack, "upper2"},
                                                         {hd, "/dev/hda1"},
                                                         {d240, "line1"},
                                                         {d250, ""},
                                                         {d250.substr(0, 247), ""}};
    for (const auto &[path, expect] : byDir) {
        device[0] = '\0';
        EXPECT_EQ(Dev_GetDevViaMount(device, path.c_str()), expect.empty() ? -1 : 0) << path;
        EXPECT_EQ(device, expect);
    }

    const std::tuple<std::string, int, std::string, std::string> entries[] = {
        {stack, 0, "lower1", stack},
        {"/dev/hda1", 0, "/dev/hda1", hd},
        {d127, 0, "long7", d127},
        {d128, -1, "", ""},
        {"long8", -1, "", ""}};
    for (const auto &[key, result, dev, path] : entries) {
        MountEntry e{};
        EXPECT_EQ(Dev_GetEntryViaMtab(key.c_str(), &e), result) << key;
        EXPECT_EQ(e.device, dev);
        EXPECT_EQ(e.dir, path);
        EXPECT_STREQ(e.type, result == 0 ? "tmpfs" : "");
    }
    for (const auto &[src, path] : mounts) {
        EXPECT_EQ(Dev_uMount(path.c_str()), 0) << path;
    }
}

// /bin/mount is a stand-in here that records its arguments and exits 32.
TEST(MountStandIn, NfsCommand)
{
    const std::string args = env("DVR_MOUNT_ARGS");
    if (args.empty()) {
        GTEST_SKIP() << "runs in tests/peers/test_mount.sh";
    }
    const std::string line = "/bin/mount\n-t\nnfs\n-o\n"
                             "rw,rsize=1048576,wsize=1048576,soft,tcp,nolock,noatime\n"
                             "10.0.0.1:/export/a\nb\n/mnt/dst\n"; // no shell: a blank splits
    for (const int fs : {8, 10, -1}) {
        unlink(args.c_str());
        logOf([&] { EXPECT_EQ(Dev_Mount("10.0.0.1:/export/a b", "/mnt/dst", fs), 32 << 8); });
        EXPECT_EQ(fake::readFile(args), line) << fs;
    }
    unlink(args.c_str());
    // With another known file system the colon means nothing: the mount call.
    EXPECT_EQ(Dev_Mount("10.0.0.1:/export", "/nonexistent", 0), -1);
    EXPECT_NE(access(args.c_str(), F_OK), 0);
}

} // namespace
