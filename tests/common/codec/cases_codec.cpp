// Operations of the codec case files (tests/cases/codec).
#include <sys/mman.h>
#include <unistd.h>

#include <bit>
#include <sstream>

#include "case_runner.h"

namespace {
using cases::Args;
using cases::nums;
using cases::q;
using Bytes = std::vector<uint8_t>;

// Header bytes from fields, most significant bit first: "77:8" a value of 8
// bits, "ue:5" and "se:-2" Exp-Golomb codes, "=42C0" whole bytes. With "esc"
// among them, a 3 goes in behind two zero bytes followed by a byte of 0 to 3,
// as an H.264 encoder does.
Bytes fields(const std::string &text)
{
    Bytes out, escaped;
    size_t bits = 0;
    bool escape = false;
    const auto put = [&](uint32_t v, int n) {
        for (int i = n - 1; i >= 0; --i, ++bits) {
            out.resize(bits / 8 + 1);
            out.back() |= static_cast<uint8_t>(((v >> i) & 1) << (7 - bits % 8));
        }
    };
    std::istringstream in(text);
    for (std::string f; in >> f;) {
        if (f == "esc") {
            escape = true;
            continue;
        }
        const long v = f[0] == '=' ? 0 : std::stol(f.substr(f.find(':') + 1), nullptr, 0);
        const auto code = static_cast<uint32_t>(f[0] == 's' ? (v > 0 ? 2 * v - 1 : -2 * v) : v);
        if (f[0] == '=') {
            for (size_t i = 1; i + 1 < f.size(); i += 2) {
                put(std::stoul(f.substr(i, 2), nullptr, 16), 8);
            }
        } else if (f[0] == 'u' || f[0] == 's') {
            put(0, std::bit_width(code + 1) - 1);
            put(code + 1, std::bit_width(code + 1));
        } else {
            put(std::stoul(f, nullptr, 0), static_cast<int>(v));
        }
    }
    for (const uint8_t b : out) {
        const size_t n = escaped.size();
        if (escape && n >= 2 && escaped[n - 1] == 0 && escaped[n - 2] == 0 && b <= 3) {
            escaped.push_back(3);
        }
        escaped.push_back(b);
    }
    return escaped;
}

// The bytes of the fields, copied to the end of a page whose next page can't
// be read: a read past them crashes.
const uint8_t *unit(const std::string &text, int32_t *size = nullptr)
{
    static const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    static auto *base = static_cast<uint8_t *>(
        mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    static const int guarded = mprotect(base + page, page, PROT_NONE);
    const Bytes bytes = fields(text);
    if (size != nullptr) {
        *size = static_cast<int32_t>(bytes.size());
    }
    return guarded == 0 ? std::copy_backward(bytes.begin(), bytes.end(), base + page) : nullptr;
}

// The arguments from the given one on, as one text of fields.
std::string rest(const Args &a, size_t from)
{
    std::string text;
    for (size_t i = from; i < a.size(); ++i) {
        text += a.str(i) + " ";
    }
    return text;
}

std::string hex(uint32_t value)
{
    char text[12];
    snprintf(text, sizeof text, "%X", value);
    return text;
}

// A data file in a heap block of exactly its size.
Bytes media(const Args &a)
{
    const std::string text = fake::readFile(DVR_TEST_DATA_DIR "/media/" + a.str(0));
    return Bytes(text.begin(), text.end());
}

// Each unit behind 00 00 01 (its offset, 4-byte start codes marked "long",
// its type, what the parsers read of it), then the NAL and SEI search.
std::string h264File(Args &a)
{
    const Bytes m = media(a);
    const auto size = static_cast<int32_t>(m.size());
    std::string out;
    for (int32_t i = 1; i + 3 < size; ++i) {
        if (m[i - 1] != 0 || m[i] != 0 || m[i + 1] != 1) {
            continue;
        }
        const uint8_t *unitAt = &m[i + 3];
        const int type = m[i + 2] & 0x1F;
        int32_t w = 0, h = 0, profile = 0;
        out += nums({i - 1, type}) + (i >= 2 && m[i - 2] == 0 ? " long" : "");
        if (type == 7) {
            out += " sps " + nums({COM_ProcH264SPS(unitAt, &w, &h, 0, &profile), profile, w, h});
        } else if (type == 1 || type == 5) {
            out += " slice " + std::to_string(COM_GetH264SliceType(unitAt));
        }
        out += "\n";
    }
    out += "nal";
    for (int32_t pos = 0, at, type = 0; (at = COM_FindH264NAL(&m[pos], size - pos, &type)) >= 0;
         pos += at + 4) {
        out += " " + nums({pos + at, type});
    }
    int32_t seiType = -7, seiSize = -7;
    const int32_t sei = COM_FindH264SEI(m.data(), size, &seiType, &seiSize);
    return out + "\nsei " + nums({sei, seiType, seiSize});
}

// The text an encoder wrote; "unterminated" when no NUL follows it.
cases::Op encode(int32_t (*fn)(char *, const void *, int32_t))
{
    return [fn](Args &a) {
        const std::string in = a.str(0);
        std::string out(3 * in.size() + 2, '?');
        const int32_t n = fn(out.data(), in.data(), static_cast<int32_t>(in.size()));
        return q(out.substr(0, n)) + (out[n] == '\0' ? "" : " unterminated");
    };
}

cases::Op decode(int32_t (*fn)(void *, const char *))
{
    return [fn](Args &a) {
        std::string out(a.str(0).size() + 1, '?');
        out.resize(fn(out.data(), a.s(0)));
        return q(out);
    };
}

// Rbsp "fields" length reads...: the cache after set-up, then each read
// ("r24" bits, "ue", "se", "skip64" and where cur stands), then where cur ends.
std::string rbsp(Args &a)
{
    int32_t size = 0;
    const uint8_t *data = unit(a.str(0), &size);
    COM_RBSP_READER r;
    COM_RbspInit(&r, data, a.str(1) == "all" ? size : static_cast<int32_t>(a.n(1)));
    std::string out = hex(r.cache);
    for (size_t i = 2; i < a.size(); ++i) {
        const std::string op = a.str(i);
        const int32_t n =
            std::atoi(op.c_str() + std::min(op.find_first_of("0123456789"), op.size()));
        if (op[0] == 'r') {
            out += " " + hex(COM_RbspRead(&r, n));
        } else if (op == "ue") {
            out += " " + std::to_string(COM_RbspReadUE(&r));
        } else if (op == "se") {
            out += " " + std::to_string(COM_RbspReadSE(&r));
        } else {
            COM_RbspSkip(&r, n);
            out += " @" + std::to_string(r.cur - data);
        }
    }
    return out + " cur+" + std::to_string(r.cur - data);
}

const cases::Register ops({
    {"EncodeQP", encode(COM_EncodeQP)},
    {"DecodeQP", decode(COM_DecodeQP)},
    {"EncodeBase64", encode(COM_EncodeBase64)},
    {"DecodeBase64", decode(COM_DecodeBase64)},
    {"EncodeToNull",
     [](Args &a) {
         return nums({COM_EncodeQP(nullptr, a.s(0), 2), COM_EncodeBase64(nullptr, a.s(0), 2)});
     }},
    // Every byte, 255 down to 0, encoded and decoded again.
    {"QPEveryByte",
     [](Args &) {
         std::string all(256, '\0'), text(800, '\0'), back(257, '\0');
         for (int i = 0; i < 256; ++i) {
             all[i] = static_cast<char>(255 - i);
         }
         text.resize(COM_EncodeQP(text.data(), all.data(), 256));
         back.resize(COM_DecodeQP(back.data(), text.c_str()));
         return std::string(back == all ? "same" : "differs");
     }},
    {"AudioCodec",
     [](Args &a) {
         int32_t value = -1, codec = -1;
         return nums({COM_GetAudioCodecId(a.s(0), &value, &codec), value, codec});
     }},
    // A JPEG start-of-frame segment from its marker's second byte: result, width, height.
    {"JpegSOF",
     [](Args &a) {
         int32_t w = -5, h = -5;
         return nums({COM_ProcJpegSOF(unit(rest(a, 0)), &w, &h), w, h});
     }},
    // Result, profile, width, height; "NoProfile" passes no profile.
    {"Sps",
     [](Args &a) {
         int32_t w = -1, h = -1, profile = -1;
         const bool none = a.str(0) == "NoProfile";
         const int rc =
             COM_ProcH264SPS(unit(rest(a, none ? 1 : 0)), &w, &h, 0, none ? nullptr : &profile);
         return nums({rc, profile, w, h});
     }},
    {"Slice", [](Args &a) { return std::to_string(COM_GetH264SliceType(unit(rest(a, 0)))); }},
    // Offset, payload type and size.
    {"Sei",
     [](Args &a) {
         int32_t size = 0, type = -7, length = -7;
         const uint8_t *data = unit(rest(a, 0), &size);
         return nums({COM_FindH264SEI(data, size, &type, &length), type, length});
     }},
    {"Rbsp", rbsp},
    {"Reverse8", [](Args &a) { return hex(COM_ReverseBits8(static_cast<uint8_t>(a.n(0)))); }},
    {"Swap32", [](Args &a) { return hex(COM_SwapBytes32(std::stoul(a.str(0), nullptr, 16))); }},
    // Result, width, height, fps.
    {"Vol",
     [](Args &a) {
         int32_t w = -5, h = -5, fps = -5;
         return nums({COM_ProcMpeg4VOL(unit(rest(a, 0)), &w, &h, &fps), w, h, fps});
     }},
    {"H264File", h264File},
    {"Mpeg4File",
     [](Args &a) {
         const Bytes m = media(a), start = {0, 0, 1, 0x20};
         const auto at = std::search(m.begin(), m.end(), start.begin(), start.end());
         int32_t w = -5, h = -5, fps = -5;
         return at == m.end() ? "no header"
                              : nums({COM_ProcMpeg4VOL(&at[4], &w, &h, &fps), w, h, fps});
     }},
    // From the start of image, segment by segment to the start of frame.
    {"JpegFile",
     [](Args &a) {
         const Bytes m = media(a);
         size_t i = 2;
         while (i + 3 < m.size() && (m[i + 1] < 0xC0 || m[i + 1] > 0xC2)) {
             i += 2 + (m[i + 2] << 8 | m[i + 3]);
         }
         int32_t w = -5, h = -5;
         return i + 3 < m.size() ? nums({COM_ProcJpegSOF(&m[i + 1], &w, &h), w, h}) : "no frame";
     }},
});

} // namespace
