#include "COMMON.h"
#include "com_log.h"
#include "fd_io.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {
constexpr const char *kPciDevices = "/proc/bus/pci/devices";
constexpr int kIdLineSize = 512;
constexpr int kCountLineSize = 256;

// Calls onMatch for each line of the PCI device list that holds the key,
// ignoring case, until it returns false. -1 if the list can't be read.
template <typename OnMatch>
int forEachPciLine(const char *func, const char *key, int lineSize, OnMatch onMatch)
{
    const fdio::UniqueFile file = fdio::openFile(kPciDevices, "r");
    if (!file) {
        COM_LOG_FAILED_CALL(func, "fopen(%s) error : %s\n", kPciDevices);
        return -1;
    }
    char line[kIdLineSize];
    for (;;) {
        memset(line, 0, sizeof line);
        if (fgets(line, lineSize, file.get()) == nullptr) {
            break;
        }
        if (COM_StrCaseStr(line, key) != nullptr && !onMatch(line)) {
            break;
        }
    }
    return 0;
}
} // namespace

int COM_GetPciDeviceId(const char *key, uint32_t *ids, int capacity)
{
    static constexpr const char *kFunc = "COM_GetPciDeviceId";
    if (key == nullptr || ids == nullptr) {
        COM_LOG(kFunc, "Warnning!! (*pBuf != NULL)\n");
        return -1;
    }
    int count = 0;
    if (capacity <= 0) {
        return 0; // no room: nothing to collect
    }
    const int rc = forEachPciLine(kFunc, key, kIdLineSize, [&](char *line) {
        char *save = nullptr;
        strtok_r(line, " \t", &save);
        if (const char *id = strtok_r(nullptr, " \t", &save)) {
            ids[count] = static_cast<uint32_t>(strtoul(id, nullptr, 16));
        }
        return ++count < capacity;
    });
    return rc < 0 ? -1 : count;
}

int COM_GetPciDevice(const char *key)
{
    static constexpr const char *kFunc = "COM_GetPciDevice";
    int result = -1;
    if (key == nullptr) {
        COM_LOG(kFunc, "Warnning!! (*pBuf != NULL)\n");
    } else {
        int count = 0;
        const int rc = forEachPciLine(kFunc, key, kCountLineSize, [&](char *) {
            ++count;
            return true;
        });
        result = rc < 0 ? -1 : count;
    }
    COM_LOG(nullptr, "Total %d devices(%s) found on \"%s\"\n", result,
            key != nullptr ? key : "(null)", kPciDevices);
    return result;
}
