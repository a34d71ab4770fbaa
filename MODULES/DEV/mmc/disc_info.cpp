#include "DEV.h"
#include "com_log.h"

#include <cstddef>

// The record fills the 64-byte info field of a device record, alike on the
// board and on a 64-bit host.
static_assert(offsetof(DiscInfo, sub_type) == 12);
static_assert(offsetof(DiscInfo, appendable) == 20);
static_assert(offsetof(DiscInfo, last_track) == 32);
static_assert(offsetof(DiscInfo, free_blocks) == 40);
static_assert(offsetof(DiscInfo, total_capacity) == 48);
static_assert(offsetof(DiscInfo, used_capacity) == 56);
static_assert(sizeof(DiscInfo) == 64);

void Dev_ShowDiscInfo(const DiscInfo *pInfo)
{
    if (pInfo == nullptr) {
        return;
    }
    const DiscInfo &d = *pInfo;
    COM_LOG(__func__, "(type1, type2, type3) = (%d, %d, %d)\n", d.type1, d.type2, d.type3);
    COM_LOG(__func__, "(sub_type, reseved_flag, appendable) = (%d, %d, %d)\n", d.sub_type,
            d.reseved_flag, d.appendable);
    COM_LOG(__func__, "(last_lead_in, next_lead_in) = (%d, %d)\n", d.last_lead_in, d.next_lead_in);
    COM_LOG(__func__, "(last_track, total_session) = (%d, %d)\n", d.last_track, d.total_session);
    COM_LOG(__func__, "(free_blocks, track_size) = (%u, %u)\n", d.free_blocks, d.track_size);
    COM_LOG(__func__, "(total_capacity(KB), used_capacity(KB)) = (%llu, %llu)\n",
            static_cast<unsigned long long>(d.total_capacity),
            static_cast<unsigned long long>(d.used_capacity));
}
