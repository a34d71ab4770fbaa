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

struct Msf {
    uint8_t m, s, f;
};

// Absolute time in pre-groove (ATIP) of a writable CD: start of the lead-in,
// last possible start of the lead-out, reference speed (3 bits), disc type
// CD-RW, sub-type (0 normal, 1 high, 2 ultra speed).
struct Atip {
    Msf leadIn, leadOut;
    uint8_t refSpeed;
    bool rewritable;
    uint8_t subType;
};

// A track in logical blocks. One with free blocks is open: it takes writes at
// its next writable address (start + size - free) and is not in the table of
// contents.
struct Track {
    uint32_t start, size, free = 0;
};

// A READ FORMAT CAPACITIES descriptor: the first of a medium is the current
// capacity, its type the descriptor type (1 unformatted, 2 formatted, 3 no
// medium); the others are formattable capacities by format type. The param is
// the block length, or the format type's own parameter.
struct Capacity {
    uint32_t blocks;
    uint8_t type;
    uint32_t param;
};

// Physical format information of a DVD (READ DVD STRUCTURE format 0): book
// type and part version, layer type (1 embossed, 2 recordable, 4 rewritable),
// sectors of the data area, 80 mm disc, two layers.
struct Physical {
    uint8_t bookType, layerType;
    uint32_t sectors;
    bool small = false, twoLayers = false;
};

// A loaded disc. An incomplete one has two sessions, the last one open, any
// other one; the lead-out of the last closed session follows the last closed
// track. A rewritable layer or ATIP makes the disc erasable. Without
// capacities the disc reports itself formatted to its recorded size.
struct Medium {
    const char *name;
    uint16_t profile = 0;           // current profile; 0 with no medium, or a hard disk
    uint8_t status = 0;             // 0 blank, 1 incomplete, 2 complete, 3 random access only
    std::vector<Track> tracks = {}; // the last is the last track of the last session
    std::vector<Capacity> capacities = {};
    std::optional<Physical> physical = {};
    std::optional<Atip> atip = {};
    bool present = true;
};

// The media the drive knows, as drives report them, and a hard disk behind
// a generic node: always ready, no MMC.
namespace media {
extern const Medium kNone, kCdRom, kCdRBlank, kCdROneTrack, kCdRTwoTracks, kCdRFinalized, kCdRw,
    kDvdRom, kDvdR, kDvdR80mm, kDvdRDualLayer, kDvdRwSequential, kDvdRwRestricted, kDvdPlusR,
    kDvdPlusRwBlank, kDvdPlusRwFormatted, kDvdRam, kDdcdRom, kBdRom, kBdR, kHdDvdRom, kDisk;
}

// Fixed-format sense data: byte 2 (sense key in its low four bits, flags
// above), the additional sense code and its qualifier.
struct Sense {
    uint8_t keyByte, asc, ascq;
};

class MmcDrive {
public:
    std::string vendor = "HL-DT-ST", product = "DVDRAM GSA-4083N", revision = "1.00";
    uint32_t bufferBytes = 0x200000;
    Medium medium;
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
    // From now on commands with this opcode get this reply, whatever the medium.
    void answerWith(uint8_t opcode, std::vector<uint8_t> reply)
    {
        replies_[opcode] = std::move(reply);
    }

    // Carries out SG_IO; 0, or -1 with errno as the kernel would.
    int execute(sg_io_hdr_t &hdr);
    std::vector<uint8_t> opcodes() const;

private:
    struct Fault {
        uint8_t opcode;
        int after, count;
        std::optional<Sense> sense;
    };
    // The reply of the loaded medium; throws the sense data of a refusal.
    std::vector<uint8_t> answer(const uint8_t *cdb) const;

    std::vector<Fault> faults_;
    std::map<uint8_t, std::vector<uint8_t>> replies_;
};

} // namespace fake

#endif
