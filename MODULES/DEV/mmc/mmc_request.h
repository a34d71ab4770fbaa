/* Private to the library: one MMC command with the buffers it owns, and the
 * two-step read of a reply whose length only the drive knows. */
#ifndef DVR_MMC_REQUEST_H
#define DVR_MMC_REQUEST_H

#include <cstddef>
#include <cstdint>
#include <initializer_list>

#include "DEV.h"

namespace dev {

constexpr size_t kMmcBlockSize = 12;
constexpr size_t kMmcSenseSize = 64;
// Every reply fits: no allocation length goes above 65535.
constexpr size_t kMmcReplySize = 65536;
constexpr uint32_t kMmcMaxTransfer = 65535;
constexpr unsigned kMmcTimeoutMs = 20000;

// Where a reply announces its length and where the block asks for one.
struct ReplyLength {
    size_t fieldOffset; // high byte of the length field in the reply
    size_t fieldWidth;  // 1 or 2 bytes
    uint32_t uncounted; // header bytes the field leaves out
    uint32_t limit;     // most bytes the second issue asks for
    size_t allocOffset; // high byte of the 16-bit allocation length in the block
};

// The usual layout: a 16-bit length at reply byte 0 that leaves out itself,
// asked for in block bytes 7 and 8.
constexpr ReplyLength kLeadingLength = {0, 2, 2, kMmcMaxTransfer, 7};

// Twice a count of 2 KB blocks or CD frames, in KB: worked out in 32 bits and
// sign-extended to the 64 bits of a capacity, as the drive's figures are.
inline uint64_t twiceSignExtended(uint32_t count)
{
    return static_cast<uint64_t>(static_cast<int64_t>(static_cast<int32_t>(count * 2u)));
}

struct MmcRequest {
    MmcCmd cmd;
    uint8_t block[kMmcBlockSize];
    uint8_t sense[kMmcSenseSize];
    uint8_t reply[kMmcReplySize];

    // Zeroes the record and its buffers and fills them for one command:
    // its name "(<pName>) <title>", its block (6, 10 or 12 bytes) and the
    // reply length asked for (0: a command without reply).
    void prepare(const char *pName, const char *title, std::initializer_list<uint8_t> bytes,
                 uint32_t replyLength);
    // Zeroes the reply and runs the command; the result of Dev_ExecMMC.
    int issue(int fd, int verbose);
    // Issues the command, then again for the whole reply the first answer
    // announced; only the second reply counts. False when either failed.
    bool readTwoStep(int fd, const ReplyLength &length);
};

} // namespace dev

#endif
