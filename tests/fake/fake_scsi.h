// SCSI nodes: generic (/dev/sgN or /dev/sgX), block, optical and tape nodes,
// each with a SCSI address, an sg driver version and perhaps an MMC drive.
#ifndef DVR_FAKE_SCSI_H
#define DVR_FAKE_SCSI_H

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "DEV.h"
#include "fake_mmc.h"
#include "fake_platform.h"
#include "test_support.h"

namespace fake {

struct ScsiAddress {
    int host, channel, id, lun;
};

class ScsiNode : public Device {
public:
    ScsiNode(ScsiAddress address, std::shared_ptr<MmcDrive> drive)
        : address(address), drive(std::move(drive))
    {
    }

    ScsiAddress address;
    int sgVersion = 30536;                 // answered to SG_GET_VERSION_NUM
    std::shared_ptr<MmcDrive> drive;       // answers SG_IO
    std::map<unsigned long, int> failures; // control requests that fail, with their errno
    uint64_t bytes = 0;                    // size of a block node
    std::string hostText;                  // SCSI_IOCTL_PROBE_HOST; empty: the request fails

    int ioctl(unsigned long code, void *arg) override;
};

// Makes every path the library probes for SCSI nodes (the generic nodes in
// both namings and the paths of its table) a missing node, so that no test
// reaches the machine's own devices.
void hideScsiNodes();

// A node of the drive; without one, of a hard disk.
std::shared_ptr<ScsiNode> addScsiNode(const std::string &path, ScsiAddress address,
                                      std::shared_ptr<MmcDrive> drive = nullptr);

// A disc record with the fields the operations read.
DiscInfo discInfo(int type1, int type2, int type3 = 0, int appendable = 0, int lastTrack = 0,
                  uint64_t total = 0);

// A drive on a generic node with the other SCSI paths hidden, and the node
// open as the library opens it, for the life of the object.
struct OpenDrive {
    explicit OpenDrive(const Medium &medium = media::kNone, const std::string &path = "/dev/sg0");
    ~OpenDrive();
    OpenDrive(const OpenDrive &) = delete;
    OpenDrive &operator=(const OpenDrive &) = delete;

    std::shared_ptr<MmcDrive> drive;
    std::shared_ptr<ScsiNode> node;
    int fd = -1;
};

} // namespace fake

#endif
