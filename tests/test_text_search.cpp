// Key search and the extractors on loose text: found, missing delimiters,
// empty values and overflow.
#include <gtest/gtest.h>

#include "COMMON.h"
#include "test_support.h"

namespace {

using fake::captureStdout;
using fake::withoutLineNumbers;

TEST(StrCaseStr, FindsIgnoringCase)
{
    const char *text = "HTTP/1.1 200 OK\r\nContent-Length: 12\r\n";
    EXPECT_EQ(COM_StrCaseStr(text, "content-LENGTH"), text + 17);
    EXPECT_EQ(COM_StrCaseStr(text, "12\r\n"), text + 33); // at the very end
    EXPECT_EQ(COM_StrCaseStr(text, ""), text);
    EXPECT_EQ(COM_StrCaseStr("abc", "abcd"), nullptr);
    EXPECT_EQ(COM_StrCaseStr(text, "Content-Type"), nullptr);
    EXPECT_EQ(COM_StrCaseStr(nullptr, "a"), nullptr);
    EXPECT_EQ(COM_StrCaseStr(text, nullptr), nullptr);
}

TEST(StrCase, ConvertsInPlaceOrIntoAnotherBuffer)
{
    char text[] = "Mixed 1-2 \xC4z";
    char out[sizeof text];
    EXPECT_EQ(COM_StrToUpper(out, text), 0);
    EXPECT_STREQ(out, "MIXED 1-2 \xC4Z");
    EXPECT_EQ(COM_StrToLower(text, text), 0);
    EXPECT_STREQ(text, "mixed 1-2 \xC4z");
    EXPECT_EQ(COM_StrToUpper(nullptr, text), -1);
    EXPECT_EQ(COM_StrToLower(out, nullptr), -1);
}

using Extractor = char *(*)(const char *, const char *, char *, int);

struct ExtractCase {
    const char *name;
    Extractor fn;
    const char *text;
    const char *key;
    int size;
    int result; // offset of the result in the text, -1 for null
    const char *out; // "~" when the buffer must stay untouched
    const char *log;
};

const ExtractCase kExtractCases[] = {
    {"DQ", COM_GetStrInDoubleQuotes, "realm=\"x\"", "realm=", 16, 6, "x", ""},
    {"DQ key ignores case", COM_GetStrInDoubleQuotes, "a: Realm = \"Home\" b", "realm", 16, 8, "Home", ""},
    {"DQ inside a word", COM_GetStrInDoubleQuotes, "xrealm=\"v\"", "realm=", 16, 7, "v", ""},
    {"DQ empty", COM_GetStrInDoubleQuotes, "realm=\"\"", "realm=", 16, -1, "", ""},
    {"DQ one quote", COM_GetStrInDoubleQuotes, "realm=\"abc", "realm=", 16, -1, "~", ""},
    {"DQ no key", COM_GetStrInDoubleQuotes, "nonce=\"abc\"", "realm=", 16, -1, "~", ""},
    {"DQ overflow", COM_GetStrInDoubleQuotes, "k=\"0123456789\"", "k=", 4, 2, "012",
     "text_search.cpp,N:COM_GetStrInDoubleQuotes(): Warning! overflow (len, size) = (10, 4)\n"},
    {"DQ just fits", COM_GetStrInDoubleQuotes, "k=\"012\"", "k=", 4, 2, "012", ""},
    {"SQ", COM_GetStrInSingleQuotes, "id='7' x='8'", "x=", 16, 9, "8", ""},
    {"SQ empty", COM_GetStrInSingleQuotes, "id=''", "id=", 16, -1, "", ""},
    {"NL line feed", COM_GetStrBeforeNewLine, "Server: box\nDate: x", "server: ", 16, 8, "box", ""},
    {"NL carriage return wins", COM_GetStrBeforeNewLine, "a=1\nb=2\r\n", "a=", 16, 2, "1\nb=2", ""},
    {"NL empty", COM_GetStrBeforeNewLine, "a=\r\n", "a=", 16, 2, "", ""},
    {"NL none", COM_GetStrBeforeNewLine, "a=1", "a=", 16, -1, "~", ""},
    {"NL overflow", COM_GetStrBeforeNewLine, "a=abcd\n", "a=", 3, 2, "ab",
     "text_search.cpp,N:COM_GetStrBeforeNewLine(): Warning! overflow (len, size) = (5, 3)\n"},
    {"SP", COM_GetStrBeforeSpace, "Digest user=me x", "user=", 16, 12, "me", ""},
    {"SP empty", COM_GetStrBeforeSpace, "user= x", "user=", 16, 5, "", ""},
    {"SP at the end", COM_GetStrBeforeSpace, "user=me", "user=", 16, -1, "~", ""},
    {"SP overflow", COM_GetStrBeforeSpace, "u=abc ", "u=", 2, 2, "a",
     "text_search.cpp,N:COM_GetStrBeforeSpace(): Warning! overflow (len, size) = (4, 2)\n"},
};

class Extract : public testing::TestWithParam<ExtractCase> {};

TEST_P(Extract, ValueResultAndReport)
{
    const ExtractCase &c = GetParam();
    char out[32];
    strcpy(out, "~");
    char *result = nullptr;
    const std::string log = captureStdout([&] { result = c.fn(c.text, c.key, out, c.size); });
    EXPECT_EQ(result, c.result < 0 ? nullptr : c.text + c.result);
    EXPECT_STREQ(out, c.out);
    EXPECT_EQ(withoutLineNumbers(log), c.log);
}

INSTANTIATE_TEST_SUITE_P(Cases, Extract, testing::ValuesIn(kExtractCases),
                         [](const testing::TestParamInfo<ExtractCase> &i) {
                             std::string n = i.param.name;
                             for (char &ch : n) {
                                 ch = isalnum(static_cast<unsigned char>(ch)) ? ch : '_';
                             }
                             return n;
                         });

TEST(GetTwoNumbers, StoresWhatEnded)
{
    struct Case {
        const char *text;
        int length;
        int count;
        int first, second;
    };
    const Case cases[] = {
        {"10-20", 5, 2, 10, 20},      {"10", 2, 0, -1, -1},      {"10 ", 3, 1, 10, -1},
        {"a1b22c333", 9, 2, 1, 22},   {"x 640x480 y", 11, 2, 640, 480},
        {"12 34", 3, 1, 12, -1},      {"12 34", 4, 2, 12, 3},    {"7 8", 99, 2, 7, 8},
        {"", 0, 0, -1, -1},
    };
    for (const Case &c : cases) {
        int first = -1;
        int second = -1;
        EXPECT_EQ(COM_GetTwoNumbers(c.text, c.length, &first, &second), c.count) << c.text;
        EXPECT_EQ(first, c.first) << c.text;
        EXPECT_EQ(second, c.second) << c.text;
    }
    int a = 0;
    EXPECT_EQ(COM_GetTwoNumbers(nullptr, 4, &a, &a), 0);
}

} // namespace
