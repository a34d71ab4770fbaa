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

TEST(TextSearch, KeysIgnoreCaseAndLettersConvertInPlace)
{
    const char *text = "HTTP/1.1 200 OK\r\nContent-Length: 12\r\n";
    const std::pair<const char *, const char *> finds[] = {
        {"content-LENGTH", text + 17}, {"12\r\n", text + 33}, {"", text}, {"Content-Type", nullptr}};
    for (const auto &[key, at] : finds) {
        EXPECT_EQ(COM_StrCaseStr(text, key), at) << key;
    }
    EXPECT_EQ(COM_StrCaseStr("abc", "abcd"), nullptr);
    char mixed[] = "Mixed 1-2 \xC4z";
    char out[sizeof mixed];
    EXPECT_EQ(COM_StrToUpper(out, mixed) + COM_StrToLower(mixed, mixed), 0);
    EXPECT_EQ(std::string(out) + mixed, "MIXED 1-2 \xC4Zmixed 1-2 \xC4z");
}

struct ExtractCase {
    char *(*fn)(const char *, const char *, char *, int);
    const char *text, *key;
    int size;
    int result; // offset of the result in the text, -1 for null
    const char *out; // "~": the buffer was not touched
    const char *log;
};

TEST(TextSearch, ExtractorsValueResultAndReport)
{
    const auto dq = COM_GetStrInDoubleQuotes;
    const auto nl = COM_GetStrBeforeNewLine;
    const auto sp = COM_GetStrBeforeSpace;
    const ExtractCase cases[] = {
        {dq, "realm=\"x\"", "realm=", 16, 6, "x", ""},
        {dq, "a: Realm = \"Home\" b", "realm", 16, 8, "Home", ""},
        {dq, "xrealm=\"v\"", "realm=", 16, 7, "v", ""}, // part of a longer word
        {dq, "realm=\"\"", "realm=", 16, -1, "", ""},
        {dq, "realm=\"abc", "realm=", 16, -1, "~", ""},
        {dq, "nonce=\"abc\"", "realm=", 16, -1, "~", ""},
        {dq, "k=\"0123456789\"", "k=", 4, 2, "012", "text_search.cpp,N:COM_GetStrInDoubleQuotes(): Warning! overflow (len, size) = (10, 4)\n"},
        {dq, "k=\"012\"", "k=", 4, 2, "012", ""},
        {COM_GetStrInSingleQuotes, "id='7' x='8'", "x=", 16, 9, "8", ""},
        {COM_GetStrInSingleQuotes, "id=''", "id=", 16, -1, "", ""},
        {nl, "Server: box\nDate: x", "server: ", 16, 8, "box", ""},
        {nl, "a=1\nb=2\r\n", "a=", 16, 2, "1\nb=2", ""}, // a carriage return anywhere wins
        {nl, "a=\r\n", "a=", 16, 2, "", ""},
        {nl, "a=1", "a=", 16, -1, "~", ""},
        {nl, "a=abcd\n", "a=", 3, 2, "ab", "text_search.cpp,N:COM_GetStrBeforeNewLine(): Warning! overflow (len, size) = (5, 3)\n"},
        {sp, "Digest user=me x", "user=", 16, 12, "me", ""},
        {sp, "user= x", "user=", 16, 5, "", ""},
        {sp, "user=me", "user=", 16, -1, "~", ""},
        {sp, "u=abc ", "u=", 2, 2, "a", "text_search.cpp,N:COM_GetStrBeforeSpace(): Warning! overflow (len, size) = (4, 2)\n"},
    };
    for (const ExtractCase &c : cases) {
        char out[32] = "~";
        char *result = nullptr;
        EXPECT_EQ(logOf([&] { result = c.fn(c.text, c.key, out, c.size); }), c.log) << c.text;
        EXPECT_EQ(result, c.result < 0 ? nullptr : c.text + c.result) << c.text;
        EXPECT_STREQ(out, c.out) << c.text;
    }
}

