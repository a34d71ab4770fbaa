// The two bit readers of the stream header parsers: a plain one over raw
// bytes, and one over an H.264 RBSP that drops emulation prevention bytes as
// it fetches. Both work on byte values only, so the host and the big-endian
// board read the same bits.
#include "rbsp_unit.h"

#include <array>

namespace {
constexpr uint32_t kCacheAllOnes = 0xFFFFFFFF;
constexpr uint32_t kEmulationPrevention = 0x000003;
constexpr uint32_t kLow24 = 0x00FFFFFF;
constexpr uint32_t kLow16 = 0x0000FFFF;
// A fetch or a read asks for at most this many bits of the cache at once.
constexpr int32_t kCacheBits = 32;

// Leading zero bits of each 6-bit value within those six; 0 for the value 0.
constexpr std::array<uint8_t, 64> kLeadingZeros6 = [] {
    std::array<uint8_t, 64> t{};
    for (unsigned v = 1; v < t.size(); ++v) {
        uint8_t zeros = 0;
        for (unsigned bit = 0x20; (v & bit) == 0; bit >>= 1) {
            ++zeros;
        }
        t[v] = zeros;
    }
    return t;
}();

// Leading zeros of a word, six bits at a time through the table: exact up to
// 23, and 18 for any word below 256.
unsigned leadingZeros(uint32_t w)
{
    if ((w >> 26) != 0) {
        return kLeadingZeros6[w >> 26];
    }
    if (w >= 0x100000) {
        return kLeadingZeros6[(w >> 20) & 0x3F] + 6;
    }
    if (w >= 0x4000) {
        return kLeadingZeros6[(w >> 14) & 0x3F] + 12;
    }
    return kLeadingZeros6[(w >> 8) & 0x3F] + 18;
}

// The next byte of the data. A reader set up with a length takes nothing at
// or past its end: the byte there reads as 0, and cur moves on as after any
// fetch.
uint32_t takeByte(COM_RBSP_READER *r)
{
    if (r->cur == nullptr) {
        return 0;
    }
    const uint32_t byte = r->cur < r->end ? *r->cur : 0;
    ++r->cur;
    return byte;
}

// One byte of payload into the low end of the cache; a 3 behind two zero
// bytes of payload is dropped and the byte behind it taken as it is.
void fetch(COM_RBSP_READER *r)
{
    uint32_t byte = takeByte(r);
    if ((((r->cache << 8) | byte) & kLow24) == kEmulationPrevention) {
        byte = takeByte(r);
    }
    r->cache = (r->cache << 8) | byte;
}

// Fills the cache with the first four bytes behind a cache of all ones, so
// that a 3 among the first two bytes is never taken for emulation prevention.
void setUp(COM_RBSP_READER *r, const uint8_t *data, const uint8_t *end)
{
    r->cache = kCacheAllOnes;
    r->offset = 0;
    r->cur = data;
    r->end = end;
    for (int i = 0; i < 4; ++i) {
        fetch(r);
    }
}
} // namespace

// A byte below 3 behind two raw zero bytes that are payload begins the next
// start code: from there everything reads as zero and nothing more is taken.
// Two zero bytes of payload mean that two bytes were taken, so the two in
// front of cur are the unit's. (The byte behind a dropped 3 has the 3 in
// front of it, so it never counts as a start code.)
uint32_t dvr::UnitReader::nextByte()
{
    if (ended_) {
        return 0;
    }
    const uint32_t byte = *cur_;
    if (byte < 3 && (payload_ & kLow16) == 0 && cur_[-1] == 0 && cur_[-2] == 0) {
        ended_ = true;
        return 0;
    }
    ++cur_;
    return byte;
}

// Takes bytes until n bits are at hand.
void dvr::UnitReader::need(uint32_t n)
{
    while (count_ < n) {
        uint32_t byte = nextByte();
        if (((payload_ << 8 | byte) & kLow24) == kEmulationPrevention) {
            byte = nextByte();
        }
        payload_ = payload_ << 8 | byte;
        bits_ = bits_ << 8 | byte;
        count_ += 8;
    }
}

void dvr::UnitReader::skip(uint32_t n)
{
    while (n > 0) {
        const uint32_t step = n < 24 ? n : 24;
        need(step);
        count_ -= step;
        n -= step;
    }
}

uint32_t dvr::UnitReader::read(uint32_t n)
{
    if (n == 0) {
        return 0;
    }
    n = n < 32 ? n : 32;
    need(n);
    count_ -= n;
    return static_cast<uint32_t>((bits_ >> count_) & ((uint64_t{1} << n) - 1));
}

