#include "DEV.h"
#include "com_log.h"
#include "fd_io.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

constexpr char kIdFileName[] = "ID";
constexpr size_t kIdPathSize = 256;
constexpr size_t kSerialBufferSize = 24;
constexpr char kIdeDiskPrefix[] = "/dev/hd";

// Cuts the partition number off a device name: /dev/hdb3 becomes /dev/hdb.
void cutPartitionNumber(char *name)
{
    for (size_t n = strlen(name); n > 1 && isdigit(static_cast<unsigned char>(name[n - 1])); --n) {
        name[n - 1] = '\0';
    }
}

// Reads the first line of the ID file into pID: 0, or -1 for a file
// without a line.
int readIdLine(FILE *file, char *pID)
{
    char line[DEV_ID_SIZE] = {};
    if (fgets(line, sizeof line, file) == nullptr) {
        return -1;
    }
    memcpy(pID, line, strlen(line) + 1);
    return 0;
}

} // namespace

int Dev_SaveIDViaMount(const char *pMPT)
{
    char device[DEV_MOUNT_DEVICE_SIZE] = {};
    if (Dev_GetDevViaMount(device, pMPT) != 0 ||
        strncmp(device, kIdeDiskPrefix, sizeof kIdeDiskPrefix - 1) != 0) {
        return -1;
    }
    cutPartitionNumber(device);
    char serial[kSerialBufferSize] = {};
    if (Dev_GetDevIdentify(device, serial, nullptr, nullptr) != 0) {
        return -1;
    }
    return COM_SaveID(pMPT, serial);
}

int Dev_GetIDViaMount(char *pID, const char *pMPT)
{
    if (pID == nullptr || pMPT == nullptr) {
        COM_LOG(__func__, "(%p, %p) : Null ptr\n", static_cast<void *>(pID),
                static_cast<const void *>(pMPT));
        return -1;
    }
    char path[kIdPathSize];
    snprintf(path, sizeof path, "%s/%s", pMPT, kIdFileName);
    fdio::UniqueFile file = fdio::openFile(path, "r");
    if (!file && errno == ENOENT) {
        // The first question for a disk's ID makes its ID file.
        if (Dev_SaveIDViaMount(pMPT) != 0) {
            return -1;
        }
        file = fdio::openFile(path, "r");
    }
    if (!file) {
        COM_LOG_FAILED_CALL(__func__, "fopen(%s) error : %s\n", path);
        return -1;
    }
    return readIdLine(file.get(), pID);
}

int Dev_GetIDViaDev(char *pID, const char *pDev)
{
    char mpt[DEV_MPT_SIZE] = {};
    if (Dev_GetMPT(pDev, mpt) != 0) {
        return -1;
    }
    return Dev_GetIDViaMount(pID, mpt);
}
