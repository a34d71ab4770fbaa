#include "DEV.h"
#include "com_log.h"
#include "fd_io.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/statfs.h>
#include <unistd.h>

// HDStat fills the front of the 64-byte info: the same offsets on the board
// (ILP32, uint64_t aligned to 8) and on a 64-bit host.
static_assert(offsetof(HDStat, blocks_free) == 8);
static_assert(offsetof(HDStat, total_bytes) == 16);
static_assert(offsetof(HDStat, free_bytes) == 24);
static_assert(offsetof(HDStat, device_bytes) == 32);
static_assert(sizeof(HDStat) == 40);

namespace {

constexpr char kTempParent[] = "/var";
constexpr char kRaidPrefix[] = "/dev/md";
constexpr uint64_t kSectorBytes = 512;

// Step 1: the size of the block device. A software RAID node keeps the size
// the record has.
void measureDevice(const char *dev, HDStat &stat)
{
    if (strstr(dev, kRaidPrefix) != nullptr) {
        return;
    }
    fdio::UniqueFd fd(open(dev, O_RDONLY | O_NONBLOCK));
    if (!fd.valid()) {
        COM_LOG_FAILED_CALL("Dev_GetHDStat", "open(%s) failed : %s\n", dev);
        return;
    }
    uint64_t bytes = 0;
    if (ioctl(fd.get(), BLKGETSIZE64, &bytes) != -1) {
        stat.device_bytes = bytes;
        return;
    }
    COM_LOG_FAILED_CALL("Dev_GetHDStat", "ioctl(BLKGETSIZE64, %s) error : %s\n", dev);
    unsigned long sectors = 0; // the kernel writes an unsigned long
    if (ioctl(fd.get(), BLKGETSIZE, &sectors) == -1) {
        COM_LOG_FAILED_CALL("Dev_GetHDStat", "ioctl(BLKGETSIZE, %s) error : %s\n", dev);
        sectors = 0;
    }
    stat.device_bytes = static_cast<uint64_t>(sectors) * kSectorBytes;
}

void readStatfs(const DevRecord &r, HDStat &stat)
{
    struct statfs fs {};
    if (statfs(r.mpt, &fs) != 0) {
        COM_LOG_FAILED_CALL("Dev_GetHDStat", "statfs(%s, %s) error : %s\n", r.dev, r.mpt);
        return;
    }
    stat.fs_type = static_cast<int32_t>(fs.f_type);
    stat.block_size = static_cast<int32_t>(fs.f_bsize);
    stat.blocks_free = static_cast<uint32_t>(fs.f_bfree);
    stat.blocks_total = static_cast<uint32_t>(fs.f_blocks);
    stat.total_bytes =
        static_cast<uint64_t>(stat.blocks_total) * static_cast<uint32_t>(stat.block_size);
    stat.free_bytes =
        static_cast<uint64_t>(stat.blocks_free) * static_cast<uint32_t>(stat.block_size);
}

// Step 5: takes the temporary mount point back. A mount that doesn't come
// off is detached lazily; the directory is then removed only when it is
// empty, so a disk's files are never deleted through a stale mount.
void releaseMountPoint(char *mpt)
{
    if (Dev_uMount(mpt) == 0) {
        COM_RemoveDirAndFile(1, mpt);
    } else if (umount2(mpt, MNT_DETACH) != 0) {
        COM_LOG_FAILED_CALL("Dev_GetHDStat", "umount2(%s, MNT_DETACH) failed : %s\n", mpt);
    } else if (rmdir(mpt) != 0) {
        COM_LOG_FAILED_CALL("Dev_GetHDStat", "rmdir(%s) failed : %s\n", mpt);
    }
    memset(mpt, 0, DEV_MPT_SIZE);
}

} // namespace

int Dev_GetHDStat(DevRecord *pDev, int fs)
{
    if (pDev == nullptr) {
        return -1;
    }
    HDStat stat;
    memcpy(&stat, pDev->info.bytes, sizeof stat);
    measureDevice(pDev->dev, stat);
    memcpy(pDev->info.bytes, &stat, sizeof stat);

    int state = 0;
    if (Dev_GetMPT(pDev->dev, pDev->mpt) != 0) {
        snprintf(pDev->mpt, sizeof pDev->mpt, "%s/%s_XXXXXX", kTempParent, __func__);
        if (mkdtemp(pDev->mpt) == nullptr) {
            COM_LOG_FAILED_CALL(__func__, "mkdtemp(%s) error : %s\n", pDev->mpt);
            return -1;
        }
        if (Dev_Mount(pDev->dev, pDev->mpt, fs) != 0) {
            COM_RemoveDirAndFile(1, pDev->mpt);
            memset(pDev->mpt, 0, sizeof pDev->mpt);
            return -1;
        }
        state = 1;
    }
    readStatfs(*pDev, stat);
    memcpy(pDev->info.bytes, &stat, sizeof stat);
    if (state == 1) {
        releaseMountPoint(pDev->mpt);
    }
    return state;
}