// The same count as leadingZeros() of the 32 bits ahead, looking at no bit
// behind the first 1: its position when it is among the first 24 bits, else 18.
uint32_t dvr::UnitReader::leadingZeros()
{
    for (uint32_t at = 0; at < 24; ++at) {
        need(at + 1);
        if (((bits_ >> (count_ - 1 - at)) & 1) != 0) {
            return at;
        }
    }
    return 18;
}

uint32_t dvr::UnitReader::readUE()
{
    const uint32_t zeros = leadingZeros();
    skip(zeros + 1);
    return read(zeros) + (1u << zeros) - 1;
}

int32_t dvr::UnitReader::readSE()
{
    const uint32_t zeros = leadingZeros();
    skip(zeros + 1);
    const uint32_t k = read(zeros) + (1u << zeros);
    const auto half = static_cast<int32_t>(k >> 1);
    return (k & 1) != 0 ? -half : half;
}

uint32_t COM_ReadBits(const uint8_t **ppData, int *pBitsLeft, int n)
{
    uint32_t value = 0;
    if (ppData == nullptr || *ppData == nullptr || pBitsLeft == nullptr) {
        return 0;
    }
    int left = (*pBitsLeft >= 1 && *pBitsLeft <= 8) ? *pBitsLeft : 8;
    // Whole runs of the present byte at a time: the bits it has left become
    // the high part of what is still to read.
    while (n > 0) {
        const int take = n < left ? n : left;
        const uint32_t bits =
            (static_cast<uint32_t>(**ppData) >> (left - take)) & ((1u << take) - 1);
        value = (value << take) | bits;
        n -= take;
        left -= take;
        if (left == 0) {
            ++*ppData;
            left = 8;
        }
    }
    *pBitsLeft = left;
    return value;
}

void COM_RbspInit(COM_RBSP_READER *reader, const uint8_t *data, int32_t len)
{
    if (reader != nullptr) {
        // A length of 0 or less leaves nothing to fetch: the cache fills with
        // zeros. The length is all the reader knows of the caller's buffer.
        setUp(reader, data, (data != nullptr && len > 0) ? data + len : data);
    }
}

void COM_RbspSkip(COM_RBSP_READER *reader, int32_t n)
{
    if (reader == nullptr || n < 1) {
        return;
    }
    uint32_t offset = reader->offset + static_cast<uint32_t>(n);
    while (offset >= 8) {
        fetch(reader);
        offset -= 8;
    }
    reader->offset = static_cast<uint8_t>(offset);
}

uint32_t COM_RbspRead(COM_RBSP_READER *reader, int32_t n)
{
    if (reader == nullptr || n < 1) {
        return 0;
    }
    if (n > kCacheBits) {
        n = kCacheBits;
    }
    const uint32_t bits = reader->cache << (reader->offset & 7);
    COM_RbspSkip(reader, n);
    return n == kCacheBits ? bits : bits >> (kCacheBits - n);
}

uint32_t COM_RbspReadUE(COM_RBSP_READER *reader)
{
    if (reader == nullptr) {
        return 0;
    }
    const unsigned zeros = leadingZeros(reader->cache << (reader->offset & 7));
    COM_RbspSkip(reader, static_cast<int32_t>(zeros) + 1);
    return COM_RbspRead(reader, static_cast<int32_t>(zeros)) + (1u << zeros) - 1;
}

int32_t COM_RbspReadSE(COM_RBSP_READER *reader)
{
    if (reader == nullptr) {
        return 0;
    }
    const unsigned zeros = leadingZeros(reader->cache << (reader->offset & 7));
    COM_RbspSkip(reader, static_cast<int32_t>(zeros) + 1);
    const uint32_t k = COM_RbspRead(reader, static_cast<int32_t>(zeros)) + (1u << zeros);
    const auto half = static_cast<int32_t>(k >> 1);
    return (k & 1) != 0 ? -half : half;
}

uint8_t COM_ReverseBits8(uint8_t value)
{
    unsigned v = value;
    v = ((v & 0xF0) >> 4) | ((v & 0x0F) << 4);
    v = ((v & 0xCC) >> 2) | ((v & 0x33) << 2);
    v = ((v & 0xAA) >> 1) | ((v & 0x55) << 1);
    return static_cast<uint8_t>(v);
}

uint32_t COM_SwapBytes32(uint32_t value)
{
    return (value >> 24) | ((value >> 8) & 0xFF00) | ((value << 8) & 0xFF0000) | (value << 24);
}
