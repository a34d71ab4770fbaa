#include "DEV.h"
#include "com_log.h"
#include "dev_endian.h"
#include "dev_text.h"
#include "mmc_request.h"

#include <cstdio>

namespace {
using dev::MmcRequest;
namespace be = dev::be;

// READ DISC INFORMATION never asks for more than a byte's worth.
constexpr dev::ReplyLength kDiscInfoLength = {0, 2, 2, 255, 7};
// READ FORMAT CAPACITY: the list length in byte 3 leaves out the 4-byte header.
constexpr dev::ReplyLength kCapacityListLength = {3, 1, 4, dev::kMmcMaxTransfer, 7};
constexpr size_t kCapacityListStart = 4;
constexpr size_t kCapacityDescriptorSize = 8;
constexpr uint32_t kMinListForCurrent = 15;
constexpr int kListBytesPerRow = 16;
constexpr int kListBytesPerGroup = 8;
constexpr uint8_t kFormatFull = 0x00;
constexpr uint8_t kFormatDvdRwFull = 0x10;
constexpr uint8_t kFormatDvdPlusRwBasic = 0x26;
constexpr uint64_t kKbPerBlock = 2;

constexpr const char *kDescriptorTypes[] = {"Reserved descriptor type", "Unformatted Media",
                                            "Formatted disc",
                                            "No Media Present/ Unknown capacity media"};

constexpr const char *kStatusMessages[] = {"It is an empty disc\n", "It is an incomplete disc\n",
                                           "It is a finalized disc\n",
                                           "The disc is only random access writable\n"};

bool hasTracks(int32_t type1)
{
    return type1 == DISC_TYPE1_CD || type1 == DISC_TYPE1_DVD_MINUS ||
           type1 == DISC_TYPE1_DVD_PLUS || type1 == DISC_TYPE1_BD;
}

// Last track in the last session: high byte 11, low byte 6.
uint32_t lastTrackOf(const uint8_t *reply)
{
    return static_cast<uint32_t>(reply[11]) << 8 | reply[6];
}

// The capacity list in rows of 16 bytes, each row followed by its characters.
void dumpCapacityList(const uint8_t *list, uint32_t length)
{
    char text[kListBytesPerRow + 1] = {};
    for (uint32_t i = 0; i < length; ++i) {
        printf("%02x ", list[i]);
        text[i % kListBytesPerRow] = list[i] < 0x20 ? '.' : static_cast<char>(list[i]);
        if ((i + 1) % kListBytesPerGroup == 0) {
            printf(" ");
        }
        if ((i + 1) % kListBytesPerRow == 0) {
            printf("|%-.16s|\n", text);
        }
    }
    printf("\n");
}
} // namespace

int Dev_ReadDiscInfo(const char *pName, int fd, DiscInfo *pInfo)
{
    if (pInfo == nullptr) {
        return 0;
    }
    MmcRequest r;
    r.prepare(pName, "READ DISC INFORMATION", {0x51, 0, 0, 0, 0, 0, 0, 0, 0x22, 0}, 34);
    if (!r.readTwoStep(fd, kDiscInfoLength)) {
        return 0;
    }
    const bool erasable = (r.reply[2] & 0x10) != 0;
    const int status = r.reply[2] & 0x03;
    switch (pInfo->type1) {
    case DISC_TYPE1_DVD_MINUS:
    case DISC_TYPE1_DVD_PLUS:
        COM_LOG(__func__, "This disc is DVD%c%s %s\n",
                pInfo->type1 == DISC_TYPE1_DVD_MINUS ? '-' : '+', erasable ? "RW" : "R",
                pInfo->type3 > 4 ? "DL" : " ");
        pInfo->last_track = static_cast<int32_t>(lastTrackOf(r.reply));
        COM_LOG(__func__, "Last Track in Last Session is %u\n", lastTrackOf(r.reply));
        break;
    case DISC_TYPE1_CD:
        pInfo->total_session = static_cast<int32_t>(r.reply[9] << 8 | r.reply[4]);
        COM_LOG(__func__, "Total session number = %d.\n", pInfo->total_session);
        break;
    case DISC_TYPE1_BD:
        COM_LOG(__func__, "This disc is BD-%s\n", erasable ? "RE" : "R");
        pInfo->last_track = static_cast<int32_t>(lastTrackOf(r.reply));
        COM_LOG(__func__, "Last Track in Last Session is %u\n", lastTrackOf(r.reply));
        break;
    default:
        return 1;
    }
    pInfo->appendable = status;
    COM_LOG(__func__, "%s", kStatusMessages[status]);
    return 1;
}

