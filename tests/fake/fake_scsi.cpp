#include "fake_scsi.h"
#include "test_support.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>
#include <scsi/scsi.h>
#include <scsi/scsi_ioctl.h>

namespace fake {

namespace {
// A node path the machine must not answer for.
struct Missing : Device {
    Missing() { openErrno = ENOENT; }
    int ioctl(unsigned long, void *) override
    {
        errno = EBADF;
        return -1;
    }
};

constexpr int kNodeNumbers = 32;
constexpr int kLetters = 26;
} // namespace

int ScsiNode::ioctl(unsigned long code, void *arg)
{
    const size_t size = code == SG_IO ? sizeof(sg_io_hdr_t) : code == SCSI_IOCTL_GET_IDLUN ? 8 : sizeof(int);
    record(code, arg, size);
    if (auto it = failures_.find(code); it != failures_.end()) {
        errno = it->second;
        return -1;
    }
    switch (code) {
    case SG_GET_VERSION_NUM: *static_cast<int *>(arg) = sgVersion; return 0;
    case SCSI_IOCTL_GET_BUS_NUMBER: *static_cast<int *>(arg) = address.host; return 0;
    case SCSI_IOCTL_GET_IDLUN: {
        // The kernel's word: host, channel, lun, id from the high byte down.
        const uint32_t word = static_cast<uint32_t>(address.host & 0xFF) << 24 |
                              static_cast<uint32_t>(address.channel & 0xFF) << 16 |
                              static_cast<uint32_t>(address.lun & 0xFF) << 8 |
                              static_cast<uint32_t>(address.id & 0xFF);
        const uint32_t words[2] = {word, static_cast<uint32_t>(address.host + 1)};
        memcpy(arg, words, sizeof words);
        return 0;
    }
    case SG_IO: return drive->execute(*static_cast<sg_io_hdr_t *>(arg));
    default: errno = ENOTTY; return -1;
    }
}

void hideScsiNodes()
{
    auto missing = std::make_shared<Missing>();
    for (int k = 0; k < kNodeNumbers; ++k) {
        addDevice("/dev/sg" + std::to_string(k), missing);
    }
    for (int k = 0; k < kLetters; ++k) {
        addDevice(std::string("/dev/sg") + static_cast<char>('a' + k), missing);
        addDevice(std::string("/dev/sd") + static_cast<char>('a' + k), missing);
    }
    const std::pair<const char *, int> families[] = {{"/dev/scd", 12}, {"/dev/sr", 12}, {"/dev/nst", 6}, {"/dev/nosst", 5}};
    for (const auto &[prefix, count] : families) {
        for (int k = 0; k < count; ++k) {
            addDevice(prefix + std::to_string(k), missing);
        }
    }
}

std::shared_ptr<ScsiNode> addScsiNode(const std::string &path, ScsiAddress address, std::shared_ptr<MmcDrive> drive)
{
    auto node = std::make_shared<ScsiNode>(address, drive ? std::move(drive) : std::make_shared<MmcDrive>(media::kDisk));
    addDevice(path, node);
    return node;
}

std::string logOf(const std::function<void()> &fn)
{
    return withoutLineNumbers(captureStdout(fn));
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
