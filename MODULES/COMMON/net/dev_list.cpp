// Interface-name lists from the kernel's tables /proc/net/dev and
// /proc/net/wireless.
#include "fd_io.h"
#include "net_text.h"

namespace {
constexpr int kDeviceLineSize = 256;
} // namespace

int COM_GetDeviceFromProc(COM_NET_DEV_NAME **list, const char *path)
{
    if (list == nullptr || *list != nullptr) {
        COM_LOG(__func__, "Warnning!! (*pBuf != NULL)\n");
        return -1;
    }
    fdio::UniqueFile table = fdio::openFile(path, "re");
    if (!table) {
        COM_LOG_FAILED_CALL(__func__, "fopen(%s) error : %s\n", path);
        return -1;
    }
    char line[kDeviceLineSize];
    int count = 0;
    while (fgets(line, sizeof line, table.get()) != nullptr) {
        COM_NET_DEV_NAME name;
        if (!net::parseDeviceLine(line, name)) {
            continue;
        }
        if (COM_ReallocAndCopyBuf((count + 1) * COM_NET_DEV_NAME_SIZE, list,
                                  count * COM_NET_DEV_NAME_SIZE, name,
                                  COM_NET_DEV_NAME_SIZE) == nullptr) {
            COM_LOG_FAILED_CALL(__func__, "REALLOC() failed : %s\n");
            continue;
        }
        ++count;
    }
    return count;
}

int COM_GetNetDevices(COM_NET_DEV_NAME **list)
{
    return COM_GetDeviceFromProc(list, "/proc/net/dev");
}

int COM_GetWirelessDevices(COM_NET_DEV_NAME **list)
{
    return COM_GetDeviceFromProc(list, "/proc/net/wireless");
}
