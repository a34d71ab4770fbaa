// Operations of the text case files (tests/cases/text).
#include <cstdlib>
#include <unistd.h>

#include "case_runner.h"

namespace {
using cases::Args;
using cases::nums;
using cases::q;
using Extract = char *(*)(const char *, const char *, char *, int);

// The offset of a result in the text, or NULL.
std::string at(const char *result, const char *text)
{
    return result == nullptr ? "NULL" : std::to_string(result - text);
}

// An extractor into a buffer holding "~" before: the offset and the buffer.
cases::Op extract(Extract fn)
{
    return [fn](Args &a) {
        char out[300] = "~";
        const char *text = a.s(0);
        const std::string result = at(fn(text, a.s(1), out, a.n(2)), text);
        return result + " " + q(out);
    };
}

std::string xmlData(Args &a)
{
    char out[64] = "012";
    const std::string xml = a.str(0);
    for (size_t i = 0; i <= xml.size(); ++i) {
        a.alias(xml.c_str() + i, "xml+" + std::to_string(i));
    }
    a.alias(out, "out");
    const std::string result = at(COM_GetXMLData(xml.c_str(), a.s(1), out, a.n(2)), xml.c_str());
    return result + " " + q(out);
}

std::string settings(Args &a)
{
    COM_XML_ITEM item{};
    snprintf(item.name, sizeof item.name, "%s", a.s(1));
    item.type = item.min = item.max = item.value = -7;
    strcpy(item.text, "old");
    const int rc = COM_ParserXmlData(a.s(0), &item);
    return nums({rc, item.type, item.min, item.max, item.value}) + " " + q(item.text);
}

char *growing = nullptr;

const cases::Register ops({
    {"StrCaseStr", [](Args &a) { return at(COM_StrCaseStr(a.s(0), a.s(1)), a.s(0)); }},
    {"StrToUpper",
     [](Args &a) {
         std::string out = a.str(0);
         const int result = COM_StrToUpper(out.data(), a.s(0));
         return std::to_string(result) + " " + q(out);
     }},
    {"StrToLower",
     [](Args &a) {
         std::string out = a.str(0);
         const int result = COM_StrToLower(out.data(), out.c_str());
         return std::to_string(result) + " " + q(out);
     }},
    {"DoubleQuotes", extract(COM_GetStrInDoubleQuotes)},
    {"SingleQuotes", extract(COM_GetStrInSingleQuotes)},
    {"BeforeNewLine", extract(COM_GetStrBeforeNewLine)},
    {"BeforeSpace", extract(COM_GetStrBeforeSpace)},
    {"XMLAttribute", extract(COM_GetXMLAttribute)},
    {"XMLData", xmlData},
    {"TwoNumbers",
     [](Args &a) {
         int x = -1, y = -1;
         return nums({COM_GetTwoNumbers(a.s(0), a.n(1), &x, &y), x, y});
     }},
    {"ParserXmlData", settings},
    // Grows the block kept between calls; prints it whole (or the failure).
    {"Realloc",
     [](Args &a) {
         const std::string src = a.str(2);
         const void *r = COM_ReallocAndCopyBuf(a.n(0), &growing, a.n(1), src.data(), src.size());
         return r == nullptr ? "NULL" : q(std::string(growing, a.n(0)));
     }},
    {"FreeBlock",
     [](Args &) {
         free(growing);
         growing = nullptr;
         return std::string();
     }},
    // The hex digits read from a pipe holding the text ("-" reads descriptor -1).
    {"ReadHex",
     [](Args &a) {
         char *buf = nullptr;
         int p[2] = {-1, -1};
         if (a.str(0) != "-" && pipe(p) == 0) {
             (void)!write(p[1], a.str(0).data(), a.str(0).size());
             close(p[1]);
         }
         const int n = COM_ReadHexDataInStrFormat(p[0], &buf);
         const std::string out = n > 0 ? q(std::string(buf, n)) : "";
         free(buf);
         if (p[0] >= 0) {
             close(p[0]);
         }
         return std::to_string(n) + " " + out;
     }},
});

} // namespace
