// The two MIME content transfer encodings, quoted-printable and Base64, both
// ways, and the numeric codes of the RTP audio formats the recorder plays.
// Plain buffer-to-buffer transforms: no allocation, no report, no state.
#include "COMMON.h"

#include <array>
#include <cstring>
#include <string_view>

namespace {
constexpr char kHexUpper[] = "0123456789ABCDEF";
constexpr char kQpEscape = '=';
// The shortest text the quoted-printable decoder decodes: "=" and two digits.
constexpr size_t kQpMinText = 3;

int hexValue(char c)
{
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    return -1;
}

constexpr char kBase64Alphabet[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kBase64Pad = '=';

// The two characters of every 12-bit value, so that three bytes encode with
// two look-ups.
constexpr auto kBase64Pairs = [] {
    std::array<std::array<char, 2>, 4096> t{};
    for (size_t v = 0; v < t.size(); ++v) {
        t[v] = {kBase64Alphabet[v >> 6], kBase64Alphabet[v & 0x3F]};
    }
    return t;
}();

// The 6-bit value of each alphabet character; kNotBase64 for all others.
constexpr uint8_t kNotBase64 = 0x80;
constexpr auto kBase64Values = [] {
    std::array<uint8_t, 256> t{};
    t.fill(kNotBase64);
    for (uint8_t v = 0; v < 64; ++v) {
        t[static_cast<unsigned char>(kBase64Alphabet[v])] = v;
    }
    return t;
}();

struct AudioCodec {
    std::string_view name;
    int32_t codec;
};
constexpr AudioCodec kAudioCodecs[] = {
    {"PCMU", 7},         {"PCMA", 6},         {"G726-16", 0x4000},
    {"G726-24", 0x4001}, {"G726-32", 0x4002}, {"G726-40", 0x4003},
};
// The clock rate, in kHz, that every format of the table runs at.
constexpr int32_t kAudioClockKHz = 8;
} // namespace

int32_t COM_EncodeQP(char *dst, const void *src, int32_t len)
{
    if (dst == nullptr) {
        return 0;
    }
    const auto *in = static_cast<const uint8_t *>(src);
    char *out = dst;
    for (int32_t i = 0; in != nullptr && i < len; ++i) {
        out[0] = kQpEscape;
        out[1] = kHexUpper[in[i] >> 4];
        out[2] = kHexUpper[in[i] & 0x0F];
        out += 3;
    }
    *out = '\0';
    return static_cast<int32_t>(out - dst);
}

int32_t COM_DecodeQP(void *dst, const char *text)
{
    if (dst == nullptr || text == nullptr) {
        return 0;
    }
    auto *out = static_cast<uint8_t *>(dst);
    const std::string_view s(text);
    if (s.size() < kQpMinText) {
        memcpy(out, s.data(), s.size());
        return static_cast<int32_t>(s.size());
    }
    size_t n = 0;
    for (size_t i = 0; i < s.size(); ++i) {
        if (s[i] == kQpEscape && i + 2 < s.size()) {
            const int high = hexValue(s[i + 1]);
            const int low = high < 0 ? -1 : hexValue(s[i + 2]);
            if (low >= 0) {
                out[n++] = static_cast<uint8_t>(high << 4 | low);
                i += 2;
                continue;
            }
        }
        out[n++] = static_cast<uint8_t>(s[i]);
    }
    return static_cast<int32_t>(n);
}

int32_t COM_EncodeBase64(char *dst, const void *src, int32_t len)
{
    if (dst == nullptr) {
        return 0;
    }
    const auto *in = static_cast<const uint8_t *>(src);
    char *out = dst;
    const int32_t whole = (in == nullptr || len < 0) ? 0 : len - len % 3;
    for (int32_t i = 0; i < whole; i += 3) {
        const uint32_t v =
            static_cast<uint32_t>(in[i]) << 16 | static_cast<uint32_t>(in[i + 1]) << 8 | in[i + 2];
        memcpy(out, kBase64Pairs[v >> 12].data(), 2);
        memcpy(out + 2, kBase64Pairs[v & 0xFFF].data(), 2);
        out += 4;
    }
    const int32_t rest = (in == nullptr || len < 0) ? 0 : len % 3;
    if (rest != 0) {
        const uint32_t v = static_cast<uint32_t>(in[whole]) << 16 |
                           (rest == 2 ? static_cast<uint32_t>(in[whole + 1]) << 8 : 0);
        out[0] = kBase64Alphabet[v >> 18];
        out[1] = kBase64Alphabet[(v >> 12) & 0x3F];
        out[2] = rest == 2 ? kBase64Alphabet[(v >> 6) & 0x3F] : kBase64Pad;
        out[3] = kBase64Pad;
        out += 4;
    }
    *out = '\0';
    return static_cast<int32_t>(out - dst);
}

int32_t COM_DecodeBase64(void *dst, const char *text)
{
    if (dst == nullptr || text == nullptr) {
        return 0;
    }
    auto *out = static_cast<uint8_t *>(dst);
    const auto *in = reinterpret_cast<const unsigned char *>(text);
    const size_t n = strlen(text);
    uint8_t *o = out;
    uint32_t acc = 0;
    int bits = 0;               // bits in acc not yet written
    bool behindAlphabet = true; // a "=" here ends the text (so also at the start)
    for (size_t i = 0; i < n;) {
        if (bits == 0) {
            // Whole groups of four alphabet characters, three bytes each.
            const size_t groupStart = i;
            while (i + 4 <= n) {
                const uint32_t a = kBase64Values[in[i]];
                const uint32_t b = kBase64Values[in[i + 1]];
                const uint32_t c = kBase64Values[in[i + 2]];
                const uint32_t d = kBase64Values[in[i + 3]];
                if (((a | b | c | d) & kNotBase64) != 0) {
                    break;
                }
                const uint32_t v = a << 18 | b << 12 | c << 6 | d;
                o[0] = static_cast<uint8_t>(v >> 16);
                o[1] = static_cast<uint8_t>(v >> 8);
                o[2] = static_cast<uint8_t>(v);
                o += 3;
                i += 4;
            }
            if (i != groupStart) {
                behindAlphabet = true;
                continue;
            }
        }
        const unsigned char ch = in[i++];
        const uint32_t v = kBase64Values[ch];
        if (v != kNotBase64) {
            acc = acc << 6 | v;
            bits += 6;
            if (bits >= 8) {
                bits -= 8;
                *o++ = static_cast<uint8_t>(acc >> bits);
            }
            behindAlphabet = true;
        } else if (ch == kBase64Pad && behindAlphabet) {
            break;
        } else {
            behindAlphabet = false; // skipped, a "=" behind it included
        }
    }
    return static_cast<int32_t>(o - out);
}

int COM_GetAudioCodecId(const char *name, int32_t *value, int32_t *codec)
{
    if (value != nullptr) {
        *value = kAudioClockKHz;
    }
    if (codec != nullptr) {
        *codec = 0;
    }
    if (name == nullptr || codec == nullptr) {
        return 0;
    }
    for (const AudioCodec &entry : kAudioCodecs) {
        if (entry.name == name) {
            *codec = entry.codec;
            break;
        }
    }
    return 0;
}
