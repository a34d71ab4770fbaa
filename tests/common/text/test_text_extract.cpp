// Key search, the extractors and the XML reader on loose and broken texts
// (missing delimiters, empty values, overflow), and the growing buffer.
#include <gtest/gtest.h>

#include <cstdlib>
#include <unistd.h>

#include "COMMON.h"
#include "test_support.h"

namespace {

template <typename Fn> std::string logOf(Fn fn)
{
    return fake::withoutLineNumbers(fake::captureStdout(fn));
}
std::string overflow(const char *func, int len, int size)
{
    return "text_search.cpp,N:" + std::string(func) + "(): Warning! overflow (len, size) = (" +
           std::to_string(len) + ", " + std::to_string(size) + ")\n";
}

TEST(TextSearch, KeysIgnoreCaseAndLettersConvertInPlace)
{
    const char *text = "HTTP/1.1 200 OK\r\nContent-Length: 12\r\n";
    for (const auto &[key, at] : {std::pair{"content-LENGTH", text + 17},
                                  {"12\r\n", text + 33},
                                  {"", text},
                                  {"Content-Type", nullptr}}) {
        EXPECT_EQ(COM_StrCaseStr(text, key), at) << key;
    }
    EXPECT_EQ(COM_StrCaseStr("abc", "abcd"), nullptr);
    char mixed[] = "Mixed 1-2 \xC4z";
    char out[sizeof mixed];
    EXPECT_EQ(COM_StrToUpper(out, mixed) + COM_StrToLower(mixed, mixed), 0);
    EXPECT_EQ(std::string(out) + mixed, "MIXED 1-2 \xC4Zmixed 1-2 \xC4z");
}

TEST(TextSearch, ExtractorsValueResultAndReport)
{
    const auto dq = COM_GetStrInDoubleQuotes, sq = COM_GetStrInSingleQuotes,
               nl = COM_GetStrBeforeNewLine, sp = COM_GetStrBeforeSpace;
    // Extractor, text, key, size, offset of the result in the text (-1: null), the buffer ("~": not
    // touched), the overflow report.
    const std::tuple<decltype(dq), const char *, const char *, int, int, const char *, std::string>
        cases[] = {
            {dq, "realm=\"x\"", "realm=", 16, 6, "x", ""},
            {dq, "a: Realm = \"Home\" b", "realm", 16, 8, "Home", ""},
            {dq, "xrealm=\"v\"", "realm=", 16, 7, "v", ""}, // part of a longer word
            {dq, "realm=\"\"", "realm=", 16, -1, "", ""},
            {dq, "realm=\"abc", "realm=", 16, -1, "~", ""},
            {dq, "nonce=\"abc\"", "realm=", 16, -1, "~", ""},
            {dq, "k=\"0123456789\"", "k=", 4, 2, "012",
             overflow("COM_GetStrInDoubleQuotes", 10, 4)},
            {dq, "k=\"012\"", "k=", 4, 2, "012", ""},
            {sq, "id='7' x='8'", "x=", 16, 9, "8", ""},
            {sq, "id=''", "id=", 16, -1, "", ""},
            {nl, "Server: box\nDate: x", "server: ", 16, 8, "box", ""},
            {nl, "a=1\nb=2\r\n", "a=", 16, 2, "1\nb=2", ""}, // a carriage return anywhere wins
            {nl, "a=\r\n", "a=", 16, 2, "", ""},
            {nl, "a=1", "a=", 16, -1, "~", ""},
            {nl, "a=abcd\n", "a=", 3, 2, "ab", overflow("COM_GetStrBeforeNewLine", 5, 3)},
            {sp, "Digest user=me x", "user=", 16, 12, "me", ""},
            {sp, "user= x", "user=", 16, 5, "", ""},
            {sp, "user=me", "user=", 16, -1, "~", ""},
            {sp, "u=abc ", "u=", 2, 2, "a", overflow("COM_GetStrBeforeSpace", 4, 2)},
        };
    for (const auto &[fn, text, key, size, at, expected, log] : cases) {
        char out[32] = "~";
        char *result = nullptr;
        EXPECT_EQ(logOf([&] { result = fn(text, key, out, size); }), log) << text;
        EXPECT_EQ(result, at < 0 ? nullptr : text + at) << text;
        EXPECT_STREQ(out, expected) << text;
    }
}

TEST(TextSearch, TwoNumbersStoreWhatEnded)
{
    const std::tuple<const char *, int, int, std::pair<int, int>> cases[] = {
        // text, length, count, numbers stored
        {"10-20", 5, 2, {10, 20}},    {"10", 2, 0, {-1, -1}},    {"10 ", 3, 1, {10, -1}},
        {"a1b22c333", 9, 2, {1, 22}}, {"12 34", 3, 1, {12, -1}}, {"12 34", 4, 2, {12, 3}},
        {"7 8", 99, 2, {7, 8}},       {"", 0, 0, {-1, -1}},
    };
    for (const auto &[text, length, count, numbers] : cases) {
        std::pair<int, int> got = {-1, -1};
        EXPECT_EQ(COM_GetTwoNumbers(text, length, &got.first, &got.second), count) << text;
        EXPECT_EQ(got, numbers) << text;
    }
}

std::string xmlLog(const std::string &message)
{
    return "xml_read.cpp,N:COM_GetXMLData(): " + message;
}

TEST(XmlRead, ElementContent)
{
    // Text, size, offsets of the content and of the closing tag (-1: a null result without
    // the pointer report), the buffer (it holds "012" before), the log behind the pointer report.
    const std::tuple<const char *, int, int, int, const char *, std::string> cases[] = {
        {"<Reply><A>OK<b>1</b></A></Reply>", 64, 10, 20, "OK<b>1</b>",
         xmlLog("[a] = [OK<b>1</b>] (11 bytes)\n")},
        {"<a>0123456789</a>", 4, 3, 13, "012",
         overflow("COM_GetXMLData", 11, 4) + xmlLog("[a] = [012] (4 bytes)\n")},
        {"<a></a>", 4, 3, 3, "", xmlLog("[a] = [] (1 bytes)\n")},
        {"<b>x</b>", 4, -1, -1, "012", xmlLog("[a] not found in [<b>x</b>]\n")},
        {"<a>x</b>", 4, -1, -1, "012", xmlLog("No xml tail found!\n")},
        {"</a>x<a>", 4, -1, -1, "012", xmlLog("[a] = [012] (-7 bytes)\n")},
    };
    char out[64];
    for (const auto &[xml, size, head, tail, text, log] : cases) {
        strcpy(out, "012");
        const char *result = "~";
        char pointers[160] = "";
        if (head >= 0) {
            snprintf(pointers, sizeof pointers, "(pHead, pTail, pStr, len) = (%p, %p, %p, %d/%d)\n",
                     static_cast<const void *>(xml + head), static_cast<const void *>(xml + tail),
                     static_cast<void *>(out), tail - head + 1, size);
        }
        EXPECT_EQ(logOf([&] { result = COM_GetXMLData(xml, "a", out, size); }),
                  (head >= 0 ? xmlLog(pointers) : "") + log)
            << xml;
        EXPECT_EQ(result, head < 0 ? nullptr : xml + head) << xml;
        EXPECT_STREQ(out, text) << xml;
    }
    const char *tag = "<Item id=\"3\" on>body</Item>";
    EXPECT_EQ(COM_GetXMLAttribute(tag, "item", out, 16), tag + 16);
    EXPECT_STREQ(out, " id=\"3\" on");
    EXPECT_EQ(COM_GetXMLAttribute("<Item id", "Item", out, 16), nullptr);
    EXPECT_EQ(logOf([&] { EXPECT_EQ(COM_GetXMLAttribute(tag, "x", out, 4), nullptr); }), "");
    EXPECT_EQ(logOf([&] { COM_GetXMLAttribute(tag, "item", out, 4); }),
              overflow("COM_GetXMLAttribute", 10, 4));
    EXPECT_STREQ(out, " id");
}

TEST(XmlRead, SettingsByNamePrefix)
{
    const char *settings =
        "<SETTINGS><DATA Name=\"Brightness\" type=\"INT\" min=\"0\" max=\"255\" "
        "value=\"128\"></DATA>"
        "<DATA Name=\"Resolution\" type=\"INT\" min=\"0\" max=\"2\" value=\"1\">"
        "<ITEM Name=\"D1\"/><ITEM Name=\"CIF\"/><ITEM Name=\"QCIF\"/></DATA>"
        "<DATA Name=\"Mode\" type=\"LIST\" value=\"4\"><ITEM Name=\"A\"/><ITEM/></DATA>"
        "<DATA Name=\"Title\" type=\"TEXT\" value=\"Front door\"></DATA></SETTINGS>";
    const std::tuple<const char *, int, std::vector<int>, const char *> cases[] = {
        // name, result, type, min, max, value, text
        {"Brightness", 0, {0, 0, 255, 128}, ""},
        {"Resol", 0, {0, 0, 2, 1}, "D1,CIF,QCIF"},
        {"Mode", 0, {2, -7, -7, 4}, "A"}, // the ITEM without a name ends the list
        {"Title", 0, {1, -7, -7, -7}, "Front door"},
        {"Volume", -1, {-7, -7, -7, -7}, "old"},
    };
    for (const auto &[name, rc, fields, text] : cases) {
        COM_XML_ITEM item{};
        strcpy(item.name, name);
        item.type = item.min = item.max = item.value = -7;
        strcpy(item.text, "old");
        const std::string log =
            logOf([&] { EXPECT_EQ(COM_ParserXmlData(settings, &item), rc) << name; });
        EXPECT_EQ(std::vector<int>({item.type, item.min, item.max, item.value}), fields) << name;
        EXPECT_STREQ(item.text, text) << name;
        char last[200];
        snprintf(last, sizeof last,
                 "xml_read.cpp,N: [%s] (min, max, value)=(%d, %d, %d) - (%d)[%s]\n", name,
                 fields[1], fields[2], fields[3], fields[0], text);
        EXPECT_TRUE(rc == 0 ? log.ends_with(last) : log.empty()) << log;
    }
}

TEST(XmlRead, BrokenSettingsAndLongChoiceLists)
{
    COM_XML_ITEM item{};
    strcpy(item.name, "X");
    EXPECT_EQ(logOf([&] {
                  EXPECT_EQ(COM_ParserXmlData("<DATA Name=\"X\" type=\"INT\">", &item), -1);
                  EXPECT_EQ(COM_ParserXmlData("<DATA type=\"INT\"></DATA>", &item), -1);
              }),
              "xml_read.cpp,N:COM_ParserXmlData(): Can't find [</DATA>] pattern - [<DATA "
              "Name=\"X\" type=]\n"
              "xml_read.cpp,N:COM_ParserXmlData(): Can't find [Name=\"] pattern - [<DATA "
              "type=\"INT\"></D]\n");
    std::string xml = "<DATA Name=\"X\" type=\"INT\">";
    for (int i = 0; i < 40; ++i) {
        xml += "<ITEM Name=\"choice" + std::to_string(i) + "\"/>";
    }
    const std::string log =
        logOf([&] { EXPECT_EQ(COM_ParserXmlData((xml + "</DATA>").c_str(), &item), 0); });
    EXPECT_EQ(strlen(item.text), COM_XML_TEXT_SIZE - 1u);
    EXPECT_EQ(std::string(item.text).substr(0, 16), "choice0,choice1,");
    EXPECT_NE(log.find("COM_ParserXmlData(): Warning! overflow (len, size) = (259, 256)\n"),
              std::string::npos)
        << log;
}

TEST(GrowingBuffer, GrowsClearsCopiesAndRefusesOverruns)
{
    char *buf = nullptr;
    ASSERT_EQ(COM_ReallocAndCopyBuf(6, &buf, 0, "abc", 3), buf); // a null block: an allocation
    EXPECT_EQ(std::string(buf, 6), std::string("abc\0\0\0", 6));
    ASSERT_NE(COM_ReallocAndCopyBuf(8, &buf, 6, "", 0), nullptr); // grows and clears only
    ASSERT_NE(COM_ReallocAndCopyBuf(4, &buf, 1, "XY", 2),
              nullptr); // what was behind the offset goes
    EXPECT_EQ(std::string(buf, 4), std::string("aXY\0", 4));
    char *kept = buf;
    EXPECT_EQ(
        logOf([&] {
            EXPECT_EQ(COM_ReallocAndCopyBuf(4, &buf, 3, "XY", 2), nullptr);
            EXPECT_EQ(COM_ReallocAndCopyBuf(0, &buf, 0, "", 0), nullptr);
        }),
        "growing_buffer.cpp,N:COM_ReallocAndCopyBuf(): REALLOC(4) failed : Invalid argument\n"
        "growing_buffer.cpp,N:COM_ReallocAndCopyBuf(): REALLOC(0) failed : Invalid argument\n");
    EXPECT_EQ(buf, kept);
    free(buf);
}

TEST(GrowingBuffer, HexDigitsOfADescriptor)
{
    std::string many, digits;
    for (int i = 0; i < 100; ++i) { // across several 80-byte blocks
        many += std::to_string(i % 10) + "F:g ";
        digits += std::to_string(i % 10) + "F";
    }
    char *buf = nullptr;
    for (const auto &[input, expected] : {std::pair<std::string, std::string>{"0a:1B\n", "0a1B"},
                                          {many + std::string("ab\0cd", 5), digits + "ab"},
                                          {"xyz: !?\n", ""}}) {
        int p[2];
        ASSERT_EQ(pipe(p), 0);
        ASSERT_EQ(write(p[1], input.data(), input.size()), static_cast<ssize_t>(input.size()));
        close(p[1]);
        EXPECT_EQ(COM_ReadHexDataInStrFormat(p[0], &buf), static_cast<int>(expected.size()));
        EXPECT_EQ(std::string(buf, expected.size()), expected);
        close(p[0]);
    }
    EXPECT_EQ(COM_ReadHexDataInStrFormat(-1, &buf), -1);
    free(buf);
}

} // namespace
