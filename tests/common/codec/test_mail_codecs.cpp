// Quoted-printable and Base64 both ways, and the audio codec names.
#include <gtest/gtest.h>

#include <array>
#include <numeric>
#include <string>

#include "COMMON.h"

namespace {

template <typename Encode> std::string encode(Encode fn, const std::string &in)
{
    std::string out(3 * in.size() + 2, '?');
    const int32_t n = fn(out.data(), in.data(), static_cast<int32_t>(in.size()));
    EXPECT_EQ(out[static_cast<size_t>(n)], '\0');
    return out.substr(0, static_cast<size_t>(n));
}

template <typename Decode> std::string decode(Decode fn, const std::string &text)
{
    std::string out(text.size() + 1, '?');
    out.resize(static_cast<size_t>(fn(out.data(), text.c_str())));
    return out;
}

TEST(QuotedPrintable, EncodesEveryByteAndDecodesOnlyEqualsAndTwoDigits)
{
    EXPECT_EQ(encode(COM_EncodeQP, "abc"), "=61=62=63");
    EXPECT_EQ(encode(COM_EncodeQP, ""), "");
    std::string all(256, '\0');
    std::iota(all.rbegin(), all.rend(), '\0'); // 255 down to 0
    EXPECT_EQ(decode(COM_DecodeQP, encode(COM_EncodeQP, all)), all);
    const std::pair<std::string, std::string> cases[] = {
        {"=3D=3d=4a=4A", "==JJ"}, {"=4", "=4"},   {"a=4", "a=4"}, {"=G1=1G=", "=G1=1G="},
        {"x=\r\ny", "x=\r\ny"},   {"==41", "=A"}, {"=41=", "A="},
    };
    for (const auto &[text, bytes] : cases) {
        EXPECT_EQ(decode(COM_DecodeQP, text), bytes) << text;
    }
}

TEST(Base64, Rfc4648VectorsAndWhatTheDecoderSkips)
{
    const std::pair<std::string, std::string> cases[] = {
        {"", ""},
        {"f", "Zg=="},
        {"fo", "Zm8="},
        {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="},
        {"fooba", "Zm9vYmE="},
        {"foobar", "Zm9vYmFy"},
        {"\xFB\xFF\xBF", "+/+/"},
    };
    for (const auto &[bytes, text] : cases) {
        EXPECT_EQ(encode(COM_EncodeBase64, bytes), text);
        EXPECT_EQ(decode(COM_DecodeBase64, text), bytes);
    }
    const std::pair<std::string, std::string> decoded[] = {
        {"Zm9v\r\nYmFy\n", "foobar"},
        {" Z m 9 v ", "foo"},
        {"Zg==Zm9v", "f"},
        {"=Zm9v", ""},
        {"Zm9v\n=YmFy", "foobar"},
        {" =Zm9v", "foo"}, // "=" behind a skipped character is skipped
        {"Zm9vY", "foo"},
        {"Zm9v*Ym=Fy", "foob"},
    };
    for (const auto &[text, bytes] : decoded) {
        EXPECT_EQ(decode(COM_DecodeBase64, text), bytes) << text;
    }
}

TEST(AudioCodec, NamesAreExactAndValueIsAlwaysEight)
{
    const std::pair<const char *, int32_t> cases[] = {
        {"PCMU", 7},         {"PCMA", 6},         {"G726-16", 0x4000},
        {"G726-24", 0x4001}, {"G726-32", 0x4002}, {"G726-40", 0x4003},
        {"pcmu", 0},         {"PCMU ", 0},        {nullptr, 0}};
    for (const auto &[name, codec] : cases) {
        std::array<int32_t, 3> got = {-1, -1, -1}; // result, value, codec
        got[0] = COM_GetAudioCodecId(name, &got[1], &got[2]);
        EXPECT_EQ(got, (std::array<int32_t, 3>{0, 8, codec}));
    }
}

} // namespace
