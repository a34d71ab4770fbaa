/* Private to the library: big-endian fields of command blocks and replies,
 * read and written byte by byte whatever the target's byte order. */
#ifndef DVR_DEV_ENDIAN_H
#define DVR_DEV_ENDIAN_H

#include <cstddef>
#include <cstdint>

namespace dev::be {

// The width bytes at p, high byte first (width at most 4).
constexpr uint32_t get(const uint8_t *p, size_t width)
{
    uint32_t v = 0;
    for (size_t i = 0; i < width; ++i) {
        v = (v << 8) | p[i];
    }
    return v;
}

constexpr uint16_t get16(const uint8_t *p)
{
    return static_cast<uint16_t>(get(p, 2));
}
constexpr uint32_t get24(const uint8_t *p)
{
    return get(p, 3);
}
constexpr uint32_t get32(const uint8_t *p)
{
    return get(p, 4);
}

// Writes the low width bytes of v at p, high byte first.
constexpr void put(uint8_t *p, size_t width, uint32_t v)
{
    for (size_t i = width; i-- > 0; v >>= 8) {
        p[i] = static_cast<uint8_t>(v);
    }
}

constexpr void put16(uint8_t *p, uint32_t v)
{
    put(p, 2, v);
}

} // namespace dev::be

#endif
