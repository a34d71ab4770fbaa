// Quoted-printable and Base64 both ways, and the audio codec names.
#include <gtest/gtest.h>

#include <string>

#include "COMMON.h"

namespace {

std::string encodeQP(const std::string &in)
{
    std::string out(3 * in.size() + 1, '?');
    out.resize(static_cast<size_t>(COM_EncodeQP(out.data(), in.data(), static_cast<int32_t>(in.size()))));
    return out;
}

std::string encodeBase64(const std::string &in)
{
    std::string out(4 * ((in.size() + 2) / 3) + 1, '?');
    const int32_t n = COM_EncodeBase64(out.data(), in.data(), static_cast<int32_t>(in.size()));
    EXPECT_EQ(out[static_cast<size_t>(n)], '\0');
    out.resize(static_cast<size_t>(n));
    return out;
}

template <typename Decode> std::string decode(Decode fn, const std::string &text)
{
    std::string out(text.size() + 1, '?');
    out.resize(static_cast<size_t>(fn(out.data(), text.c_str())));
    return out;
}

std::string allBytes()
{
    std::string s;
    for (int i = 0; i < 256; ++i) {
        s += static_cast<char>(255 - i);
    }
    return s;
}

TEST(QuotedPrintable, EncodesEveryByte)
{
    EXPECT_EQ(encodeQP("abc"), "=61=62=63");
    EXPECT_EQ(encodeQP("\r\n=\xFF"), "=0D=0A=3D=FF");
    char dst[4] = "xyz";
    EXPECT_EQ(COM_EncodeQP(dst, "abc", 0), 0);
    EXPECT_EQ(COM_EncodeQP(dst, "abc", -1), 0);
    EXPECT_STREQ(dst, "");
    EXPECT_EQ(decode(COM_DecodeQP, encodeQP(allBytes())), allBytes());
}

TEST(QuotedPrintable, DecodesOnlyEqualsAndTwoHexDigits)
{
    const std::pair<std::string, std::string> cases[] = {
        {"=3D=3d=4a=4A", "==JJ"},     {"=4", "=4"},   {"=", "="}, {"ab", "ab"},
        {"a=4", "a=4"},               {"xy=4", "xy=4"}, {"=G1=1G=", "=G1=1G="},
        {"soft=\r\nbreak", "soft=\r\nbreak"}, {"==41", "=A"}, {"=41=", "A="}, {"a b\t", "a b\t"},
    };
    for (const auto &[text, bytes] : cases) {
        EXPECT_EQ(decode(COM_DecodeQP, text), bytes) << text;
    }
}

TEST(Base64, Rfc4648Vectors)
{
    const std::pair<std::string, std::string> cases[] = {
        {"", ""},         {"f", "Zg=="},         {"fo", "Zm8="},        {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"}, {"abc", "YWJj"},
        {"\xFB\xFF\xBF", "+/+/"},
    };
    for (const auto &[bytes, text] : cases) {
        EXPECT_EQ(encodeBase64(bytes), text);
        EXPECT_EQ(decode(COM_DecodeBase64, text), bytes);
    }
    char dst[8] = "xyz";
    EXPECT_EQ(COM_EncodeBase64(dst, "abc", -3), 0);
    EXPECT_STREQ(dst, "");
}

TEST(Base64, SkipsOtherCharactersAndStopsAtPadding)
{
    const std::pair<std::string, std::string> cases[] = {
        {"Zm9v\r\nYmFy\n", "foobar"}, {" Z m 9 v ", "foo"}, {"Zg==Zm9v", "f"},
        {"Zm9v\n=YmFy", "foobar"},   // "=" behind a skipped character is skipped
        {"=Zm9v", ""},                {" =Zm9v", "foo"}, {"Zm9vY", "foo"}, {"Zm9vYm", "foob"},
        {"Z", ""},                    {"Zm9v*Ym=Fy", "foob"},
    };
    for (const auto &[text, bytes] : cases) {
        EXPECT_EQ(decode(COM_DecodeBase64, text), bytes) << text;
    }
    // Every length and offset, in lines of 76 characters.
    const std::string data = allBytes() + allBytes();
    for (size_t len = 0; len < 200; len += 7) {
        const std::string text = encodeBase64(data.substr(len % 3, len));
        std::string lines;
        for (size_t i = 0; i < text.size(); i += 76) {
            lines += text.substr(i, 76) + "\r\n";
        }
        EXPECT_EQ(decode(COM_DecodeBase64, lines), data.substr(len % 3, len)) << len;
    }
}

TEST(AudioCodec, NamesAreExactAndValueIsAlwaysEight)
{
    const std::pair<const char *, int32_t> cases[] = {
        {"PCMU", 7},         {"PCMA", 6},         {"G726-16", 0x4000}, {"G726-24", 0x4001},
        {"G726-32", 0x4002}, {"G726-40", 0x4003}, {"pcmu", 0},         {"G726", 0},
        {"PCMU ", 0},        {"", 0},             {nullptr, 0},
    };
    for (const auto &[name, codec] : cases) {
        int32_t value = -1, got = -1;
        EXPECT_EQ(COM_GetAudioCodecId(name, &value, &got), 0);
        EXPECT_EQ(got, codec) << (name ? name : "null");
        EXPECT_EQ(value, 8);
    }
}

} // namespace
