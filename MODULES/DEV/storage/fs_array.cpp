#include "DEV.h"
#include "com_log.h"

#include <cstdio>
#include <cstring>
#include <sys/mount.h>

extern "C" {
FsEntry gFsArray[DEV_FS_COUNT] = {
    {1, "ext3", MS_NOATIME, nullptr},
    {1, "ext2", MS_NOATIME, nullptr},
    {1, "vfat", MS_NOATIME, nullptr},
    {1, "fat", MS_NOATIME, nullptr},
    {1, "xfs", MS_NOATIME, nullptr},
    {1, "jffs2", MS_NOATIME, nullptr},
    {1, "iso9660", MS_RDONLY, nullptr},
    {1, "smbfs", MS_NOATIME, nullptr},
    {1, "nfs", 0, "rw,rsize=1048576,wsize=1048576,soft,tcp,nolock,noatime"},
    {1, "tmpfs", MS_NOATIME, nullptr},
};
int gFsArrayReady = 0;
}

// On the board (ILP32) a row is four 4-byte words.
static_assert(sizeof(FsEntry) == 4 * sizeof(void *) || sizeof(void *) == 4);
static_assert(sizeof(void *) != 4 || sizeof(FsEntry) == 16);
static_assert(MS_NOATIME == 0x400 && MS_RDONLY == 0x001);

namespace {
constexpr const char *kProcFilesystems = "/proc/filesystems";
} // namespace

void Dev_InitFsArray(void)
{
    for (int i = 0; i < DEV_FS_COUNT; ++i) {
        FsEntry &row = gFsArray[i];
        // /proc/filesystems writes "nodev" or nothing, a tab, then the name:
        // the tab keeps "fat" from matching the line of vfat.
        COM_ITEM item{};
        snprintf(item.key, sizeof item.key, "\t%s", row.name);
        item.keyLen = static_cast<int>(strlen(item.key));
        COM_ITEM_LIST list{1, 1, 1, 0, &item};
        if (COM_ReplaceItemsInFile(kProcFilesystems, &list) < 1) {
            row.enabled = 0;
        }
        COM_LOG(__func__, "[%d] %s - %s\n", i, row.name, row.enabled ? "Enable" : "Disable");
    }
}
