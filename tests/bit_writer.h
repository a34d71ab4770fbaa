// Writes the bit fields of stream headers for the parser tests: fixed-width
// fields most significant bit first, and Exp-Golomb codes.
#ifndef DVR_TEST_BIT_WRITER_H
#define DVR_TEST_BIT_WRITER_H

#include <cstdint>
#include <vector>

class BitWriter {
public:
    BitWriter &put(uint32_t value, int n)
    {
        for (int i = n - 1; i >= 0; --i) {
            if (bits_ % 8 == 0) {
                bytes_.push_back(0);
            }
            bytes_.back() |= static_cast<uint8_t>(((value >> i) & 1) << (7 - bits_ % 8));
            ++bits_;
        }
        return *this;
    }
    BitWriter &ue(uint32_t value)
    {
        const uint64_t code = uint64_t{value} + 1;
        int width = 0;
        while ((code >> width) > 1) {
            ++width;
        }
        put(0, width);
        put(1, 1);
        return put(static_cast<uint32_t>(code), width);
    }
    BitWriter &se(int32_t value)
    {
        return ue(value > 0 ? 2 * static_cast<uint32_t>(value) - 1 : 2 * static_cast<uint32_t>(-value));
    }
    // The bytes written, with a 3 put in behind any two zero bytes that a
    // byte of 0 to 3 follows (as an H.264 encoder does), then zero bytes.
    std::vector<uint8_t> bytes(bool escape = true, size_t padding = 8) const
    {
        std::vector<uint8_t> out;
        for (uint8_t b : bytes_) {
            if (escape && out.size() >= 2 && out[out.size() - 1] == 0 && out[out.size() - 2] == 0 && b <= 3) {
                out.push_back(3);
            }
            out.push_back(b);
        }
        out.resize(out.size() + padding);
        return out;
    }

private:
    std::vector<uint8_t> bytes_;
    size_t bits_ = 0;
};

#endif
