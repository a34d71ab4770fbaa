#include "DEV.h"
#include "com_log.h"

#include <cctype>
#include <cstdio>
#include <cstring>
#include <sys/mount.h>

namespace {

// A device name with a partition digit: pSrc, the digit and a terminator
// (pSrc itself may have up to 82 characters).
constexpr size_t kPartitionNameSize = 84;
constexpr const char *kMountProgram = "/bin/mount";
constexpr size_t kNfsCommandSize = 512;

bool mountAs(const char *src, const char *dst, const FsEntry &row)
{
    const char *data = row.options != nullptr ? row.options : "";
    return mount(src, dst, row.name, MS_MGC_VAL | row.flags, data) == 0;
}

// Tries pSrc followed by each digit from first to last, in this order; on the
// automatic road only the names /proc/partitions lists.
bool mountPartitions(const char *pSrc, const char *pDst, const FsEntry &row, char first, char last,
                     bool listedOnly)
{
    for (char digit = first; digit <= last; ++digit) {
        char name[kPartitionNameSize];
        const int n = snprintf(name, sizeof name, "%s%c", pSrc, digit);
        if (n < 0 || static_cast<size_t>(n) >= sizeof name) {
            return false; // too long for a partition name: the disk is tried alone
        }
        if (listedOnly && Dev_IsInProcPartitions(name) != 0) {
            continue;
        }
        if (mountAs(name, pDst, row)) {
            return true;
        }
    }
    return false;
}

int mountKnown(const char *pSrc, const char *pDst, int fs, bool endsInDigit)
{
    if (fs == DEV_FS_NFS) {
        if (strchr(pSrc, ':') != nullptr) {
            return Dev_MountNfs(pSrc, pDst);
        }
        COM_LOG("Dev_Mount", "Try mount pSrc(%s) with wrong fs type(NFS)\n", pSrc);
        return -1;
    }
    const FsEntry &row = gFsArray[fs];
    bool mounted = !endsInDigit && mountPartitions(pSrc, pDst, row, '0', '8', false);
    if (!mounted) {
        mounted = mountAs(pSrc, pDst, row);
    }
    return mounted ? 0 : -1;
}

int mountProbing(const char *pSrc, const char *pDst, bool endsInDigit)
{
    if (gFsArrayReady == 0) {
        Dev_InitFsArray();
        gFsArrayReady = 1;
    }
    if (strchr(pSrc, ':') != nullptr) {
        return Dev_MountNfs(pSrc, pDst);
    }
    for (const FsEntry &row : gFsArray) {
        if (row.enabled == 0) {
            continue;
        }
        bool mounted = !endsInDigit && mountPartitions(pSrc, pDst, row, '1', '9', true);
        if (!mounted && Dev_IsInProcPartitions(pSrc) == 0) {
            mounted = mountAs(pSrc, pDst, row);
        }
        if (mounted) {
            return 0;
        }
    }
    return -1;
}

} // namespace

int Dev_Mount(const char *pSrc, const char *pDst, int fs)
{
    if (pSrc == nullptr) {
        COM_LOG(__func__, "pSrc == NULL\n");
        return -1;
    }
    const size_t length = strlen(pSrc);
    if (length == 0) {
        COM_LOG(__func__, "strlen(pSrc) == 0\n");
        return -1;
    }
    if (pDst == nullptr) {
        COM_LOG(__func__, "pDst == NULL\n");
        return -1;
    }
    const bool endsInDigit = pSrc[length - 1] >= '0' && pSrc[length - 1] <= '9';
    if (fs >= 0 && fs < DEV_FS_COUNT) {
        return mountKnown(pSrc, pDst, fs, endsInDigit);
    }
    return mountProbing(pSrc, pDst, endsInDigit);
}

int Dev_MountNfs(const char *pSrc, const char *pDst)
{
    if (pSrc == nullptr || pDst == nullptr) {
        return -1;
    }
    char command[kNfsCommandSize] = {};
    snprintf(command, sizeof command, "%s -t nfs -o %s %s %s", kMountProgram,
             gFsArray[DEV_FS_NFS].options, pSrc, pDst);
    return COM_System(command, nullptr);
}
