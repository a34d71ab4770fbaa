// SHA-1 (FIPS 180-1) of memory and text, as 20 raw bytes. Message words are
// assembled from bytes, so the board and the host agree. The 80 rounds are
// unrolled at compile time: the five state words rotate through fixed
// positions and the message schedule lives in a ring of 16 words.
#include "COMMON.h"
#include "digest_context.h"

#include <cstring>
#include <utility>

namespace {
constexpr uint32_t kInitialState[5] = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476, 0xC3D2E1F0};
constexpr uint32_t kRoundConstants[4] = {0x5A827999, 0x6ED9EBA1, 0x8F1BBCDC, 0xCA62C1D6};

uint32_t rotl(uint32_t x, int n)
{
    return (x << n) | (x >> (32 - n));
}

uint32_t bigEndian32(const uint8_t *p)
{
    return static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 |
           static_cast<uint32_t>(p[2]) << 8 | static_cast<uint32_t>(p[3]);
}

// Round R on state positions a to e, which shift one place each round:
// e += rotl(a, 5) + f(b, c, d) + k + w; b = rotl(b, 30).
template <size_t R>
[[gnu::always_inline]] inline void round(uint32_t (&v)[5], uint32_t (&w)[16])
{
    const uint32_t a = v[(80 - R) % 5];
    uint32_t &b = v[(81 - R) % 5];
    const uint32_t c = v[(82 - R) % 5];
    const uint32_t d = v[(83 - R) % 5];
    uint32_t &e = v[(84 - R) % 5];
    if constexpr (R >= 16) {
        w[R % 16] = rotl(w[(R + 13) % 16] ^ w[(R + 8) % 16] ^ w[(R + 2) % 16] ^ w[R % 16], 1);
    }
    e += w[R % 16] + kRoundConstants[R / 20];
    if constexpr (R < 20) {
        e += d ^ (b & (c ^ d));
    } else if constexpr (R < 40 || R >= 60) {
        e += b ^ c ^ d;
    } else {
        // The majority as a sum of two disjoint parts, added one by one.
        e += c & d;
        e += b & (c ^ d);
    }
    e += rotl(a, 5);
    b = rotl(b, 30);
}

void sha1Blocks(uint32_t *state, const uint8_t *p, size_t blocks)
{
    for (; blocks > 0; --blocks, p += dvr::kDigestBlockSize) {
        uint32_t w[16];
        for (size_t i = 0; i < 16; ++i) {
            w[i] = bigEndian32(p + 4 * i);
        }
        uint32_t v[5] = {state[0], state[1], state[2], state[3], state[4]};
        [&]<size_t... R>(std::index_sequence<R...>) __attribute__((always_inline)) { (round<R>(v, w), ...); }(std::make_index_sequence<80>{});
        for (size_t i = 0; i < 5; ++i) {
            state[i] += v[i];
        }
    }
}
} // namespace

void dvr::sha1Init(Sha1Context &ctx)
{
    memcpy(ctx.state, kInitialState, sizeof ctx.state);
    ctx.length = 0;
}

void dvr::sha1Update(Sha1Context &ctx, const void *data, size_t len)
{
    feedBlocks(ctx, data, len, sha1Blocks);
}

void dvr::sha1Final(Sha1Context &ctx, uint8_t digest[kSha1Size])
{
    padBlocks(ctx, true, sha1Blocks);
    for (size_t i = 0; i < kSha1Size; ++i) {
        digest[i] = static_cast<uint8_t>(ctx.state[i / 4] >> (8 * (3 - i % 4)));
    }
}

void COM_MakeBufSHA1(uint8_t *out, const void *data, size_t len)
{
    if (out == nullptr) {
        return;
    }
    dvr::Sha1Context ctx;
    dvr::sha1Init(ctx);
    dvr::sha1Update(ctx, data, len);
    dvr::sha1Final(ctx, out);
}

void COM_MakeStrSHA1(uint8_t *out, const char *text)
{
    COM_MakeBufSHA1(out, text, text != nullptr ? strlen(text) : 0);
}
