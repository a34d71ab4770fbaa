// A light reader of the small XML documents of the unit's own pages: element
// content, the text of a tag, and the DATA/ITEM settings vocabulary. It
// searches text; it does not parse.
#include "text_value.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "COMMON.h"
#include "com_log.h"

static_assert(sizeof(COM_XML_ITEM) == COM_XML_NAME_SIZE + 4 * sizeof(int) + COM_XML_TEXT_SIZE);

namespace {
// A tag pattern ("<%s>", "</%s>", "<%s") is built here.
constexpr size_t kTagPatternSize = 256;
// Each attribute word of a setting is taken into a buffer of this size.
constexpr size_t kXmlWordSize = 80;

constexpr const char *kDataOpen = "<DATA";
constexpr const char *kDataClose = "</DATA>";
constexpr const char *kNameAttribute = "Name=\"";
constexpr const char *kItemOpen = "<ITEM";

struct TypeWord {
    const char *word;
    int type;
};
constexpr TypeWord kTypeWords[] = {
    {"INT", COM_XML_TYPE_INT}, {"VIRTKB", COM_XML_TYPE_TEXT}, {"TEXT", COM_XML_TYPE_TEXT}};

// Builds a tag pattern; false when the tag is too long for it.
bool tagPattern(char (&pattern)[kTagPatternSize], const char *format, const char *tag)
{
    const int n = snprintf(pattern, sizeof pattern, format, tag);
    return n >= 0 && static_cast<size_t>(n) < sizeof pattern;
}

int typeOf(const char *word)
{
    for (const TypeWord &t : kTypeWords) {
        if (strcmp(word, t.word) == 0) {
            return t.type;
        }
    }
    return COM_XML_TYPE_OTHER;
}

void takeNumber(const char *element, const char *key, int &into)
{
    char word[kXmlWordSize] = {};
    if (COM_GetStrInDoubleQuotes(element, key, word, sizeof word) != nullptr) {
        into = atoi(word);
    }
}

// Joins the names of the ITEM elements that start ahead of end, comma
// separated, into text; a list too long for it is cut and reported.
void joinItemNames(const char *element, const char *end, char *text)
{
    constexpr size_t room = COM_XML_TEXT_SIZE - 1;
    size_t used = 0;
    const auto put = [&](const char *part, size_t length) {
        length = std::min(length, room - used);
        memcpy(text + used, part, length);
        used += length;
    };
    text[0] = '\0';
    for (const char *item = strstr(element, kItemOpen); item != nullptr && item < end;) {
        char name[kXmlWordSize] = {};
        // A name found past the element's end belongs to another element.
        const char *next = COM_GetStrInDoubleQuotes(item, "Name=", name, sizeof name);
        if (next == nullptr || next > end) {
            break;
        }
        const size_t comma = used > 0 ? 1 : 0;
        const size_t needed = used + comma + strlen(name);
        put(",", comma);
        put(name, strlen(name));
        text[used] = '\0';
        if (needed > room) {
            COM_LOG("COM_ParserXmlData", "Warning! overflow (len, size) = (%d, %d)\n",
                    static_cast<int>(needed), COM_XML_TEXT_SIZE);
            break;
        }
        item = strstr(next, kItemOpen);
    }
}

// Fills the record from the attributes behind the element's start.
void readSetting(const char *element, const char *end, COM_XML_ITEM &item)
{
    char word[kXmlWordSize] = {};
    if (COM_GetStrInDoubleQuotes(element, "type=", word, sizeof word) != nullptr) {
        item.type = typeOf(word);
    }
    if (item.type == COM_XML_TYPE_TEXT) {
        word[0] = '\0'; // a missing or empty value leaves the text empty
        COM_GetStrInDoubleQuotes(element, "value=", word, sizeof word);
        memcpy(item.text, word, strlen(word) + 1);
        return;
    }
    takeNumber(element, "min=", item.min);
    takeNumber(element, "max=", item.max);
    takeNumber(element, "value=", item.value);
    joinItemNames(element, end, item.text);
}
} // namespace

