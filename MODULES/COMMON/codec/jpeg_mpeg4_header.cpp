// Picture size straight from a header: the start-of-frame segment of a JPEG
// image, and the video object layer header of an MPEG-4 Visual (ISO/IEC
// 14496-2) stream, which also gives the frame rate. Both read only the fields
// up to what they need, byte by byte, so they never go past the end of a
// complete header.
#include "COMMON.h"

#include <bit>

namespace {
// A start-of-frame segment of three components: 8 bytes of fields and 3 for each.
constexpr uint32_t kSofLengthThreeComponents = 0x0011;

uint32_t bigEndian16(const uint8_t *p)
{
    return (static_cast<uint32_t>(p[0]) << 8) | p[1];
}

constexpr uint32_t kAspectExtendedPar = 15;
constexpr uint32_t kShapeRectangular = 0;
constexpr uint32_t kShapeBinaryOnly = 2;
constexpr uint32_t kShapeGreyscale = 3;
constexpr uint32_t kVeridVersion1 = 1;
constexpr uint32_t kFpsScale = 100;
// The vbv_parameters fields: first_half_bit_rate, marker, latter_half_bit_rate,
// marker, first_half_vbv_buffer_size, marker, latter_half_vbv_buffer_size,
// first_half_vbv_occupancy, marker, latter_half_vbv_occupancy, marker.
constexpr int kVbvFieldBits[] = {15, 1, 15, 1, 15, 1, 3, 11, 1, 15, 1};

// The bits of fixed_vop_time_increment: as many as the resolution has
// significant bits, none for a resolution of 0.
int timeIncrementBits(uint32_t resolution)
{
    return std::bit_width(resolution);
}
} // namespace

int COM_ProcJpegSOF(const uint8_t *data, int32_t *width, int32_t *height)
{
    // data[0] is the marker's code; the length comes first so that a shorter
    // segment is never read past its own fields.
    if (data == nullptr || bigEndian16(data + 1) != kSofLengthThreeComponents) {
        return -1;
    }
    const auto h = static_cast<int32_t>(bigEndian16(data + 4));
    const auto w = static_cast<int32_t>(bigEndian16(data + 6));
    if (width != nullptr) {
        *width = w;
    }
    if (height != nullptr) {
        *height = h;
    }
    return (w > 0 && h > 0) ? 0 : -1;
}

int COM_ProcMpeg4VOL(const uint8_t *data, int32_t *width, int32_t *height, int32_t *fps)
{
    if (data == nullptr) {
        return -1;
    }
    const uint8_t *p = data;
    int left = 8;
    auto bits = [&](int n) { return COM_ReadBits(&p, &left, n); };

    bits(1); // random_accessible_vol
    bits(8); // video_object_type_indication
    uint32_t verid = 0;
    if (bits(1) != 0) { // is_object_layer_identifier
        verid = bits(4);
        bits(3); // video_object_layer_priority
    }
    if (bits(4) == kAspectExtendedPar) {
        bits(8); // par_width
        bits(8); // par_height
    }
    if (bits(1) != 0) { // vol_control_parameters
        bits(2);        // chroma_format
        bits(1);        // low_delay
        if (bits(1) != 0) {
            for (int n : kVbvFieldBits) {
                bits(n);
            }
        }
    }
    const uint32_t shape = bits(2);
    if (shape == kShapeGreyscale && verid != kVeridVersion1) {
        bits(4); // video_object_layer_shape_extension
    }
    bits(1); // marker
    const uint32_t resolution = bits(16);
    bits(1); // marker
    uint32_t fixedIncrement = 0;
    if (bits(1) != 0) { // fixed_vop_rate
        fixedIncrement = bits(timeIncrementBits(resolution));
    }
    if (shape == kShapeBinaryOnly) {
        return -1;
    }
    uint32_t w = 0;
    uint32_t h = 0;
    if (shape == kShapeRectangular) {
        bits(1);
        w = bits(13);
        bits(1);
        h = bits(13);
        bits(1);
    }
    // An interlaced layer is reported at half its coded width and height.
    const uint32_t divisor = bits(1) != 0 ? 2 : 1;
    w /= divisor;
    h /= divisor;
    if (w == 0 || h == 0) {
        return -1;
    }
    if (width != nullptr) {
        *width = static_cast<int32_t>(w);
    }
    if (height != nullptr) {
        *height = static_cast<int32_t>(h);
    }
    if (fixedIncrement != 0 && fps != nullptr) {
        *fps = static_cast<int32_t>(resolution * kFpsScale / fixedIncrement);
    }
    return 0;
}
