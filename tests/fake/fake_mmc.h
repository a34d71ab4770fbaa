// An optical drive that answers MMC commands from a description of the
// loaded medium, as real drives report such discs.
#ifndef DVR_FAKE_MMC_H
#define DVR_FAKE_MMC_H

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <scsi/sg.h>
#include <string>
#include <vector>

namespace fake {

struct Msf {
    uint8_t m, s, f;
};

// Absolute time in pre-groove (ATIP) of a writable CD.
struct Atip {
    Msf leadIn;          // start time of the lead-in
    Msf leadOut;         // last possible start time of the lead-out
    uint8_t refSpeed;    // reference speed, 3 bits
    bool rewritable;     // disc type: CD-RW
    uint8_t subType;     // 0 normal, 1 high, 2 ultra speed
};

// A track in logical blocks. An open track takes writes at its next writable
// address (start + size - freeBlocks) and is not in the table of contents.
struct Track {
    uint32_t start;
    uint32_t size;
    uint32_t freeBlocks;
    bool open;
};

// A READ FORMAT CAPACITIES descriptor: the first of a medium is the current
// capacity, its type the descriptor type (1 unformatted, 2 formatted, 3 no
// medium); the others are formattable capacities by format type.
struct Capacity {
    uint32_t blocks;
    uint8_t type;
    uint32_t param;    // block length, or the format type's own parameter
};

// Physical format information of a DVD (READ DVD STRUCTURE format 0).
struct Physical {
    uint8_t bookType;  // book type and part version
    uint8_t layerType; // 1 embossed, 2 recordable, 4 rewritable
    bool small;        // 80 mm disc
    bool twoLayers;
    uint32_t sectors;  // data area
};

struct Medium {
    const char *name;
    uint16_t profile;       // current profile; 0 with no medium
    bool present;
    uint8_t discStatus;     // 0 blank, 1 incomplete, 2 complete, 3 random access only
    bool erasable;
    uint16_t sessions;
    std::vector<Track> tracks;   // the last is the last track of the last session
    uint32_t leadOut;            // lead-out of the last closed session (logical block)
    std::optional<Atip> atip;
    std::vector<Capacity> capacities;
    std::optional<Physical> physical;
};

// The media the drive knows, as drives report them.
namespace media {
extern const Medium kNone, kCdRom, kCdRBlank, kCdROneTrack, kCdRTwoTracks, kCdRFinalized, kCdRw,
    kDvdRom, kDvdR, kDvdR80mm, kDvdRDualLayer, kDvdRwSequential, kDvdRwRestricted, kDvdPlusR,
    kDvdPlusRwBlank, kDvdPlusRwFormatted, kDvdRam, kDdcdRom, kBdRom, kBdR, kHdDvdRom;
// Not a disc: a hard disk behind a generic node, always ready, no MMC.
extern const Medium kDisk;
}

// Fixed-format sense data: byte 2 (sense key in its low four bits, flags
// above), the additional sense code and its qualifier.
struct Sense {
    uint8_t keyByte;
    uint8_t asc;
    uint8_t ascq;
};

class MmcDrive {
public:
    // One command as the drive received it.
    struct Issue {
        std::vector<uint8_t> cdb;
        sg_io_hdr_t hdr;
    };

    std::string vendor = "HL-DT-ST";
    std::string product = "DVDRAM GSA-4083N";
    std::string revision = "1.00";
    uint32_t bufferBytes = 0x200000;

    explicit MmcDrive(const Medium &medium = media::kNone) : medium_(medium) {}

    void load(const Medium &medium);
    // The next count commands with this opcode, after the first `after` of
    // them, end in CHECK CONDITION with the sense data, or, without sense,
    // in a host error and no sense data.
    void failNext(uint8_t opcode, int count, std::optional<Sense> sense, int after = 0);
    // From now on commands with this opcode get this reply, whatever the medium.
    void answerWith(uint8_t opcode, std::vector<uint8_t> reply);

    // Carries out SG_IO; 0, or -1 with errno as the kernel would.
    int execute(sg_io_hdr_t &hdr);

    std::vector<Issue> issued() const;
    std::vector<uint8_t> opcodes() const;
    void clearIssued();

private:
    struct Fault {
        uint8_t opcode;
        int after;
        int count;
        std::optional<Sense> sense;
    };
    std::optional<Sense> answer(const uint8_t *cdb, std::vector<uint8_t> &reply) const;

    mutable std::mutex mutex_;
    Medium medium_;
    std::vector<Fault> faults_;
    std::map<uint8_t, std::vector<uint8_t>> replies_;
    std::vector<Issue> issued_;
};

} // namespace fake

#endif
