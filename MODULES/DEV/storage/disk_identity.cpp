#include "DEV.h"
#include "com_log.h"
#include "dev_text.h"
#include "fd_io.h"
#include "ide_text.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>

namespace {

constexpr size_t kProcPathSize = 128;

struct FreeDigits {
    void operator()(char *p) const { free(p); }
};

// The hexadecimal digits of an open /proc/ide file and their number.
struct HexDigits {
    std::unique_ptr<char, FreeDigits> digits;
    int count = -1;

    explicit HexDigits(int fd)
    {
        char *buffer = nullptr;
        count = COM_ReadHexDataInStrFormat(fd, &buffer);
        digits.reset(buffer);
    }
};

// /proc/ide/<name>/<file>, with the name behind the last '/' of the device.
void procIdePath(char (&path)[kProcPathSize], const char *device, const char *file)
{
    const char *slash = strrchr(device, '/');
    snprintf(path, sizeof path, "/proc/ide/%s/%s", slash != nullptr ? slash + 1 : device, file);
}

} // namespace

int Dev_GetDevIdentify(const char *pDevPath, char *pSN, char *pFwRev, char *pModel)
{
    if (pDevPath == nullptr || (pSN == nullptr && pFwRev == nullptr && pModel == nullptr)) {
        COM_LOG(__func__, "Invalid input : (pDevPath, pSN, pFwRev, pModel) = (%p, %p, %p, %p)\n",
                static_cast<const void *>(pDevPath), static_cast<void *>(pSN),
                static_cast<void *>(pFwRev), static_cast<void *>(pModel));
        return -1;
    }
    char path[kProcPathSize];
    procIdePath(path, pDevPath, "identify");
    fdio::UniqueFd fd(open(path, O_RDONLY));
    if (!fd.valid()) {
        return -1; // not an IDE disk
    }
    const HexDigits hex(fd.get());
    if (hex.count < 0) {
        return -1;
    }
    if (!dev::identifyTexts(hex.digits.get(), hex.count, pSN, pFwRev, pModel)) {
        COM_LOG(__func__, "count error : (count, size, limit) = (%d, %d, %d)\n", hex.count / 2,
                hex.count, dev::kIdentifyMinBytes);
        return -1;
    }
    return 0;
}

int Dev_GetSmartValue(const char *pDev, SmartValue *pSmart)
{
    if (pDev == nullptr || pSmart == nullptr) {
        COM_LOG(__func__, "Invalid Input : (pDev, pSmart) = (%s, %p)\n", dev::printable(pDev),
                static_cast<void *>(pSmart));
        return -1;
    }
    char path[kProcPathSize];
    procIdePath(path, pDev, "smart_values");
    fdio::UniqueFd fd(open(path, O_RDONLY));
    if (!fd.valid()) {
        if (errno != ENOENT) {
            COM_LOG_FAILED_CALL(nullptr, "open(%s) error : %s\n", path);
        }
        return -1;
    }
    const HexDigits hex(fd.get());
    if (hex.count < 0) {
        return -1;
    }
    return dev::smartAttribute(hex.digits.get(), hex.count, pSmart->attribute, pSmart->value) ? 0
                                                                                              : -1;
}
