#include "DEV.h"
#include "com_log.h"
#include "dev_text.h"
#include "fd_io.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <scsi/scsi.h>
#include <scsi/scsi_ioctl.h>
#include <strings.h>
#include <sys/ioctl.h>
#include <unistd.h>

// The record's layout, the same on the board (ILP32, the 64-bit words of info
// aligned to 8) and on a 64-bit host: one byte of padding before info.
static_assert(offsetof(DevRecord, bus) == 68);
static_assert(offsetof(DevRecord, lun) == 80);
static_assert(offsetof(DevRecord, dev) == 84);
static_assert(offsetof(DevRecord, sg) == 96);
static_assert(offsetof(DevRecord, mpt) == 108);
static_assert(offsetof(DevRecord, ready) == 188);
static_assert(offsetof(DevRecord, iface) == 190);
static_assert(offsetof(DevRecord, info) == 192);
static_assert(sizeof(DevInfo) == DEV_INFO_SIZE && sizeof(DiscInfo) == DEV_INFO_SIZE);
static_assert(sizeof(DevRecord) == 256);

namespace {

constexpr size_t kLineSize = 512;
constexpr int kIdeModelPositions = 39;
constexpr char kIdeDiskDriver[] = "ide-disk";
constexpr char kDiskPrefix[] = "/dev/sd";
constexpr int kProbeHostSize = 512;
constexpr int kHostNameAt = 19;            // where the SCSI emulation names its bus
constexpr unsigned kDiskNodeMode = 0x61B4; // block device, 0664
constexpr int kDisksPerMajor = 16;
constexpr int kFirstDiskMajor = 8;
constexpr int kSecondDiskMajor = 65;
constexpr int kMinorsPerDisk = 16;

bool startsWith(const char *text, const char *prefix)
{
    return strncmp(text, prefix, strlen(prefix)) == 0;
}

// The first line of a file, empty when it can't be read.
bool readFirstLine(const char *path, char (&line)[kLineSize])
{
    line[0] = '\0';
    fdio::UniqueFile file = fdio::openFile(path, "r");
    if (!file) {
        return false;
    }
    if (fgets(line, sizeof line, file.get()) == nullptr) {
        line[0] = '\0';
    }
    return true;
}

// One IDE disk at a letter: true when it is a disk and its model file opens.
bool readIdeDisk(char letter, DevRecord &r)
{
    char path[kLineSize];
    char line[kLineSize];
    snprintf(path, sizeof path, "/proc/ide/hd%c/driver", letter);
    if (!readFirstLine(path, line) || !startsWith(line, kIdeDiskDriver)) {
        return false;
    }
    snprintf(path, sizeof path, "/proc/ide/hd%c/model", letter);
    if (!readFirstLine(path, line)) {
        return false;
    }
    snprintf(r.model, sizeof r.model, "%.*s", kIdeModelPositions, line);
    dev::compactModelText(r.model, kIdeModelPositions);
    r.bus = r.channel = r.lun = -1;
    r.id = letter;
    snprintf(r.dev, sizeof r.dev, "/dev/hd%c", letter);
    memcpy(r.sg, r.dev, sizeof r.sg);
    r.ready = 1;
    r.cdrom = 0;
    r.iface = DEV_IFACE_ATA;
    Dev_GetHDStat(&r, DEV_FS_AUTO);
    return true;
}

// Makes the block node of /dev/sd path number i if it is missing.
void makeDiskNode(const char *path, int i)
{
    const int major = i < kDisksPerMajor ? kFirstDiskMajor : kSecondDiskMajor;
    const int minor = kMinorsPerDisk * (i % kDisksPerMajor);
    COM_MakeNode(path, kDiskNodeMode, static_cast<dev_t>(major << 8 | minor));
}

// The kind of SCSI host, from the text of SCSI_IOCTL_PROBE_HOST. The request
// reads the buffer's length from its first word, which the blanks make large.
uint8_t hostInterface(int fd)
{
    char text[kProbeHostSize];
    memset(text, ' ', sizeof text);
    if (ioctl(fd, SCSI_IOCTL_PROBE_HOST, text) < 0) {
        COM_LOG_FAILED_CALL("Dev_Get", "ioctl(SCSI_IOCTL_PROBE_HOST) error : %s\n");
        return DEV_IFACE_ATA;
    }
    text[sizeof text - 1] = '\0';
    const char *bus = text + kHostNameAt;
    if (strncasecmp(bus, "USB", 3) == 0) {
        return DEV_IFACE_USB;
    }
    if (strncasecmp(bus, "IEEE-1394", 9) == 0 || strncasecmp(text, "IEEE-1394", 9) == 0) {
        return DEV_IFACE_IEEE1394;
    }
    COM_LOG("Dev_Get", "Unknown host - string_buf = [%s]\n", text);
    return DEV_IFACE_ATA;
}

// Reads the node's address into the record; false after a reported failure.
bool readAddress(int fd, DevRecord &r)
{
    int bus = -1;
    if (ioctl(fd, SCSI_IOCTL_GET_BUS_NUMBER, &bus) < 0) {
        COM_LOG("Dev_Get", "get bus No. ioctl on %s failed\n", r.dev);
        return false;
    }
    r.bus = bus;
    uint32_t idlun[2] = {0, 0};
    if (ioctl(fd, SCSI_IOCTL_GET_IDLUN, idlun) < 0) {
        COM_LOG("Dev_Get", "get IDLUN ioctl on %s failed\n", r.dev);
        return false;
    }
    r.channel = static_cast<int32_t>((idlun[0] >> 16) & 0xFF);
    r.lun = static_cast<int32_t>((idlun[0] >> 8) & 0xFF);
    r.id = static_cast<int32_t>(idlun[0] & 0xFF);
    return true;
}

// The first map entry at the record's address gives sg and ready.
bool findInMap(const SgMapEntry *map, DevRecord &r)
{
    for (int k = 0; k < SG_MAP_SIZE; ++k) {
        const SgMapEntry &e = map[k];
        if (e.bus == r.bus && e.channel == r.channel && e.id == r.id && e.lun == r.lun) {
            memcpy(r.sg, e.name, sizeof r.sg);
            r.ready = static_cast<uint8_t>(e.ready & 0xFF);
            return true;
        }
    }
    return false;
}

// One path of the table into the record; true when it is accepted.
bool readScsiDevice(const char *path, int i, const SgMapEntry *map, DevRecord &r)
{
    const bool disk = startsWith(path, kDiskPrefix);
    if (disk) {
        makeDiskNode(path, i);
    }
    fdio::UniqueFd node(open(path, O_RDONLY | O_NONBLOCK));
    if (!node.valid()) {
        return false;
    }
    snprintf(r.dev, sizeof r.dev, "%s", path);
    if (!readAddress(node.get(), r)) {
        return false;
    }
    r.iface = hostInterface(node.get());
    if (!findInMap(map, r) || (r.ready != 1 && disk)) {
        return false;
    }
    if (disk) {
        r.ready = 1;
        r.cdrom = 0;
        Dev_GetHDStat(&r, DEV_FS_AUTO);
    } else {
        r.cdrom = 1;
    }
    fdio::UniqueFd generic(open(r.sg, O_RDWR | O_NONBLOCK));
    if (generic.valid()) {
        Dev_Inquiry(r.dev, generic.get(), r.model);
    }
    return true;
}

uint64_t infoWord(const DevRecord &r, size_t offset)
{
    uint64_t word;
    memcpy(&word, r.info.bytes + offset, sizeof word);
    return word;
}

const char *interfaceName(uint8_t iface)
{
    return iface == DEV_IFACE_ATA ? "ATA" : iface == DEV_IFACE_USB ? "USB" : "IEEE-1394";
}

// The list goes to standard output, beside the log.
void printList(const DevRecord *pDev, int count)
{
    for (int i = 0; i < count; ++i) {
        const DevRecord &r = pDev[i];
        if (r.model[0] == '\0') {
            continue;
        }
        printf("  pDev[%d] : %s : %s : %s : %s : %s : %s, %d,%d,%d,%d : %llu MB(%llu)\n", i,
               r.model, r.dev, r.sg, r.ready == 1 ? "Ready" : "Not Ready",
               r.cdrom == 0 ? "HDD" : "CD-ROM", interfaceName(r.iface), r.bus, r.channel, r.id,
               r.lun,
               static_cast<unsigned long long>(infoWord(r, offsetof(HDStat, free_bytes)) >> 20),
               static_cast<unsigned long long>(infoWord(r, offsetof(HDStat, device_bytes)) >> 20));
    }
    fflush(stdout);
}

} // namespace

int Dev_Get(DevRecord *pDev)
{
    if (pDev == nullptr) {
        COM_LOG(__func__, "(%p) : Null Ptr\n", static_cast<void *>(pDev));
        return 0;
    }
    int count = 0;
    for (char letter = 'a'; letter < 'a' + DEV_MAX_IDE_DISKS; ++letter) {
        count += readIdeDisk(letter, pDev[count]) ? 1 : 0;
    }
    const int ide = count;

    SgMapEntry map[SG_MAP_SIZE];
    Dev_BuildSgMap(map);
    for (int i = 0; gScsiDevTable[i] != nullptr && count < DEV_MAX_DEVICES; ++i) {
        count += readScsiDevice(gScsiDevTable[i], i, map, pDev[count]) ? 1 : 0;
    }
    COM_LOG(__func__, "(ide, scsi) = (%d, %d)\n", ide, count - ide);
    printList(pDev, count);
    return count;
}
