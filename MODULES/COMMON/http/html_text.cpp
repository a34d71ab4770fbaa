// Text out of HTML answers: the text without its tags, and one element by
// name.
#include "http_private.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <strings.h>

#include "fd_io.h"

namespace {
enum class Tag { Outside, Plain, LineBreak };

bool isLineBreak(const char *afterOpen)
{
    return (afterOpen[0] == 'B' || afterOpen[0] == 'b') &&
           (afterOpen[1] == 'R' || afterOpen[1] == 'r');
}

// "<name" or "</name" followed by a blank, a tab or ">".
bool isTag(const char *lt, const char *name, size_t length, bool closing)
{
    const char *p = lt + 1;
    if (closing && *p++ != '/') {
        return false;
    }
    if (strncasecmp(p, name, length) != 0) {
        return false;
    }
    const char after = p[length];
    return after == ' ' || after == '\t' || after == '>';
}

// Where the wanted element lies in the html, or begin null.
struct Span {
    const char *begin = nullptr;
    const char *end = nullptr;
};

Span findElement(const char *tag, const char *html, bool includeTag)
{
    const size_t length = strlen(tag);
    int depth = -1;
    Span span;
    for (const char *lt = strchr(html, '<'); lt != nullptr; lt = strchr(lt + 1, '<')) {
        const char *gt = strchr(lt, '>');
        if (gt == nullptr) {
            return {};
        }
        if (isTag(lt, tag, length, false)) {
            if (++depth == 0 && span.begin == nullptr) {
                span.begin = includeTag ? lt : gt + 1;
            }
        } else if (depth >= 0 && isTag(lt, tag, length, true)) {
            if (--depth == -1) {
                span.end = includeTag ? gt + 1 : lt;
                return span;
            }
        }
    }
    return {};
}
} // namespace

int COM_StripHtmlCode(char *html, char **out)
{
    if (html == nullptr || out == nullptr) {
        return -1;
    }
    http::Answer text(out);
    Tag state = Tag::Outside;
    for (char *p = html; *p != '\0'; ++p) {
        if (state == Tag::Outside) {
            if (*p == '<') {
                state = isLineBreak(p + 1) ? Tag::LineBreak : Tag::Plain;
            } else if (!text.append(__func__, p, 1)) {
                break;
            }
            continue;
        }
        if (*p != '>') {
            continue;
        }
        const bool lineBreak = state == Tag::LineBreak;
        state = Tag::Outside;
        if (lineBreak) {
            *p = '\n';
            if (!text.append(__func__, p, 1)) {
                break;
            }
        }
    }
    const int stored = text.finish(__func__);
    return stored > 0 ? stored : -1;
}

int COM_ExtractHtmlTag(const char *tag, const char *html, char **out, int include_tag)
{
    if (tag == nullptr || html == nullptr || out == nullptr) {
        return -1;
    }
    const Span span = findElement(tag, html, include_tag != 0);
    if (span.begin == nullptr || span.end <= span.begin) {
        return -1;
    }
    const auto length = static_cast<size_t>(span.end - span.begin);
    char *block = static_cast<char *>(calloc(length + 1, 1));
    if (block == nullptr) {
        COM_LOG_FAILED_CALL(__func__, "CALLOC(%d) fail : %s\n", static_cast<int>(length + 1));
        return -1;
    }
    memcpy(block, span.begin, length);
    *out = block;
    return static_cast<int>(length + 1);
}