char *COM_GetXMLData(const char *xml, const char *tag, char *pOut, int size)
{
    if (xml == nullptr || tag == nullptr || pOut == nullptr) {
        return nullptr;
    }
    char pattern[kTagPatternSize];
    const char *head = tagPattern(pattern, "<%s>", tag) ? COM_StrCaseStr(xml, pattern) : nullptr;
    if (head == nullptr) {
        COM_LOG(__func__, "[%s] not found in [%s]\n", tag, xml);
        return nullptr;
    }
    const char *content = head + strlen(pattern);
    const char *tail = tagPattern(pattern, "</%s>", tag) ? COM_StrCaseStr(xml, pattern) : nullptr;
    if (tail == nullptr) {
        COM_LOG(__func__, "No xml tail found!\n");
        return nullptr;
    }

    // The length counts the terminator; a closing tag ahead of the opening
    // one makes it negative.
    const bool inOrder = tail >= content;
    int length = static_cast<int>(tail - content + 1);
    if (inOrder) {
        COM_LOG(__func__, "(pHead, pTail, pStr, len) = (%p, %p, %p, %d/%d)\n",
                static_cast<const void *>(content), static_cast<const void *>(tail),
                static_cast<void *>(pOut), length, size);
        textvalue::copyValue(__func__, content, static_cast<size_t>(length) - 1, length, pOut,
                             size);
        length = std::min(length, size);
    }
    COM_LOG(__func__, "[%s] = [%.*s] (%d bytes)\n", tag, std::max(size, 0), pOut, length);
    return inOrder ? const_cast<char *>(content) : nullptr;
}

char *COM_GetXMLAttribute(const char *xml, const char *tag, char *pOut, int size)
{
    if (xml == nullptr || tag == nullptr || pOut == nullptr) {
        return nullptr;
    }
    char pattern[kTagPatternSize];
    const char *at = tagPattern(pattern, "<%s", tag) ? COM_StrCaseStr(xml, pattern) : nullptr;
    if (at == nullptr) {
        return nullptr;
    }
    const char *from = at + strlen(pattern);
    const char *close = strchr(from, '>');
    if (close == nullptr) {
        return nullptr;
    }
    const auto length = static_cast<size_t>(close - from);
    textvalue::copyValue(__func__, from, length, static_cast<int>(length), pOut, size);
    return const_cast<char *>(close + 1);
}

int COM_ParserXmlData(const char *xml, COM_XML_ITEM *pItem)
{
    if (xml == nullptr || pItem == nullptr) {
        return -1;
    }
    char name[COM_XML_NAME_SIZE + 1] = {};
    memcpy(name, pItem->name, strnlen(pItem->name, COM_XML_NAME_SIZE));
    const size_t nameLength = strlen(name);

    for (const char *from = xml;;) {
        const char *element = strstr(from, kDataOpen);
        if (element == nullptr) {
            return -1;
        }
        const char *end = strstr(element, kDataClose);
        if (end == nullptr) {
            COM_LOG(__func__, "Can't find [%s] pattern - [%.20s]\n", kDataClose, element);
            return -1;
        }
        const char *nameAt = strstr(element, kNameAttribute);
        if (nameAt == nullptr) {
            COM_LOG(__func__, "Can't find [%s] pattern - [%.20s]\n", kNameAttribute, element);
            return -1;
        }
        from = nameAt + strlen(kNameAttribute);
        if (strncmp(from, name, nameLength) != 0) {
            continue; // the record's name matches by prefix
        }
        COM_LOG(__func__, "find [%s] pattern - [%.20s]\n", name, from);
        readSetting(element, end, *pItem);
        COM_LOG(nullptr, "[%s] (min, max, value)=(%d, %d, %d) - (%d)[%s]\n", name, pItem->min,
                pItem->max, pItem->value, pItem->type, pItem->text);
        return 0;
    }
}