TEST(TextSearch, TwoNumbersStoreWhatEnded)
{
    struct Case {
        const char *text;
        int length, count, first, second;
    };
    const Case cases[] = {
        {"10-20", 5, 2, 10, 20}, {"10", 2, 0, -1, -1}, {"10 ", 3, 1, 10, -1}, {"a1b22c333", 9, 2, 1, 22},
        {"12 34", 3, 1, 12, -1}, {"12 34", 4, 2, 12, 3}, {"7 8", 99, 2, 7, 8},  {"", 0, 0, -1, -1},
    };
    for (const Case &c : cases) {
        int first = -1;
        int second = -1;
        EXPECT_EQ(COM_GetTwoNumbers(c.text, c.length, &first, &second), c.count) << c.text;
        EXPECT_EQ(std::make_pair(first, second), std::make_pair(c.first, c.second)) << c.text;
    }
}

std::string xmlLog(const std::string &message)
{
    return "xml_read.cpp,N:COM_GetXMLData(): " + message;
}

std::string pointers(const char *content, const char *tail, const char *out, int len, int size)
{
    char line[160];
    snprintf(line, sizeof line, "(pHead, pTail, pStr, len) = (%p, %p, %p, %d/%d)\n", static_cast<const void *>(content),
             static_cast<const void *>(tail), static_cast<const void *>(out), len, size);
    return xmlLog(line);
}

TEST(XmlRead, ElementContent)
{
    const char *xml = "<Reply><Status>OK<b>1</b></Status></Reply>";
    char out[64] = {};
    EXPECT_EQ(logOf([&] { EXPECT_EQ(COM_GetXMLData(xml, "status", out, sizeof out), xml + 15); }),
              pointers(xml + 15, xml + 25, out, 11, 64) + xmlLog("[status] = [OK<b>1</b>] (11 bytes)\n"));
    EXPECT_STREQ(out, "OK<b>1</b>");
    const char *longer = "<v>0123456789</v>";
    EXPECT_EQ(logOf([&] { EXPECT_EQ(COM_GetXMLData(longer, "v", out, 4), longer + 3); }),
              pointers(longer + 3, longer + 13, out, 11, 4) + "text_search.cpp,N:COM_GetXMLData(): Warning! overflow (len, size) = (11, 4)\n" +
                  xmlLog("[v] = [012] (4 bytes)\n"));
    EXPECT_STREQ(out, "012");
    const char *empty = "<a></a>";
    logOf([&] { EXPECT_EQ(COM_GetXMLData(empty, "a", out, 4), empty + 3); });
    EXPECT_STREQ(out, "");

    const std::pair<const char *, const char *> broken[] = {
        {"<b>x</b>", "[a] not found in [<b>x</b>]\n"}, {"<a>x</b>", "No xml tail found!\n"}, {"</a>x<a>", "[a] = [012] (-7 bytes)\n"}};
    for (const auto &[text, message] : broken) {
        strcpy(out, "012");
        EXPECT_EQ(logOf([&] { EXPECT_EQ(COM_GetXMLData(text, "a", out, 4), nullptr); }), xmlLog(message));
        EXPECT_STREQ(out, "012");
    }

    const char *tag = "<Item id=\"3\" on>body</Item>";
    EXPECT_EQ(COM_GetXMLAttribute(tag, "item", out, 16), tag + 16);
    EXPECT_STREQ(out, " id=\"3\" on");
    EXPECT_EQ(COM_GetXMLAttribute("<Item id", "Item", out, 16), nullptr);
    EXPECT_EQ(logOf([&] { EXPECT_EQ(COM_GetXMLAttribute(tag, "x", out, 4), nullptr); }), "");
    EXPECT_EQ(logOf([&] { COM_GetXMLAttribute(tag, "item", out, 4); }),
              "text_search.cpp,N:COM_GetXMLAttribute(): Warning! overflow (len, size) = (10, 4)\n");
    EXPECT_STREQ(out, " id");
}

