// An optical drive that answers MMC commands from a description of the
// loaded medium, as real drives report such discs.
#ifndef DVR_FAKE_MMC_H
#define DVR_FAKE_MMC_H

#include <cstdint>
#include <map>
#include <optional>
#include <scsi/sg.h>
#include <string>
#include <vector>

namespace fake {

// A medium and its parts as the table tests/data/mmc/media.txt describes
// them: the ATIP of a writable CD, tracks in logical blocks (one with free
// blocks is open and not in the table of contents), READ FORMAT CAPACITIES
// descriptors, the physical format of a DVD. A rewritable layer or ATIP, or
// the BD-RE profile, make the disc erasable. Times are MSF, minutes in the
// third byte from the end.
struct Atip {
    uint32_t leadIn, leadOut, refSpeed, subType;
    bool rewritable;
};
struct Track {
    uint32_t start, size, free = 0;
};
struct Capacity {
    uint32_t blocks, type, param;
};
struct Physical {
    uint32_t bookType, layerType, sectors;
    bool small = false, twoLayers = false;
};
struct Medium {
    uint16_t profile = 0; // 0 with no medium, or a hard disk
    uint8_t status = 0;   // 0 blank, 1 incomplete, 2 complete, 3 random access only
    std::vector<Track> tracks = {};
    std::vector<Capacity> capacities = {};
    std::optional<Physical> physical = {};
    std::optional<Atip> atip = {};
    bool present = true;
};

// The media of the table tests/data/mmc/media.txt by name (throws for a
// name it lacks), and two of them by constant; kDisk is a hard disk behind
// a generic node: always ready, no MMC.
namespace media {
const Medium &byName(const std::string &name);
extern const Medium &kNone, &kDisk;
} // namespace media

// Fixed-format sense data: byte 2 (sense key in its low four bits, flags
// above), the additional sense code and its qualifier.
struct Sense {
    uint8_t keyByte, asc, ascq;
};

class MmcDrive {
public:
    std::string vendor = "HL-DT-ST", product = "DVDRAM GSA-4083N";
    uint32_t bufferBytes = 0x200000;
    int failCall = 0; // the SG_IO call (from 1) that fails with EIO, unseen by the drive
    Medium medium;
    std::map<uint8_t, std::vector<uint8_t>> replies; // canned, by opcode, whatever the medium
    // The commands as the drive received them.
    struct Issue {
        std::vector<uint8_t> cdb;
        sg_io_hdr_t hdr;
    };
    std::vector<Issue> issued;

    explicit MmcDrive(const Medium &medium = media::kNone) : medium(medium) {}

    // The next count commands with this opcode, after the first `after` of
    // them, end in CHECK CONDITION with the sense data, or, without sense,
    // in a host error and no sense data.
    void failNext(uint8_t opcode, int count, std::optional<Sense> sense, int after = 0)
    {
        faults_.push_back({opcode, after, count, sense});
    }

    // Carries out SG_IO; 0, or -1 with errno as the kernel would.
    int execute(sg_io_hdr_t &hdr);

private:
    struct Fault {
        uint8_t opcode;
        int after, count;
        std::optional<Sense> sense;
    };
    std::vector<Fault> faults_;
};

} // namespace fake

#endif
