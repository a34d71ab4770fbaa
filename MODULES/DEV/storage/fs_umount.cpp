#include "DEV.h"
#include "com_log.h"
#include "fd_io.h"

#include <cstring>
#include <sys/mount.h>
#include <unistd.h>

namespace {

// Unmounts by the given call; after an NFS unmount the server is told by the
// UMNT call, whose outcome doesn't change the result.
template <typename Call>
int unmount(const char *func, const char *pDst, const char *callText, Call &&call)
{
    if (pDst == nullptr) {
        return -1;
    }
    MountEntry entry{};
    const bool nfs = Dev_GetEntryViaMtab(pDst, &entry) == 0 &&
                     strcmp(entry.type, gFsArray[DEV_FS_NFS].name) == 0;
    const int result = call();
    if (result != 0) {
        COM_LOG_FAILED_CALL(func, "%s(%s) failed : %s\n", callText, pDst);
    } else if (nfs) {
        Dev_NfsUmountRpc(entry.device, entry.opts);
    }
    return result;
}

} // namespace

int Dev_uMount(const char *pDst)
{
    return unmount(__func__, pDst, "umount", [pDst] { return umount(pDst); });
}

int Dev_uMount_Force(const char *pDst)
{
    return unmount(__func__, pDst, "umount2(forced umount)",
                   [pDst] { return umount2(pDst, MNT_FORCE); });
}

int COM_Rmdir(const char *path)
{
    if (path == nullptr) {
        return -1;
    }
    char device[DEV_MPT_SIZE] = {};
    if (Dev_GetDevViaMount(device, path) == 0) {
        COM_LOG("COM_Rmdir", "\"%s\" mounted on \"%s\"\n", device, path);
        const int result = Dev_uMount(path);
        if (result != 0) {
            COM_LOG("COM_Rmdir", "Dev_uMount(%s) failed\n", path);
            return result;
        }
    }
    const int result = rmdir(path);
    if (result != 0) {
        COM_LOG_FAILED_CALL("COM_Rmdir", "rmdir(%s) failed : %s\n", path);
    }
    return result;
}
