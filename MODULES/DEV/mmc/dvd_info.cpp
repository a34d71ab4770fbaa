#include "DEV.h"
#include "com_log.h"
#include "dev_endian.h"
#include "mmc_request.h"

#include <algorithm>
#include <cstdio>

namespace {
using dev::MmcRequest;
namespace be = dev::be;

// READ DVD STRUCTURE asks for its length in block bytes 8 and 9.
constexpr dev::ReplyLength kStructureLength = {0, 2, 2, dev::kMmcMaxTransfer, 8};
constexpr uint8_t kMediaBd = 0x01;
constexpr uint8_t kFormatLeadInPhysical = 0x10;
constexpr size_t kTocDescriptorSize = 8;
constexpr int kTocFirstDescriptor = 4;

// Fixed capacities in KB of write-once DVDs by family: two layers, then a
// single layer of 80 mm and of 120 mm.
struct ClassCapacity {
    int32_t type1;
    uint64_t twoLayers, small, large;
};
constexpr ClassCapacity kClassCapacities[] = {
    {DISC_TYPE1_DVD_MINUS, 8343424, 1425782, 4595776},
    {DISC_TYPE1_DVD_PLUS, 8347648, 1429088, 4590208},
};

// Media type (block byte 1) and format (block byte 7) by disc family.
void chooseStructure(const DiscInfo &d, uint8_t &media, uint8_t &format)
{
    media = 0;
    format = 0;
    if (d.type1 == DISC_TYPE1_DVD_MINUS && (d.type2 == DISC_TYPE2_R || d.type2 == DISC_TYPE2_RW)) {
        format = kFormatLeadInPhysical;
    } else if (d.type1 == DISC_TYPE1_BD) {
        media = kMediaBd;
        format = kFormatLeadInPhysical;
    }
}

} // namespace

int Dev_ReadDvdStruct(const char *pName, int fd, DiscInfo *pInfo)
{
    if (pInfo == nullptr) {
        return 0;
    }
    uint8_t media = 0, format = 0;
    chooseStructure(*pInfo, media, format);
    MmcRequest r;
    r.prepare(pName, "READ DVD STRUCTURE", {0xAD, media, 0, 0, 0, 0, 0, format, 0, 0x04, 0, 0}, 4);
    if (!r.readTwoStep(fd, kStructureLength)) {
        return 0;
    }
    COM_LOG(__func__, "Start Physical Sector Number of Data Area = %06Xh \n",
            be::get24(r.reply + 9));
    COM_LOG(__func__, "End Physical Sector Number of Data Area = %06Xh \n",
            be::get24(r.reply + 13));
    COM_LOG(__func__, "End Physical Sector Number Layer Zero = %06Xh \n", be::get24(r.reply + 17));

    const bool twoLayers = ((r.reply[6] >> 5) & 0x03) != 0;
    const bool small = ((r.reply[5] >> 4) & 0x01) != 0;
    for (const ClassCapacity &c : kClassCapacities) {
        if (c.type1 == pInfo->type1) {
            pInfo->total_capacity = twoLayers ? c.twoLayers : small ? c.small : c.large;
        }
    }
    return 1;
}

int Dev_ReadDvdRToc(const char *pName, int fd, DiscInfo *pInfo)
{
    if (pInfo == nullptr) {
        return 0;
    }
    MmcRequest r;
    r.prepare(pName, "(0000b ; Formatted TOC -MSF-)", {0x43, 0, 0, 0, 0, 0, 0, 0, 0x04, 0}, 4);
    if (!r.readTwoStep(fd, dev::kLeadingLength)) {
        return 0;
    }
    const int length =
        static_cast<int>(std::min<uint32_t>(be::get16(r.reply) + 2u, dev::kMmcMaxTransfer));
    const uint8_t *d = r.reply + kTocFirstDescriptor;
    for (int at = kTocFirstDescriptor; length - static_cast<int>(kTocDescriptorSize) > at;
         at += kTocDescriptorSize, d += kTocDescriptorSize) {
        printf(" Track#%-3u:             %02x@%u\n", d[2], d[1], be::get32(d + 4));
    }
    const uint32_t leadOut = be::get32(d + 4);
    printf(" Track#%-2X :             %02x@%u\n", d[2], d[1], leadOut);

    const bool dvd = pInfo->type1 == DISC_TYPE1_DVD_MINUS || pInfo->type1 == DISC_TYPE1_DVD_PLUS;
    if (!dvd || pInfo->type2 != DISC_TYPE2_R) {
        return 1;
    }
    switch (pInfo->appendable) {
    case DISC_STATUS_INCOMPLETE:
        pInfo->used_capacity = pInfo->type1 == DISC_TYPE1_DVD_PLUS
                                   ? dev::twiceSignExtended(leadOut + 1)
                                   : pInfo->total_capacity;
        break;
    case DISC_STATUS_FINALIZED:
        pInfo->used_capacity = pInfo->total_capacity;
        break;
    default:
        pInfo->used_capacity = 0;
        break;
    }
    COM_LOG(__func__, "Used capacity = %llu MB.\n",
            static_cast<unsigned long long>(pInfo->used_capacity / 1024));
    return 1;
}

int Dev_GetDvdInfo(const char *pName, int fd, DiscInfo *pInfo)
{
    if (pInfo == nullptr || Dev_ReadDiscInfo(pName, fd, pInfo) != 1) {
        return 0;
    }
    // The track reading needs the last track and the capacity read before it.
    int capacity = 0;
    if (pInfo->type2 == DISC_TYPE2_RW) {
        capacity = Dev_ReadFormatCapacity(pName, fd, pInfo);
    } else if (pInfo->type2 == DISC_TYPE2_R) {
        capacity = Dev_ReadDvdStruct(pName, fd, pInfo);
    }
    if (capacity != 1) {
        return 0;
    }
    Dev_ReadTrackInfo(pName, fd, pInfo);
    return 1;
}

int Dev_GetBDInfo(const char *pName, int fd, DiscInfo *pInfo)
{
    if (pInfo == nullptr || Dev_ReadDiscInfo(pName, fd, pInfo) != 1) {
        return 0;
    }
    if (pInfo->type2 != DISC_TYPE2_R && pInfo->type2 != DISC_TYPE2_RW) {
        return 0;
    }
    Dev_ReadFormatCapacity(pName, fd, pInfo);
    Dev_ReadTrackInfo(pName, fd, pInfo);
    return 1;
}
