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

struct Md5Context {
    uint32_t state[4];
    uint64_t length; // bytes fed so far
    uint8_t block[kDigestBlockSize];
};
void md5Init(Md5Context &ctx);
void md5Update(Md5Context &ctx, const void *data, size_t len);
void md5Final(Md5Context &ctx, uint8_t digest[kMd5Size]);

struct Sha1Context {
    uint32_t state[5];
    uint64_t length;
    uint8_t block[kDigestBlockSize];
};
void sha1Init(Sha1Context &ctx);
void sha1Update(Sha1Context &ctx, const void *data, size_t len);
void sha1Final(Sha1Context &ctx, uint8_t digest[kSha1Size]);

// Two lower-case hexadecimal digits a byte, without a terminator.
void hexText(char *out, const uint8_t *bytes, size_t count);

// Feeds bytes to compress(state, blocks, count) in whole 64-byte blocks,
// straight from the caller's data where it can, keeping a partial block in
// the context.
template <typename Context, typename Compress>
void feedBlocks(Context &ctx, const void *data, size_t len, Compress compress)
{
    const auto *in = static_cast<const uint8_t *>(data);
    if (in == nullptr || len == 0) {
        return;
    }
    size_t used = ctx.length % kDigestBlockSize;
    ctx.length += len;
    if (used != 0) {
        const size_t take = len < kDigestBlockSize - used ? len : kDigestBlockSize - used;
        memcpy(ctx.block + used, in, take);
        in += take;
        len -= take;
        if (used + take < kDigestBlockSize) {
            return;
        }
        compress(ctx.state, ctx.block, 1);
    }
    const size_t whole = len / kDigestBlockSize;
    if (whole != 0) {
        compress(ctx.state, in, whole);
        in += whole * kDigestBlockSize;
        len -= whole * kDigestBlockSize;
    }
    memcpy(ctx.block, in, len);
}

// The padding both digests share: a 1 bit, zeros up to 8 bytes before a block
// boundary, and the length in bits, little-endian for MD5, big-endian for SHA-1.
template <typename Context, typename Compress>
void padBlocks(Context &ctx, bool bigEndianLength, Compress compress)
{
    constexpr size_t kLengthField = 8;
    const uint64_t bits = ctx.length * 8;
    uint8_t pad[kDigestBlockSize + kLengthField] = {0x80};
    const size_t used = ctx.length % kDigestBlockSize;
    const size_t zeros = (used < kDigestBlockSize - kLengthField ? kDigestBlockSize : 2 * kDigestBlockSize) -
                         kLengthField - used;
    for (size_t i = 0; i < kLengthField; ++i) {
        const size_t shift = bigEndianLength ? 8 * (kLengthField - 1 - i) : 8 * i;
        pad[zeros + i] = static_cast<uint8_t>(bits >> shift);
    }
    feedBlocks(ctx, pad, zeros + kLengthField, compress);
}

} // namespace dvr

#endif
