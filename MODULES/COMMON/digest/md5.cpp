// MD5 (RFC 1321) of memory and text. Message words are assembled from bytes,
// so the board, big-endian, computes the same digests as the host. The 64
// steps are unrolled at compile time with the four state words rotating
// through fixed positions, which leaves them in registers.
#include "COMMON.h"
#include "digest_context.h"

#include <cstring>
#include <utility>

namespace {
constexpr uint32_t kInitialState[4] = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};

// The sines table of RFC 1321: floor(abs(sin(i + 1)) * 2^32).
constexpr uint32_t kSines[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391,
};
constexpr int kShifts[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};

// The message word each step adds, by round: i, 5i + 1, 3i + 5, 7i (mod 16).
constexpr size_t wordOf(size_t step)
{
    constexpr size_t kMul[4] = {1, 5, 3, 7};
    constexpr size_t kAdd[4] = {0, 1, 5, 0};
    return (kMul[step / 16] * step + kAdd[step / 16]) % 16;
}

uint32_t rotl(uint32_t x, int n)
{
    return (x << n) | (x >> (32 - n));
}

uint32_t littleEndian32(const uint8_t *p)
{
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
           static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24;
}

// Step S on state positions a, b, c, d, which shift one place each step.
template <size_t S>
[[gnu::always_inline]] inline void step(uint32_t (&v)[4], const uint32_t (&x)[16])
{
    uint32_t &a = v[(64 - S) % 4];
    const uint32_t b = v[(65 - S) % 4];
    const uint32_t c = v[(66 - S) % 4];
    const uint32_t d = v[(67 - S) % 4];
    a += x[wordOf(S)] + kSines[S];
    if constexpr (S < 16) {
        a += d ^ (b & (c ^ d));
    } else if constexpr (S < 32) {
        // (b & d) | (c & ~d) as a sum of its two disjoint halves, so that the
        // half without b can be added first.
        a += c & ~d;
        a += b & d;
    } else if constexpr (S < 48) {
        a += b ^ c ^ d;
    } else {
        a += c ^ (b | ~d);
    }
    a = rotl(a, kShifts[S / 16][S % 4]) + b;
}

void md5Blocks(uint32_t *state, const uint8_t *p, size_t blocks)
{
    for (; blocks > 0; --blocks, p += dvr::kDigestBlockSize) {
        uint32_t x[16];
        for (size_t i = 0; i < 16; ++i) {
            x[i] = littleEndian32(p + 4 * i);
        }
        uint32_t v[4] = {state[0], state[1], state[2], state[3]};
        [&]<size_t... S>(std::index_sequence<S...>) __attribute__((always_inline))
        {
            (step<S>(v, x), ...);
        }
        (std::make_index_sequence<64>{});
        for (size_t i = 0; i < 4; ++i) {
            state[i] += v[i];
        }
    }
}

constexpr char kHexLower[] = "0123456789abcdef";
} // namespace

dvr::Md5Context dvr::md5Start()
{
    return Md5Context(kInitialState, md5Blocks, false);
}

void dvr::hexText(char *out, const uint8_t *bytes, size_t count)
{
    for (size_t i = 0; i < count; ++i) {
        out[2 * i] = kHexLower[bytes[i] >> 4];
        out[2 * i + 1] = kHexLower[bytes[i] & 0x0F];
    }
}

void COM_MakeBufMD5(char *out, const void *data, size_t len)
{
    if (out == nullptr) {
        return;
    }
    dvr::Md5Context ctx = dvr::md5Start();
    ctx.update(data, len);
    uint8_t digest[dvr::kMd5Size];
    ctx.final(digest);
    dvr::hexText(out, digest, sizeof digest);
}

void COM_MakeStrMD5(char *out, const char *text)
{
    COM_MakeBufMD5(out, text, text != nullptr ? strlen(text) : 0);
}
