// Operations of the codec case files (tests/cases/codec).
#include "case_runner.h"

namespace {
using cases::Args;
using cases::q;

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

const cases::Register ops({
    {"EncodeQP", encode(COM_EncodeQP)},
    {"DecodeQP", decode(COM_DecodeQP)},
    {"EncodeBase64", encode(COM_EncodeBase64)},
    {"DecodeBase64", decode(COM_DecodeBase64)},
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
         return cases::nums({COM_GetAudioCodecId(a.s(0), &value, &codec), value, codec});
     }},
    // A JPEG start-of-frame segment from hex bytes: result, width, height.
    {"JpegSOF",
     [](Args &a) {
         std::vector<uint8_t> bytes;
         for (size_t i = 0; i < a.size(); ++i) {
             bytes.push_back(static_cast<uint8_t>(a.n(i)));
         }
         int32_t w = -5, h = -5;
         return cases::nums({COM_ProcJpegSOF(bytes.data(), &w, &h), w, h});
     }},
});

} // namespace
