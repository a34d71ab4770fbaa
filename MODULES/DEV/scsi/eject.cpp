// Ejecting a drive's medium: the CD-ROM control request, or, for drives that
// refuse it, the SCSI commands that unlock the tray and open it.
#include "DEV.h"
#include "com_log.h"
#include "dev_text.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <linux/cdrom.h>
#include <linux/fs.h>
#include <scsi/sg.h>
#include <sys/ioctl.h>

namespace {

constexpr int kOldestSgVersion = 30000;
constexpr size_t kCdbLength = 6;
constexpr unsigned char kSenseLength = 32;
constexpr unsigned kTimeoutMs = 2000;

// The commands in the order they are sent, each with the name its failure
// message gives.
struct EjectStep {
    unsigned char cdb[kCdbLength];
    const char *name;
};
constexpr EjectStep kSteps[] = {
    {{0x1E, 0, 0, 0, 0x00, 0}, "ALLOW_MEDIUM_REMOVAL"}, // PREVENT ALLOW MEDIUM REMOVAL: allow
    {{0x1B, 0, 0, 0, 0x01, 0}, "1st START_STOP"},       // START STOP UNIT: start
    {{0x1B, 0, 0, 0, 0x02, 0}, "2nd START_STOP"},       // START STOP UNIT: eject
};

} // namespace

int EjectCdrom(const char *pDev, int fd)
{
    COM_LOG(__func__, "Try to eject '%s' by CDROMEJECT command... ", dev::printable(pDev));
    fflush(stdout);
    const int result = ioctl(fd, CDROMEJECT, nullptr);
    if (result != 0) {
        const int error = errno;
        printf("Failed (%d:%s)!\n", error, strerror(error));
    } else {
        printf("DONE!\n");
    }
    fflush(stdout);
    return result;
}

int EjectScsi(const char *pDev, int fd)
{
    int version = 0;
    if (ioctl(fd, SG_GET_VERSION_NUM, &version) < 0 || version < kOldestSgVersion) {
        COM_LOG(__func__, "'%s' not a sg device, or old sg driver\n", dev::printable(pDev));
        return -1;
    }
    COM_LOG(__func__, "Try to eject '%s' by SG_IO... ", dev::printable(pDev));
    fflush(stdout);

    unsigned char scratch[2] = {};
    unsigned char sense[kSenseLength] = {};
    unsigned char cdb[kCdbLength] = {};
    sg_io_hdr_t hdr;
    memset(&hdr, 0, sizeof hdr);
    hdr.interface_id = 'S';
    hdr.dxfer_direction = SG_DXFER_NONE;
    hdr.cmd_len = kCdbLength;
    hdr.mx_sb_len = kSenseLength;
    hdr.dxfer_len = 0;
    hdr.dxferp = scratch;
    hdr.sbp = sense;
    hdr.timeout = kTimeoutMs;
    hdr.cmdp = cdb;
    // Only a refused request counts: the status and sense of each command are
    // not looked at, so a drive that merely complains still gets the next one.
    for (const EjectStep &step : kSteps) {
        memcpy(cdb, step.cdb, sizeof cdb);
        const int result = ioctl(fd, SG_IO, &hdr);
        if (result < 0) {
            const int error = errno;
            printf("%s failed (%d:%s)!\n", step.name, error, strerror(error));
            fflush(stdout);
            return result;
        }
    }
    printf("DONE!\n");
    fflush(stdout);
    // The kernel reads the partition table of whatever is loaded next.
    (void)ioctl(fd, BLKRRPART, nullptr);
    return 0;
}

// The drives are enumerated afresh by every sweep; there is nothing to rescan
// beforehand.
int Dev_RescanScsiBus(void)
{
    return 0;
}
