// Private to the library: the three-step MD5 and SHA-1 contexts behind the
// digest operations of memory, text and files.
#ifndef DVR_DIGEST_CONTEXT_H
#define DVR_DIGEST_CONTEXT_H

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace dvr {

constexpr size_t kDigestBlockSize = 64;
constexpr size_t kMd5Size = 16;
constexpr size_t kSha1Size = 20;

// A Merkle-Damgard digest of Words 32-bit state words over 64-byte blocks:
// made by md5Start or sha1Start, then update() any number of times, then
// final(). MD5 and SHA-1 differ in their block function and byte order.
template <size_t Words> struct DigestContext {
    using Compress = void (*)(uint32_t *state, const uint8_t *blocks, size_t count);

    DigestContext(const uint32_t (&initial)[Words], Compress blockFunction, bool bigEndianWords)
        : length(0), compress(blockFunction), bigEndian(bigEndianWords)
    {
        memcpy(state, initial, sizeof state);
    }

    uint32_t state[Words];
    uint64_t length; // bytes fed so far
    uint8_t block[kDigestBlockSize];
    Compress compress;
    bool bigEndian; // of the length field and of the digest's words

    // Feeds whole blocks straight from the caller's data where it can,
    // keeping a partial block in the context.
    void update(const void *data, size_t len)
    {
        const auto *in = static_cast<const uint8_t *>(data);
        if (in == nullptr || len == 0) {
            return;
        }
        const size_t used = length % kDigestBlockSize;
        length += len;
        if (used != 0) {
            const size_t take = len < kDigestBlockSize - used ? len : kDigestBlockSize - used;
            memcpy(block + used, in, take);
            in += take;
            len -= take;
            if (used + take < kDigestBlockSize) {
                return;
            }
            compress(state, block, 1);
        }
        const size_t whole = len / kDigestBlockSize;
        if (whole != 0) {
            compress(state, in, whole);
            in += whole * kDigestBlockSize;
            len -= whole * kDigestBlockSize;
        }
        memcpy(block, in, len);
    }

    // Pads with a 1 bit, zeros up to 8 bytes before a block boundary and the
    // length in bits, and writes the state words out in the digest's order.
    void final(uint8_t *digest)
    {
        constexpr size_t kLengthField = 8;
        const uint64_t bits = length * 8;
        uint8_t pad[kDigestBlockSize + kLengthField] = {0x80};
        const size_t used = length % kDigestBlockSize;
        const size_t zeros =
            (used < kDigestBlockSize - kLengthField ? kDigestBlockSize : 2 * kDigestBlockSize) -
            kLengthField - used;
        for (size_t i = 0; i < kLengthField; ++i) {
            pad[zeros + i] =
                static_cast<uint8_t>(bits >> (bigEndian ? 8 * (kLengthField - 1 - i) : 8 * i));
        }
        update(pad, zeros + kLengthField);
        for (size_t i = 0; i < 4 * Words; ++i) {
            digest[i] =
                static_cast<uint8_t>(state[i / 4] >> (bigEndian ? 8 * (3 - i % 4) : 8 * (i % 4)));
        }
    }
};

using Md5Context = DigestContext<kMd5Size / 4>;
using Sha1Context = DigestContext<kSha1Size / 4>;
Md5Context md5Start();
Sha1Context sha1Start();

// Two lower-case hexadecimal digits a byte, without a terminator.
void hexText(char *out, const uint8_t *bytes, size_t count);

} // namespace dvr

#endif
