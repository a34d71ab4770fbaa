// H.264 streams and JPEG/MPEG-4 headers from files and streams the recorder
// did not make. The NAL and SEI searches know the length; the readers without
// one get the data behind a start code and the padding callers keep.
#include <cstdint>
#include <vector>

#include "COMMON.h"

namespace {
// What callers keep behind a unit: a start code and zeros.
constexpr uint8_t kTail[] = {0, 0, 0, 1, 0, 0, 0, 0};
// The JPEG and MPEG-4 readers read at most this many bytes of their header.
constexpr size_t kHeaderBytes = 24;
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::vector<uint8_t> exact(data, data + size);
    int32_t type = 0, payloadType = 0, payloadSize = 0;
    COM_FindH264NAL(exact.data(), static_cast<int32_t>(exact.size()), &type);
    COM_FindH264SEI(exact.data(), static_cast<int32_t>(exact.size()), &payloadType, &payloadSize);

    std::vector<uint8_t> unit(data, data + size);
    unit.insert(unit.end(), std::begin(kTail), std::end(kTail));
    int32_t width = 0, height = 0, fps = 0;
    int32_t profile = 0;
    COM_ProcH264SPS(unit.data(), &width, &height, 0, &profile);
    COM_GetH264SliceType(unit.data());

    std::vector<uint8_t> header(data, data + size);
    if (header.size() < kHeaderBytes) {
        header.resize(kHeaderBytes);
    }
    COM_ProcJpegSOF(header.data(), &width, &height);
    COM_ProcMpeg4VOL(header.data(), &width, &height, &fps);
    return 0;
}
