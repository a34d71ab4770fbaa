// Test helpers for the stream parsers: a writer of header bit fields (fixed
// widths most significant bit first, Exp-Golomb codes), and exact-size copies.
#ifndef DVR_TEST_BIT_WRITER_H
#define DVR_TEST_BIT_WRITER_H

#include <algorithm>
#include <bit>
#include <cstdint>
#include <memory>
#include <vector>

// A heap copy of exactly the bytes given, so that ASan sees any read past them.
inline std::unique_ptr<uint8_t[]> exactCopy(const std::vector<uint8_t> &bytes)
{
    auto copy = std::make_unique<uint8_t[]>(bytes.size());
    std::copy(bytes.begin(), bytes.end(), copy.get());
    return copy;
}

struct BitWriter {
    BitWriter &put(uint32_t v, int n)
    {
        for (int i = n - 1; i >= 0; --i, ++bits) {
            out.resize(bits / 8 + 1);
            out.back() |= static_cast<uint8_t>(((v >> i) & 1) << (7 - bits % 8));
        }
        return *this;
    }
    BitWriter &ue(uint32_t v)
    {
        return put(0, std::bit_width(v + 1) - 1).put(v + 1, std::bit_width(v + 1));
    }
    BitWriter &se(int32_t v) { return ue(v > 0 ? 2 * v - 1 : -2 * v); }
    // The bytes, with a 3 put in behind two zero bytes followed by a byte of
    // 0 to 3 as an H.264 encoder does, then 8 zero bytes.
    std::vector<uint8_t> bytes(bool escape = true) const
    {
        std::vector<uint8_t> r;
        for (uint8_t b : out) {
            if (escape && r.size() >= 2 && r.end()[-1] == 0 && r.end()[-2] == 0 && b <= 3) {
                r.push_back(3);
            }
            r.push_back(b);
        }
        r.resize(r.size() + 8);
        return r;
    }
    std::vector<uint8_t> out;
    size_t bits = 0;
};

#endif
