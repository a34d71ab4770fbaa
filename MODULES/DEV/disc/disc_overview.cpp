#include "DEV.h"
#include "com_log.h"
#include "fd_io.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/statfs.h>
#include <unistd.h>

namespace {

constexpr char kMountParent[] = "/var";
constexpr mode_t kMountPointMode = 0755;
constexpr int kUnmountTries = 3;
constexpr useconds_t kUnmountPauseUs = 500000;
constexpr int kNoMedium = -129;
constexpr int kUnusable = -130;

// The refusals before any work: 1 for a null record, 2 for a hard disk, else 0.
int refusal(const DevRecord *pDev, const char *func)
{
    if (pDev == nullptr) {
        COM_LOG(func, "Get Null ptr\n");
        return 1;
    }
    if (pDev->cdrom == 0) {
        COM_LOG(func, "%s is HDD type\n", pDev->dev);
        return 2;
    }
    return 0;
}

// Mounts the disc of pDev read-only on a fixed directory under /var and
// takes the size of its file system, free blocks included, as the used
// space. The directory stays behind.
int trialMount(DevRecord *pDev, const char *leaf, const char *func)
{
    if (const int refused = refusal(pDev, func); refused != 0) {
        return refused;
    }
    char path[DEV_MPT_SIZE];
    snprintf(path, sizeof path, "%s/%s", kMountParent, leaf);
    if (COM_Mkdir(path, kMountPointMode) != 0) {
        COM_LOG_FAILED_CALL(func, "COM_Mkdir(%s) error : %s\n", path);
        return -1;
    }
    umount(path); // a mount left over from an earlier call
    if (Dev_Mount(pDev->dev, path, DEV_FS_ISO9660) != 0) {
        COM_LOG_FAILED_CALL(func, "Dev_Mount(%s, %s) error : %s\n", pDev->dev, path);
        return -2;
    }
    int result = 0;
    struct statfs fs {};
    if (statfs(path, &fs) == 0) {
        DiscInfo &d = pDev->info.disc;
        d.used_capacity =
            static_cast<uint64_t>(fs.f_blocks) * static_cast<uint64_t>(fs.f_bsize) / 1024;
        COM_LOG(func, "(%s) : used_capacity = %llu\n", pDev->dev,
                static_cast<unsigned long long>(d.used_capacity));
    } else {
        COM_LOG_FAILED_CALL(func, "statfs(%s,%s) error : %s\n", pDev->dev, path);
        result = -3;
    }
    for (int i = 0; i < kUnmountTries; ++i) {
        if (umount(path) == 0) {
            break;
        }
        usleep(kUnmountPauseUs);
    }
    return result;
}

// What follows the classification, by disc family; their results don't
// change the overview's.
void readDisc(DevRecord &r, int fd)
{
    DiscInfo &d = r.info.disc;
    bool appended = false;
    switch (d.type1) {
    case DISC_TYPE1_CD:
        Dev_GetCdInfo(r.dev, fd, &d);
        break;
    case DISC_TYPE1_DVD_MINUS:
        Dev_GetDvdInfo(r.dev, fd, &d);
        // A restricted overwrite disc holds a file system once anything is written.
        appended = d.appendable == DISC_STATUS_INCOMPLETE || d.appendable == DISC_STATUS_FINALIZED;
        if (d.type2 == DISC_TYPE2_RW && d.type3 == DISC_TYPE3_RESTRICTED_OVERWRITE && appended) {
            Dev_GetDvdMinusRwInfo(&r);
        }
        break;
    case DISC_TYPE1_DVD_PLUS:
        Dev_GetDvdInfo(r.dev, fd, &d);
        if (d.type2 == DISC_TYPE2_RW && d.appendable == DISC_STATUS_FINALIZED) {
            Dev_GetDvdPlusRwInfo(&r);
        }
        break;
    case DISC_TYPE1_BD:
        Dev_GetBDInfo(r.dev, fd, &d);
        break;
    default:
        break;
    }
}

} // namespace

int Dev_GetDvdPlusRwInfo(DevRecord *pDev)
{
    return trialMount(pDev, "dvd_plus_rw", __func__);
}

int Dev_GetDvdMinusRwInfo(DevRecord *pDev)
{
    return trialMount(pDev, "dvd_minus_rw", __func__);
}

int Dev_GetBDReInfo(DevRecord *pDev)
{
    return trialMount(pDev, "bd_re", __func__);
}

int Dev_GetDiscInfo(DevRecord *pDev)
{
    if (const int refused = refusal(pDev, __func__); refused != 0) {
        return refused;
    }
    fdio::UniqueFd fd(open(pDev->sg, O_RDWR | O_NONBLOCK));
    if (!fd.valid()) {
        COM_LOG_FAILED_CALL(__func__, "open(%s/%s) fail : %s\n", pDev->dev, pDev->sg);
        return -1;
    }
    memset(&pDev->info, 0, sizeof pDev->info);
    DiscInfo &d = pDev->info.disc;
    pDev->ready = static_cast<uint8_t>(Dev_TestUnitReady(pDev->dev, fd.get()));
    if (pDev->ready == 0) {
        return kNoMedium;
    }
    Dev_Inquiry(pDev->dev, fd.get(), nullptr); // for the log only
    if (Dev_GetConfiguration(pDev->dev, fd.get(), &d) == 0) {
        COM_LOG(__func__, "(%s,%s) : Unknown/Unsupport CD/DVD Specs\n", pDev->dev, pDev->sg);
        return kUnusable;
    }
    readDisc(*pDev, fd.get());
    return 0;
}
