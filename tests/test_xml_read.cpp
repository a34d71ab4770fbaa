// The XML reader on small documents, broken ones included.
#include <gtest/gtest.h>

#include "COMMON.h"
#include "test_support.h"

namespace {

using fake::captureStdout;
using fake::withoutLineNumbers;

std::string pointerLine(const char *content, const char *tail, const char *out, int len, int size)
{
    char line[160];
    snprintf(line, sizeof line, "xml_read.cpp,N:COM_GetXMLData(): (pHead, pTail, pStr, len) = (%p, %p, %p, %d/%d)\n",
             static_cast<const void *>(content), static_cast<const void *>(tail), static_cast<const void *>(out), len, size);
    return line;
}

TEST(GetXMLData, ContentWithNestedElements)
{
    const char *xml = "<Reply><Status>OK<b>1</b></Status></Reply>";
    char out[64] = {};
    char *result = nullptr;
    const std::string log = captureStdout([&] { result = COM_GetXMLData(xml, "status", out, sizeof out); });
    EXPECT_EQ(result, xml + 15);
    EXPECT_STREQ(out, "OK<b>1</b>");
    EXPECT_EQ(withoutLineNumbers(log), pointerLine(xml + 15, xml + 25, out, 11, 64) +
                                           "xml_read.cpp,N:COM_GetXMLData(): [status] = [OK<b>1</b>] (11 bytes)\n");
}

TEST(GetXMLData, EmptyCutMissingAndOutOfOrder)
{
    const char *empty = "<a></a>";
    char out[8] = "old";
    EXPECT_EQ(captureStdout([&] { EXPECT_EQ(COM_GetXMLData(empty, "a", out, sizeof out), empty + 3); }).empty(), false);
    EXPECT_STREQ(out, "");

    const char *longer = "<v>0123456789</v>";
    const std::string log = captureStdout([&] { EXPECT_EQ(COM_GetXMLData(longer, "v", out, 4), longer + 3); });
    EXPECT_STREQ(out, "012");
    EXPECT_EQ(withoutLineNumbers(log), pointerLine(longer + 3, longer + 13, out, 11, 4) +
                                           "text_search.cpp,N:COM_GetXMLData(): Warning! overflow (len, size) = (11, 4)\n"
                                           "xml_read.cpp,N:COM_GetXMLData(): [v] = [012] (4 bytes)\n");

    struct Case {
        const char *xml;
        const char *log;
    };
    const Case cases[] = {
        {"<b>x</b>", "[a] not found in [<b>x</b>]\n"},
        {"<a>x</b>", "No xml tail found!\n"},
        {"</a>x<a>", "[a] = [012] (-7 bytes)\n"},
    };
    for (const Case &c : cases) {
        strcpy(out, "012");
        const std::string l = captureStdout([&] { EXPECT_EQ(COM_GetXMLData(c.xml, "a", out, 4), nullptr); });
        EXPECT_EQ(withoutLineNumbers(l), std::string("xml_read.cpp,N:COM_GetXMLData(): ") + c.log);
        EXPECT_STREQ(out, "012");
    }
}

TEST(GetXMLAttribute, TextOfTheTag)
{
    const char *xml = "<Item id=\"3\" on>body</Item>";
    char out[16] = "~";
    EXPECT_EQ(COM_GetXMLAttribute(xml, "item", out, sizeof out), xml + 16);
    EXPECT_STREQ(out, " id=\"3\" on");
    EXPECT_EQ(COM_GetXMLAttribute("<Item id", "Item", out, sizeof out), nullptr);
    EXPECT_EQ(withoutLineNumbers(captureStdout([&] { EXPECT_EQ(COM_GetXMLAttribute(xml, "x", out, 4), nullptr); })), "");
    EXPECT_STREQ(out, " id=\"3\" on");
    const std::string log = captureStdout([&] { COM_GetXMLAttribute(xml, "item", out, 4); });
    EXPECT_STREQ(out, " id");
    EXPECT_EQ(withoutLineNumbers(log), "text_search.cpp,N:COM_GetXMLAttribute(): Warning! overflow (len, size) = (10, 4)\n");
}

const char *const kSettings =
    "<SETTINGS>"
    "<DATA Name=\"Brightness\" type=\"INT\" min=\"0\" max=\"255\" value=\"128\"></DATA>"
    "<DATA Name=\"Resolution\" type=\"INT\" min=\"0\" max=\"2\" value=\"1\">"
    "<ITEM Name=\"D1\"/><ITEM Name=\"CIF\"/><ITEM Name=\"QCIF\"/></DATA>"
    "<DATA Name=\"Mode\" type=\"LIST\" value=\"4\"><ITEM Name=\"A\"/><ITEM/></DATA>"
    "<DATA Name=\"Title\" type=\"TEXT\" value=\"Front door\"></DATA>"
    "</SETTINGS>";

struct SettingCase {
    const char *name;
    int result, type, min, max, value;
    const char *text;
    const char *lastLog;
};

TEST(ParserXmlData, ReadsTheSettingByNamePrefix)
{
    const SettingCase cases[] = {
        {"Brightness", 0, 0, 0, 255, 128, "", "[Brightness] (min, max, value)=(0, 255, 128) - (0)[]\n"},
        {"Resol", 0, 0, 0, 2, 1, "D1,CIF,QCIF", "[Resol] (min, max, value)=(0, 2, 1) - (0)[D1,CIF,QCIF]\n"},
        {"Title", 0, 1, -7, -7, -7, "Front door", "[Title] (min, max, value)=(-7, -7, -7) - (1)[Front door]\n"},
        {"Mode", 0, 2, -7, -7, 4, "A", "[Mode] (min, max, value)=(-7, -7, 4) - (2)[A]\n"},
        {"Volume", -1, -7, -7, -7, -7, "old", ""},
    };
    for (const SettingCase &c : cases) {
        COM_XML_ITEM item;
        memset(&item, 0, sizeof item);
        strcpy(item.name, c.name);
        item.type = item.min = item.max = item.value = -7;
        strcpy(item.text, "old");
        const std::string log = withoutLineNumbers(captureStdout([&] { EXPECT_EQ(COM_ParserXmlData(kSettings, &item), c.result) << c.name; }));
        EXPECT_EQ(std::vector<int>({item.type, item.min, item.max, item.value}), std::vector<int>({c.type, c.min, c.max, c.value})) << c.name;
        EXPECT_STREQ(item.text, c.text) << c.name;
        const size_t last = log.rfind("xml_read.cpp,N: ");
        EXPECT_EQ(last == std::string::npos ? "" : log.substr(last + 16), c.lastLog) << log;
    }
}

TEST(ParserXmlData, BrokenDocumentsAndLongChoiceLists)
{
    COM_XML_ITEM item {};
    strcpy(item.name, "X");
    const std::string log = withoutLineNumbers(captureStdout([&] {
        EXPECT_EQ(COM_ParserXmlData("<DATA Name=\"X\" type=\"INT\">", &item), -1);
        EXPECT_EQ(COM_ParserXmlData("<DATA type=\"INT\"></DATA>", &item), -1);
    }));
    EXPECT_EQ(log, "xml_read.cpp,N:COM_ParserXmlData(): Can't find [</DATA>] pattern - [<DATA Name=\"X\" type=]\n"
                   "xml_read.cpp,N:COM_ParserXmlData(): Can't find [Name=\"] pattern - [<DATA type=\"INT\"></D]\n");

    std::string xml = "<DATA Name=\"X\" type=\"INT\">";
    for (int i = 0; i < 40; ++i) {
        xml += "<ITEM Name=\"choice" + std::to_string(i) + "\"/>";
    }
    xml += "</DATA>";
    std::string lines = captureStdout([&] { EXPECT_EQ(COM_ParserXmlData(xml.c_str(), &item), 0); });
    EXPECT_EQ(strlen(item.text), COM_XML_TEXT_SIZE - 1u);
    EXPECT_EQ(std::string(item.text).substr(0, 16), "choice0,choice1,");
    EXPECT_NE(lines.find("COM_ParserXmlData(): Warning! overflow (len, size) = (259, 256)\n"), std::string::npos) << lines;
}

} // namespace
