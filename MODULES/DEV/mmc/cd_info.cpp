#include "DEV.h"
#include "com_log.h"
#include "dev_text.h"
#include "mmc_request.h"

#include <cstdio>

namespace {
using dev::MmcRequest;

constexpr int32_t kFramesPerSecond = 75;
constexpr int32_t kFramesPerMinute = 4500;
constexpr int32_t kKbPerFrame = 2;
// MSF 00:02:00 is logical block 0.
constexpr int32_t kFramesBeforeBlock0 = 150;
// The ATIP's lead-out time counts those 150 frames too.
constexpr int32_t kLeadOutOffsetKb = 300;
// From the lead-out to the next lead-in: 02:30:00 after a first track,
// 01:30:00 after any later one.
constexpr int32_t kGapAfterFirstTrack = 11250;
constexpr int32_t kGapAfterLaterTrack = 6750;
constexpr size_t kTocDescriptorSize = 8;
constexpr size_t kTocFirstDescriptor = 4;

constexpr const char *kSubTypes[] = {"Normal Speed", "High   Speed", "Ultra  Speed"};

struct Msf {
    int m, s, f;
    int32_t frames() const { return (m * 60 + s) * kFramesPerSecond + f; }
};

Msf msfAt(const uint8_t *p)
{
    return {p[0], p[1], p[2]};
}

} // namespace

int Dev_ReadCdATIP(const char *pName, int fd, DiscInfo *pInfo)
{
    if (pInfo == nullptr) {
        return 0;
    }
    MmcRequest r;
    r.prepare(pName, "(0100b ; ATIP -MSF-)", {0x43, 0x02, 0x04, 0, 0, 0, 0, 0, 0x04, 0}, 4);
    if (!r.readTwoStep(fd, dev::kLeadingLength)) {
        return 0;
    }
    const Msf leadIn = msfAt(r.reply + 8);
    const Msf leadOut = msfAt(r.reply + 12);
    COM_LOG(__func__, "Start Time of Lead-in %02d:%02d:%02d\n", leadIn.m, leadIn.s, leadIn.f);
    COM_LOG(__func__, "Start Time of Lead-out %02d:%02d:%02d\n", leadOut.m, leadOut.s, leadOut.f);
    COM_LOG(__func__, "Disc Type : %s\n", (r.reply[6] & 0x40) != 0 ? "CD-RW" : "CD-R");
    printf("Reference Speed = %0d\n", r.reply[4] & 0x07);
    pInfo->sub_type = (r.reply[6] >> 3) & 0x07;
    printf("Disc Sub Type = %s\n",
           pInfo->sub_type < 3 ? kSubTypes[pInfo->sub_type] : "Not Defined");

    const int32_t kb = leadOut.frames() * kKbPerFrame;
    COM_LOG(__func__, "Disc Space is %d KB\n", kb);
    pInfo->total_capacity = static_cast<uint64_t>(static_cast<int64_t>(kb - kLeadOutOffsetKb));
    return 1;
}

int Dev_ReadCdToc(const char *pName, int fd, DiscInfo *pInfo)
{
    if (pInfo == nullptr) {
        return 0;
    }
    MmcRequest r;
    r.prepare(pName, "(0000b ; Formatted TOC -MSF-)", {0x43, 0x02, 0x00, 0, 0, 0, 0x01, 0, 0x04, 0},
              4);
    if (!r.readTwoStep(fd, dev::kLeadingLength)) {
        return 0;
    }
    const int last = r.reply[3];
    COM_LOG(__func__, "Last track is %d\n", last);
    // Without a last track the reply holds no track descriptor to measure.
    if (last == 0) {
        return 0;
    }
    const uint8_t *lastTrack = r.reply + kTocFirstDescriptor + kTocDescriptorSize * (last - 1);
    const Msf lastStart = msfAt(lastTrack + 5);
    const Msf leadOut = msfAt(lastTrack + kTocDescriptorSize + 5);
    COM_LOG(__func__, "Last Lead-in at %02d:%02d:%02d\n", lastStart.m, lastStart.s, lastStart.f);
    COM_LOG(__func__, "Last Lead-out at %02d:%02d:%02d\n", leadOut.m, leadOut.s, leadOut.f);

    const int32_t next = leadOut.frames() + (last == 1 ? kGapAfterFirstTrack : kGapAfterLaterTrack);
    const int32_t shown = next + kFramesBeforeBlock0;
    COM_LOG(__func__, "Next Lead-in at %02d:%02d:%02d\n", shown / kFramesPerMinute,
            shown % kFramesPerMinute / kFramesPerSecond, shown % kFramesPerSecond);

    pInfo->last_track = last;
    pInfo->last_lead_in = lastStart.frames() - kFramesBeforeBlock0;
    pInfo->next_lead_in = next;
    return 1;
}

int Dev_GetCdInfo(const char *pName, int fd, DiscInfo *pInfo)
{
    if (pInfo == nullptr) {
        return 0;
    }
    const char *name = dev::printable(pName);
    if (Dev_ReadCdATIP(pName, fd, pInfo) != 1) {
        COM_LOG(__func__, "(%s) : Read CD ATIP error\n", name);
        return 0;
    }
    if (Dev_ReadDiscInfo(pName, fd, pInfo) != 1) {
        COM_LOG(__func__, "(%s) : Read CD DISC INFORMATION error\n", name);
        return 0;
    }
    switch (pInfo->appendable) {
    case DISC_STATUS_INCOMPLETE:
        if (Dev_ReadCdToc(pName, fd, pInfo) == 0) {
            COM_LOG(__func__, "(%s) : Read CD TOC error\n", name);
        }
        pInfo->used_capacity = dev::twiceSignExtended(static_cast<uint32_t>(pInfo->next_lead_in));
        break;
    case DISC_STATUS_FINALIZED:
        pInfo->used_capacity = pInfo->total_capacity;
        break;
    default:
        pInfo->used_capacity = 0;
        break;
    }
    return 1;
}