TEST(XmlRead, SettingsByNamePrefix)
{
    const char *settings =
        "<SETTINGS><DATA Name=\"Brightness\" type=\"INT\" min=\"0\" max=\"255\" value=\"128\"></DATA>"
        "<DATA Name=\"Resolution\" type=\"INT\" min=\"0\" max=\"2\" value=\"1\">"
        "<ITEM Name=\"D1\"/><ITEM Name=\"CIF\"/><ITEM Name=\"QCIF\"/></DATA>"
        "<DATA Name=\"Mode\" type=\"LIST\" value=\"4\"><ITEM Name=\"A\"/><ITEM/></DATA>"
        "<DATA Name=\"Title\" type=\"TEXT\" value=\"Front door\"></DATA></SETTINGS>";
    struct Case {
        const char *name;
        int result, type, min, max, value;
        const char *text;
    };
    const Case cases[] = {
        {"Brightness", 0, 0, 0, 255, 128, ""}, {"Resol", 0, 0, 0, 2, 1, "D1,CIF,QCIF"},
        {"Mode", 0, 2, -7, -7, 4, "A"}, // the ITEM without a name ends the list
        {"Title", 0, 1, -7, -7, -7, "Front door"}, {"Volume", -1, -7, -7, -7, -7, "old"},
    };
    for (const Case &c : cases) {
        COM_XML_ITEM item {};
        strcpy(item.name, c.name);
        item.type = item.min = item.max = item.value = -7;
        strcpy(item.text, "old");
        const std::string log = logOf([&] { EXPECT_EQ(COM_ParserXmlData(settings, &item), c.result) << c.name; });
        EXPECT_EQ(std::vector<int>({item.type, item.min, item.max, item.value}), std::vector<int>({c.type, c.min, c.max, c.value})) << c.name;
        EXPECT_STREQ(item.text, c.text) << c.name;
        char last[200];
        snprintf(last, sizeof last, "xml_read.cpp,N: [%s] (min, max, value)=(%d, %d, %d) - (%d)[%s]\n", c.name, c.min, c.max, c.value, c.type, c.text);
        EXPECT_TRUE(c.result == 0 ? log.ends_with(last) : log.empty()) << log;
    }
}

TEST(XmlRead, BrokenSettingsAndLongChoiceLists)
{
    COM_XML_ITEM item {};
    strcpy(item.name, "X");
    EXPECT_EQ(logOf([&] {
                  EXPECT_EQ(COM_ParserXmlData("<DATA Name=\"X\" type=\"INT\">", &item), -1);
                  EXPECT_EQ(COM_ParserXmlData("<DATA type=\"INT\"></DATA>", &item), -1);
              }),
              "xml_read.cpp,N:COM_ParserXmlData(): Can't find [</DATA>] pattern - [<DATA Name=\"X\" type=]\n"
              "xml_read.cpp,N:COM_ParserXmlData(): Can't find [Name=\"] pattern - [<DATA type=\"INT\"></D]\n");
    std::string xml = "<DATA Name=\"X\" type=\"INT\">";
    for (int i = 0; i < 40; ++i) {
        xml += "<ITEM Name=\"choice" + std::to_string(i) + "\"/>";
    }
    const std::string log = logOf([&] { EXPECT_EQ(COM_ParserXmlData((xml + "</DATA>").c_str(), &item), 0); });
    EXPECT_EQ(strlen(item.text), COM_XML_TEXT_SIZE - 1u);
    EXPECT_EQ(std::string(item.text).substr(0, 16), "choice0,choice1,");
    EXPECT_NE(log.find("COM_ParserXmlData(): Warning! overflow (len, size) = (259, 256)\n"), std::string::npos) << log;
}

TEST(GrowingBuffer, GrowsClearsCopiesAndRefusesOverruns)
{
    char *buf = nullptr;
    ASSERT_EQ(COM_ReallocAndCopyBuf(6, &buf, 0, "abc", 3), buf); // a null block: an allocation
    EXPECT_EQ(std::string(buf, 6), std::string("abc\0\0\0", 6));
    ASSERT_NE(COM_ReallocAndCopyBuf(8, &buf, 6, "", 0), nullptr); // grows and clears only
    ASSERT_NE(COM_ReallocAndCopyBuf(4, &buf, 1, "XY", 2), nullptr); // what was behind the offset goes
    EXPECT_EQ(std::string(buf, 4), std::string("aXY\0", 4));
    char *kept = buf;
    EXPECT_EQ(logOf([&] {
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
    std::string many;
    std::string digits;
    for (int i = 0; i < 100; ++i) { // across several 80-byte blocks
        many += std::to_string(i % 10) + "F:g ";
        digits += std::to_string(i % 10) + "F";
    }
    const std::pair<std::string, std::string> cases[] = {
        {"0a:1B\n", "0a1B"}, {many + std::string("ab\0cd", 5), digits + "ab"}, {"xyz: !?\n", ""}};
    char *buf = nullptr;
    for (const auto &[input, expected] : cases) {
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
