// Mounting without a kernel: the UMNT argument's XDR bytes, the file systems
// /proc/filesystems enables, the partition line test and the refusals that
// come before any mount or RPC.
#include <gtest/gtest.h>

#include <rpc/xdr.h>
#include <string>
#include <algorithm>
#include <vector>

#include "DEV.h"
#include "fake_scsi.h"
#include "proc_partitions.h"
#include "test_support.h"

namespace {

using fake::logOf;

// Length as a big-endian word, the bytes, zeros up to a multiple of four.
TEST(NfsXdr, DirPathBytes)
{
    for (const size_t length : {0, 1, 4, 5, 1024, 1025}) {
        std::string path(length, 'p');
        for (size_t i = 0; i < length; ++i) {
            path[i] = static_cast<char>('a' + i % 26);
        }
        // Length word, big-endian, then the bytes padded to a multiple of four.
        std::vector<uint8_t> expect(4 + (length + 3) / 4 * 4, 0);
        for (int i = 0; i < 4; ++i) {
            expect[i] = static_cast<uint8_t>(length >> (24 - 8 * i));
        }
        std::copy(path.begin(), path.end(), expect.begin() + 4);

        std::vector<uint8_t> buf(2048, 0xEE);
        XDR xdrs;
        xdrmem_create(&xdrs, reinterpret_cast<char *>(buf.data()), buf.size(), XDR_ENCODE);
        char *p = path.data();
        const int ok = Dev_XdrDirPath(&xdrs, &p);
        EXPECT_EQ(ok != 0, length <= DEV_NFS_PATH_MAX) << length;
        if (ok != 0) {
            EXPECT_EQ(xdr_getpos(&xdrs), expect.size()) << length;
            EXPECT_EQ(std::vector<uint8_t>(buf.begin(), buf.begin() + expect.size()), expect);
        }
        xdr_destroy(&xdrs);
    }
}

// A row is enabled by a tab and its name anywhere in a line: "nodev<tab>nfs"
// counts, vfat's line doesn't enable fat. Disabled rows stay so.
TEST(FsArray, EnabledByProcFilesystems)
{
    fake::TempDir dir;
    fake::redirect("/proc/filesystems",
                   dir.write("filesystems", "nodev\tsysfs\n\text3\n\text2\nnodev\tnfs\n\tvfat\n"));
    const std::string log = logOf(Dev_InitFsArray);
    const std::string second = logOf(Dev_InitFsArray);
    for (FsEntry &row : gFsArray) {
        row.enabled = 1;
    }
    EXPECT_EQ(log, fake::logLines("fs_array.cpp,N:Dev_InitFsArray(): ",
                                  "[0] ext3 - Enable\n|[1] ext2 - Enable\n|[2] vfat - Enable\n|"
                                  "[3] fat - Disable\n|[4] xfs - Disable\n|[5] jffs2 - Disable\n|"
                                  "[6] iso9660 - Disable\n|[7] smbfs - Disable\n|"
                                  "[8] nfs - Enable\n|[9] tmpfs - Disable\n"));
    EXPECT_EQ(second, log);
}

TEST(ProcPartitions, LineNamesDevice)
{
    const std::tuple<const char *, const char *, bool> cases[] = {
        {"   3     1    1004 hda1\n", "hda1", true}, {"   3     1    1004 hda1\n", "hda", false},
        {"   8     0  976762 SDA\n", "sda", true},   {"   8     0  976762 sda", "sda", true},
        {"   8     0  976762 sda\r\n", "sda", true}, {" 259 0 16384 loop0p1\n", "loop0p", false},
    };
    for (const auto &[line, name, found] : cases) {
        EXPECT_EQ(dev::partitionLineNames(line, name), found) << line << name;
    }
    EXPECT_EQ(Dev_IsInProcPartitions(nullptr), -1);
    EXPECT_EQ(Dev_IsInProcPartitions("/dev/"), -1);
}

// Refused before any mount attempt or RPC.
TEST(FsMount, Refusals)
{
    const std::string prefix = "fs_mount.cpp,N:Dev_Mount(): ";
    EXPECT_EQ(logOf([] { EXPECT_EQ(Dev_Mount(nullptr, "/mnt", 0), -1); }),
              prefix + "pSrc == NULL\n");
    EXPECT_EQ(logOf([] { EXPECT_EQ(Dev_Mount("", "/mnt", 0), -1); }),
              prefix + "strlen(pSrc) == 0\n");
    EXPECT_EQ(logOf([] { EXPECT_EQ(Dev_Mount("/dev/sda", nullptr, 0), -1); }),
              prefix + "pDst == NULL\n");
    EXPECT_EQ(logOf([] { EXPECT_EQ(Dev_Mount("/dev/sda1", "/mnt", 8), -1); }),
              prefix + "Try mount pSrc(/dev/sda1) with wrong fs type(NFS)\n");
    EXPECT_EQ(Dev_uMount(nullptr), -1);
    EXPECT_EQ(Dev_uMount_Force(nullptr), -1);
    EXPECT_EQ(Dev_MountNfs(nullptr, "/mnt"), -1);
    const std::string longHost(80, 'h');
    const std::string longHostSpec = longHost + ".test:/x";
    const std::string longPath = "10.0.0.1:/" + std::string(79, 'p');
    const char *sources[] = {nullptr, "no-colon", "nohost:/export", longHostSpec.c_str(),
                             longPath.c_str()};
    for (const char *source : sources) {
        EXPECT_EQ(Dev_NfsUmountRpc(source, nullptr), 1) << (source ? source : "null");
    }
    EXPECT_EQ(Dev_NfsUmountRpc("10.0.0.1:/x", ("addr=" + longHost).c_str()), 1);
}

} // namespace
