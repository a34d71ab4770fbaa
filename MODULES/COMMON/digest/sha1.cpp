// SHA-1 (FIPS 180-1) of memory and text, as 20 raw bytes. Message words are
// assembled from bytes, so the board and the host agree. The 80 rounds are
// unrolled at compile time, the five state words rotating through fixed
// positions. Where SSE2 is there (every x86-64), the message schedule is
// computed four words at a time beside the rounds; elsewhere, as on the
// board, word by word in a ring of 16.
#include "COMMON.h"
#include "digest_context.h"

#include <cstring>
#include <utility>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace {
constexpr uint32_t kInitialState[5] = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476, 0xC3D2E1F0};
constexpr uint32_t kRoundConstants[4] = {0x5A827999, 0x6ED9EBA1, 0x8F1BBCDC, 0xCA62C1D6};
constexpr size_t kRounds = 80;
constexpr size_t kRoundsPerConstant = 20;

uint32_t rotl(uint32_t x, int n)
{
    return (x << n) | (x >> (32 - n));
}

#if defined(__SSE2__)
// The message schedule four words at a time in vector registers, each group
// computed 16 rounds before it is used and stored with its round constant
// added, so that a round costs one load of it.
class Schedule {
public:
    explicit Schedule(const uint8_t *p)
    {
        for (size_t g = 0; g < 4; ++g) {
            w_[g] = byteSwap(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p + 16 * g)));
            store(g, w_[g]);
        }
    }
    // Words 4G to 4G + 3 from the 16 before them. W[t + 3] needs W[t] of the
    // same group: it is left out first and xored in after, rotated once more.
    template <size_t G> [[gnu::always_inline]] void prepare()
    {
        const __m128i w16 = w_[G % 4], w12 = w_[(G + 1) % 4], w8 = w_[(G + 2) % 4],
                      w4 = w_[(G + 3) % 4];
        const __m128i w14 = _mm_castps_si128(
            _mm_shuffle_ps(_mm_castsi128_ps(w16), _mm_castsi128_ps(w12), _MM_SHUFFLE(1, 0, 3, 2)));
        const __m128i x =
            _mm_xor_si128(_mm_xor_si128(_mm_srli_si128(w4, 4), w8), _mm_xor_si128(w14, w16));
        const __m128i r = rotl1(x);
        w_[G % 4] = _mm_xor_si128(r, _mm_slli_si128(rotl1(r), 12));
        store(G, w_[G % 4]);
    }
    uint32_t at(size_t t) const { return wk_[t]; }

private:
    static __m128i rotl1(__m128i x)
    {
        return _mm_or_si128(_mm_slli_epi32(x, 1), _mm_srli_epi32(x, 31));
    }
    static __m128i byteSwap(__m128i x)
    {
        x = _mm_or_si128(_mm_slli_epi16(x, 8), _mm_srli_epi16(x, 8));
        return _mm_shufflehi_epi16(_mm_shufflelo_epi16(x, 0xB1), 0xB1);
    }
    void store(size_t g, __m128i w)
    {
        const auto k = static_cast<int>(kRoundConstants[4 * g / kRoundsPerConstant]);
        auto *slot = reinterpret_cast<__m128i *>(wk_ + 4 * g);
        _mm_store_si128(slot, _mm_add_epi32(w, _mm_set1_epi32(k)));
        // The rounds read the words back from memory: without this the
        // compiler extracts them from the vector register one by one, which
        // costs more than the load.
        __asm__("" : "+m"(*slot));
    }

    __m128i w_[4];
    alignas(16) uint32_t wk_[kRounds];
};
#else
uint32_t bigEndian32(const uint8_t *p)
{
    return static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 |
           static_cast<uint32_t>(p[2]) << 8 | static_cast<uint32_t>(p[3]);
}

// The message schedule in a ring of 16 words, each computed in its round.
class Schedule {
public:
    explicit Schedule(const uint8_t *p)
    {
        for (size_t i = 0; i < 16; ++i) {
            w_[i] = bigEndian32(p + 4 * i);
        }
    }
    template <size_t G> void prepare() {}
    uint32_t at(size_t t)
    {
        if (t >= 16) {
            w_[t % 16] =
                rotl(w_[(t + 13) % 16] ^ w_[(t + 8) % 16] ^ w_[(t + 2) % 16] ^ w_[t % 16], 1);
        }
        return w_[t % 16] + kRoundConstants[t / kRoundsPerConstant];
    }

private:
    uint32_t w_[16];
};
#endif

// Round R on state positions a to e, which shift one place each round:
// e += rotl(a, 5) + f(b, c, d) + k + w; b = rotl(b, 30). Every fourth round
// first prepares the schedule's words for 16 rounds later.
template <size_t R> [[gnu::always_inline]] inline void round(uint32_t (&v)[5], Schedule &schedule)
{
    if constexpr (R % 4 == 0 && R / 4 + 4 < kRounds / 4) {
        schedule.prepare<R / 4 + 4>();
    }
    const uint32_t a = v[(80 - R) % 5];
    uint32_t &b = v[(81 - R) % 5];
    const uint32_t c = v[(82 - R) % 5];
    const uint32_t d = v[(83 - R) % 5];
    uint32_t &e = v[(84 - R) % 5];
    e += schedule.at(R);
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
        Schedule schedule(p);
        uint32_t v[5] = {state[0], state[1], state[2], state[3], state[4]};
        [&]<size_t... R>(std::index_sequence<R...>) __attribute__((always_inline))
        {
            (round<R>(v, schedule), ...);
        }
        (std::make_index_sequence<kRounds>{});
        for (size_t i = 0; i < 5; ++i) {
            state[i] += v[i];
        }
    }
}
} // namespace

dvr::Sha1Context dvr::sha1Start()
{
    return Sha1Context(kInitialState, sha1Blocks, true);
}

void COM_MakeBufSHA1(uint8_t *out, const void *data, size_t len)
{
    if (out == nullptr) {
        return;
    }
    dvr::Sha1Context ctx = dvr::sha1Start();
    ctx.update(data, len);
    ctx.final(out);
}

void COM_MakeStrSHA1(uint8_t *out, const char *text)
{
    COM_MakeBufSHA1(out, text, text != nullptr ? strlen(text) : 0);
}
