#include "fake_scsi.h"

#include <cerrno>
#include <cstring>
#include <algorithm>
#include <fcntl.h>
#include <linux/cdrom.h>
#include <linux/fs.h>
#include <scsi/scsi.h>
#include <scsi/scsi_ioctl.h>
#include <tuple>
#include <unistd.h>

namespace fake {

int ScsiNode::ioctl(unsigned long code, void *arg)
{
    const size_t size = code == SG_IO                  ? sizeof(sg_io_hdr_t)
                        : code == SCSI_IOCTL_GET_IDLUN ? 8
                                                       : sizeof(int);
    record(code, arg, size);
    if (auto it = failures.find(code); it != failures.end()) {
        errno = it->second;
        return -1;
    }
    switch (code) {
    case SG_GET_VERSION_NUM:
        *static_cast<int *>(arg) = sgVersion;
        return 0;
    case SCSI_IOCTL_GET_BUS_NUMBER:
        *static_cast<int *>(arg) = address.host;
        return 0;
    case SCSI_IOCTL_GET_IDLUN: // the kernel's word: host, channel, lun, id from the high byte down
        static_cast<uint32_t *>(arg)[0] =
            static_cast<uint32_t>((address.host & 0xFF) << 24 | (address.channel & 0xFF) << 16 |
                                  (address.lun & 0xFF) << 8 | (address.id & 0xFF));
        static_cast<uint32_t *>(arg)[1] = static_cast<uint32_t>(address.host + 1);
        return 0;
    case SG_IO:
        return drive->execute(*static_cast<sg_io_hdr_t *>(arg));
    case BLKGETSIZE64:
        *static_cast<uint64_t *>(arg) = bytes;
        return 0;
    case BLKGETSIZE:
        *static_cast<unsigned long *>(arg) = static_cast<unsigned long>(bytes / 512);
        return 0;
    case CDROMEJECT: // the tray opens; so does a new reading of the partitions
    case BLKRRPART:
        return 0;
    case SCSI_IOCTL_PROBE_HOST: { // the kernel's reply: the text, cut to the length in word 0
        if (hostText.empty()) {
            break;
        }
        uint32_t room = 0;
        memcpy(&room, arg, sizeof room);
        memcpy(arg, hostText.c_str(), std::min<size_t>(room, hostText.size() + 1));
        return 1;
    }
    default:
        break;
    }
    errno = ENOTTY;
    return -1;
}

void hideScsiNodes()
{
    auto missing = std::make_shared<ScsiNode>(ScsiAddress{}, nullptr);
    missing->openErrno = ENOENT;
    for (const char *const *path = gScsiDevTable; *path != nullptr; ++path) {
        addDevice(*path, missing);
    }
    for (int k = 0; k < SG_MAP_SIZE; ++k) {
        addDevice("/dev/sg" + std::to_string(k), missing);
        addDevice(std::string("/dev/sg") + static_cast<char>('a' + k % 26), missing);
    }
}

std::shared_ptr<ScsiNode> addScsiNode(const std::string &path, ScsiAddress address,
                                      std::shared_ptr<MmcDrive> drive)
{
    auto node = std::make_shared<ScsiNode>(
        address, drive ? std::move(drive) : std::make_shared<MmcDrive>(media::kDisk));
    addDevice(path, node);
    return node;
}

DiscInfo discInfo(int type1, int type2, int type3, int appendable, int lastTrack, uint64_t total)
{
    DiscInfo d{};
    std::tie(d.type1, d.type2, d.type3, d.appendable, d.last_track, d.total_capacity) =
        std::tie(type1, type2, type3, appendable, lastTrack, total);
    return d;
}

OpenDrive::OpenDrive(const Medium &medium, const std::string &path)
    : drive(std::make_shared<MmcDrive>(medium))
{
    hideScsiNodes();
    node = addScsiNode(path, {0, 0, 0, 0}, drive);
    fd = open(path.c_str(), O_RDWR | O_NONBLOCK);
}

OpenDrive::~OpenDrive()
{
    if (fd >= 0) {
        close(fd);
    }
}

} // namespace fake