int Dev_ReadTrackInfo(const char *pName, int fd, DiscInfo *pInfo)
{
    if (pInfo == nullptr) {
        return 0;
    }
    const auto track = static_cast<uint32_t>(pInfo->last_track);
    MmcRequest r;
    r.prepare(pName, "READ TRACK INFORMATION",
              {0x52, 0x01, static_cast<uint8_t>(track >> 24), static_cast<uint8_t>(track >> 16),
               static_cast<uint8_t>(track >> 8), static_cast<uint8_t>(track), 0, 0, 0x24, 0},
              36);
    if (!r.readTwoStep(fd, dev::kLeadingLength)) {
        return 0;
    }
    printf("Read Track Information [#%d].\n", pInfo->last_track);
    COM_LOG(__func__, "Track Start Address   = %u * 2KB\n", be::get32(r.reply + 8));
    if ((r.reply[7] & 0x01) != 0) {
        COM_LOG(__func__, "Next Writable Address = %u * 2KB\n", be::get32(r.reply + 12));
    }
    pInfo->free_blocks = be::get32(r.reply + 16);
    COM_LOG(__func__, "FreeBlocks            = %u * 2KB\n", pInfo->free_blocks);
    pInfo->track_size = be::get32(r.reply + 24);
    COM_LOG(__func__, "TrackSize             = %u * 2KB\n", pInfo->track_size);

    if (hasTracks(pInfo->type1)) {
        switch (pInfo->appendable) {
        case DISC_STATUS_INCOMPLETE:
            // Unsigned, as the drive reports it: no guard against more free
            // space than capacity.
            pInfo->used_capacity = pInfo->total_capacity - kKbPerBlock * pInfo->free_blocks;
            break;
        case DISC_STATUS_FINALIZED:
            pInfo->used_capacity = pInfo->total_capacity;
            break;
        default:
            pInfo->used_capacity = 0;
            break;
        }
    }
    return 1;
}

int Dev_ReadFormatCapacity(const char *pName, int fd, DiscInfo *pInfo)
{
    if (pInfo == nullptr) {
        return 0;
    }
    MmcRequest r;
    r.prepare(pName, "READ FORMAT CAPACITY", {0x23, 0, 0, 0, 0, 0, 0, 0, 0xFC, 0}, 252);
    if (!r.readTwoStep(fd, kCapacityListLength)) {
        return 0;
    }
    const uint32_t length = r.reply[3];
    const uint8_t *list = r.reply + kCapacityListStart;
    COM_LOG(__func__, "(%s) : reply_buf_len = %d\n", dev::printable(pName), length);
    dumpCapacityList(list, length);

    uint64_t currentBlocks = 0;
    if (length > kMinListForCurrent) {
        currentBlocks = be::get32(list);
        printf("%s\n", kDescriptorTypes[list[4] & 0x03]);
    }
    // The first descriptor is the current capacity; the formattable ones
    // follow, and the last that applies stands.
    for (uint32_t at = kCapacityDescriptorSize; at < length; at += kCapacityDescriptorSize) {
        const uint8_t *d = list + at;
        const uint8_t format = d[4] >> 2;
        const uint64_t blocks = be::get32(d);
        if (format == kFormatFull && pInfo->type1 == DISC_TYPE1_BD) {
            pInfo->total_capacity = kKbPerBlock * currentBlocks;
        } else if (format == kFormatFull) {
            pInfo->total_capacity = blocks * be::get24(d + 5) / 1024;
        } else if (format == kFormatDvdRwFull && pInfo->type1 == DISC_TYPE1_DVD_MINUS &&
                   pInfo->type2 == DISC_TYPE2_RW) {
            pInfo->total_capacity = kKbPerBlock * blocks;
        } else if (format == kFormatDvdPlusRwBasic && pInfo->type1 == DISC_TYPE1_DVD_PLUS &&
                   pInfo->type2 == DISC_TYPE2_RW) {
            pInfo->total_capacity = kKbPerBlock * blocks;
        }
    }
    printf("\n");
    return 1;
}

int Dev_ReadCapacity(const char *pName, int fd)
{
    MmcRequest r;
    r.prepare(pName, "READ CAPACITY", {0x25, 0, 0, 0, 0, 0, 0, 0, 0, 0}, 8);
    return r.issue(fd, 0) == 0 ? 1 : 0;
}

int Dev_ReadPreRecordedInfo(const char *pName, int fd)
{
    MmcRequest r;
    r.prepare(pName, "READ PRE-RECORDED INFO IN LEAD-IN",
              {0xAD, 0, 0, 0, 0, 0, 0, 0x0E, 0, 0x04, 0, 0}, 4);
    return r.issue(fd, 0) == 0 ? 1 : 0;
}
