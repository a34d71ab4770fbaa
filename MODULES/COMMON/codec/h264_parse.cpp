// What a recorder must know of an H.264 Annex B stream before filing or
// showing it: picture size and profile from the sequence parameter set, the
// frame type of a slice, and where the units and SEI messages are. Only the
// fields up to the picture size are followed, as far as the Baseline, Main
// and Extended profiles lay them out.
#include "com_log.h"
#include "rbsp_unit.h"

#include <iterator>

namespace {
constexpr uint32_t kMaxLog2PocLsbMinus4 = 12;
constexpr uint32_t kMaxRefFramesInPocCycle = 255;
constexpr int kErrPocLsb = 1;
constexpr int kErrPocCycle = 2;
constexpr uint32_t kMacroblockSize = 16;

constexpr int32_t kStartCodeSize = 4;
constexpr int32_t kNalTypeSei = 6;
constexpr uint8_t kNalTypeMask = 0x1F;
constexpr uint8_t kFfByte = 0xFF;

constexpr int kSliceNone = 0;
constexpr int kSliceI = 1;
constexpr int kSliceP = 2;
constexpr int kSliceB = 3;
// slice_type 0 to 9 (5 to 9: every slice of the picture has the same type).
constexpr int kSliceKinds[] = {kSliceP, kSliceB, kSliceI, kSliceP, kSliceI,
                               kSliceP, kSliceB, kSliceI, kSliceP, kSliceI};

bool isStartCode(const uint8_t *p)
{
    return p[0] == 0 && p[1] == 0 && p[2] == 0 && p[3] == 1;
}

// One field of an SEI message header: each 0xFF byte adds 255 and goes on,
// the first other byte adds its value and ends it. The field also ends at the
// end of the data, with the sum read so far.
uint32_t readFfField(const uint8_t *data, int32_t len, int32_t &pos)
{
    uint32_t sum = 0;
    while (pos < len) {
        const uint8_t byte = data[pos++];
        sum += byte;
        if (byte != kFfByte) {
            break;
        }
    }
    return sum;
}
} // namespace

int COM_ProcH264SPS(const uint8_t *sps, int32_t *width, int32_t *height, int reserved,
                    int32_t *profile)
{
    if (sps == nullptr) {
        return -1;
    }
    const uint8_t *p = sps;
    int bitsLeft = 8;
    const uint32_t profileIdc = COM_ReadBits(&p, &bitsLeft, 8);
    if (profile != nullptr) {
        *profile = static_cast<int32_t>(profileIdc);
    }
    COM_ReadBits(&p, &bitsLeft, 4); // constraint_set0_flag to constraint_set3_flag
    COM_ReadBits(&p, &bitsLeft, 4); // reserved_zero_4bits
    const uint32_t levelIdc = COM_ReadBits(&p, &bitsLeft, 8);

    // The unit's length is not known: the reader takes only the bytes of the
    // fields it reads, and stops at the next start code.
    dvr::UnitReader r(sps);
    r.skip(24);
    r.readUE(); // seq_parameter_set_id
    r.readUE(); // log2_max_frame_num_minus4
    const uint32_t pocType = r.readUE();
    int result = 0;
    if (pocType == 0) {
        if (r.readUE() > kMaxLog2PocLsbMinus4) {
            result = kErrPocLsb;
        }
    } else if (pocType == 1) {
        r.skip(1);  // delta_pic_order_always_zero_flag
        r.readSE(); // offset_for_non_ref_pic
        r.readSE(); // offset_for_top_to_bottom_field
        const uint32_t cycle = r.readUE();
        if (cycle > kMaxRefFramesInPocCycle) {
            result = kErrPocCycle;
        } else {
            for (uint32_t i = 0; i < cycle; ++i) {
                r.readSE(); // offset_for_ref_frame[i]
            }
        }
    }
    if (result != 0) {
        COM_LOG(__func__, "Err : (profile_idc, level_idc, result) = (0x%X, 0x%X, %d)\n", profileIdc,
                levelIdc, result);
        return result;
    }

    r.readUE(); // num_ref_frames
    r.skip(1);  // gaps_in_frame_num_value_allowed_flag
    const uint32_t widthMbsMinus1 = r.readUE();
    const uint32_t heightMapUnitsMinus1 = r.readUE();
    // Coded sizes: no cropping (1080 lines read as 1088) and, for field
    // coding, the height of the map units.
    if (height != nullptr) {
        *height = static_cast<int32_t>((heightMapUnitsMinus1 + 1) * kMacroblockSize);
    }
    if (width != nullptr) {
        *width = static_cast<int32_t>((widthMbsMinus1 + 1) * kMacroblockSize);
    }
    return 0;
}

int COM_GetH264SliceType(const uint8_t *data)
{
    if (data == nullptr) {
        return kSliceNone;
    }
    dvr::UnitReader r(data);
    r.readUE(); // first_mb_in_slice
    const uint32_t sliceType = r.readUE();
    return sliceType < std::size(kSliceKinds) ? kSliceKinds[sliceType] : kSliceNone;
}

int32_t COM_FindH264NAL(const uint8_t *data, int32_t len, int32_t *type)
{
    // The header byte behind the start code must lie inside len too.
    if (data == nullptr || len <= kStartCodeSize) {
        return -1;
    }
    for (int32_t off = 0; off < len - kStartCodeSize;) {
        // A fourth byte above 1 can't end a start code here, nor be one of
        // the three zeros of a start code at the next three offsets.
        if (data[off + 3] > 1) {
            off += kStartCodeSize;
            continue;
        }
        if (isStartCode(data + off)) {
            if (type != nullptr) {
                *type = data[off + kStartCodeSize] & kNalTypeMask;
            }
            return off;
        }
        ++off;
    }
    return -1;
}

int32_t COM_FindH264SEI(const uint8_t *data, int32_t len, int32_t *payload_type,
                        int32_t *payload_size)
{
    if (data == nullptr) {
        return -1;
    }
    int32_t off = 0;
    for (;;) {
        int32_t type = 0;
        const int32_t found = COM_FindH264NAL(data + off, len - off, &type);
        if (found < 0) {
            return -1;
        }
        const int32_t unit = off + found;
        if (type == kNalTypeSei) {
            int32_t pos = unit + kStartCodeSize + 1;
            const uint32_t payloadType = readFfField(data, len, pos);
            const uint32_t payloadSize = readFfField(data, len, pos);
            if (payload_type != nullptr) {
                *payload_type = static_cast<int32_t>(payloadType);
            }
            if (payload_size != nullptr) {
                *payload_size = static_cast<int32_t>(payloadSize);
            }
            return unit;
        }
        off = unit + kStartCodeSize;
        if (off > len - (kStartCodeSize + 1)) {
            return -1;
        }
    }
}
