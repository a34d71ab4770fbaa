#include "DEV.h"
#include "com_log.h"
#include "dev_text.h"
#include "fd_io.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace {
// The boot signature: 55 AA in the last two bytes of the first sector.
constexpr off_t kSignatureOffset = 510;
constexpr unsigned char kSignature[2] = {0x55, 0xAA};
} // namespace

int Dev_CheckPartition(const char *pDev)
{
    fdio::UniqueFd fd(pDev != nullptr ? open(pDev, O_RDONLY | O_NONBLOCK) : -1);
    if (!fd.valid()) {
        if (pDev == nullptr) {
            errno = EINVAL;
        }
        if (errno != ENOENT && errno != ENXIO) {
            COM_LOG_FAILED_CALL(__func__, "open(%s) failed : %s\n", dev::printable(pDev));
        }
        return -1;
    }
    if (lseek(fd.get(), kSignatureOffset, SEEK_SET) != kSignatureOffset) {
        COM_LOG_FAILED_CALL(__func__, "lseek(%s) error : %s\n", pDev);
        return 1;
    }
    unsigned char bytes[2] = {};
    errno = 0; // a short read is no error of its own
    if (read(fd.get(), bytes, sizeof bytes) != static_cast<ssize_t>(sizeof bytes)) {
        COM_LOG_FAILED_CALL(__func__, "read(%s) error : %s\n", pDev);
        return 2;
    }
    return bytes[0] == kSignature[0] && bytes[1] == kSignature[1] ? 0 : 1;
}
