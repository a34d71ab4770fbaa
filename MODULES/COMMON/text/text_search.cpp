// Key search in loose text and the extractors built on it: a key is looked
// for anywhere, ignoring case, and the value behind it is taken up to a
// delimiter.
#include "text_value.h"

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <strings.h>

#include "COMMON.h"
#include "com_log.h"

namespace {
// Digits of one number of COM_GetTwoNumbers, with room for the terminator.
constexpr size_t kNumberSize = 32;

// Where a value lies; begin is null when its end (or start) is missing.
struct Span {
    const char *begin = nullptr;
    const char *end = nullptr;
};

template <char Quote> Span betweenQuotes(const char *after)
{
    const char *open = strchr(after, Quote);
    const char *close = open != nullptr ? strchr(open + 1, Quote) : nullptr;
    return close != nullptr ? Span{open + 1, close} : Span{};
}

// Up to the first carriage return anywhere in the rest; only without one, up
// to the first line feed.
Span beforeNewLine(const char *after)
{
    const char *end = strchr(after, '\r');
    end = end != nullptr ? end : strchr(after, '\n');
    return end != nullptr ? Span{after, end} : Span{};
}

Span beforeSpace(const char *after)
{
    const char *end = strchr(after, ' ');
    return end != nullptr ? Span{after, end} : Span{};
}

enum class Kind {
    Quoted,   // reports the value's length; an empty value gives null
    Delimited // reports the length plus its terminator; an empty value gives after
};

char *extract(const char *func, const char *text, const char *key, char *out, int size,
              Span (*locate)(const char *), Kind kind)
{
    const char *at = COM_StrCaseStr(text, key);
    if (at == nullptr || out == nullptr) {
        return nullptr;
    }
    const char *after = at + strlen(key);
    const Span value = locate(after);
    if (value.begin == nullptr) {
        return nullptr;
    }
    const auto length = static_cast<size_t>(value.end - value.begin);
    const int reported = static_cast<int>(length) + (kind == Kind::Quoted ? 0 : 1);
    textvalue::copyValue(func, value.begin, length, reported, out, size);
    if (kind == Kind::Quoted && length == 0) {
        return nullptr;
    }
    return const_cast<char *>(after);
}

// Copies the text and its terminator, each character through change; the
// output may be the text itself.
int mapLetters(char *out, const char *text, int (*change)(int))
{
    if (out == nullptr || text == nullptr) {
        return -1;
    }
    size_t i = 0;
    do {
        out[i] = static_cast<char>(change(static_cast<unsigned char>(text[i])));
    } while (text[i++] != '\0');
    return 0;
}

int convert(char *digits, size_t &count)
{
    digits[count] = '\0';
    count = 0;
    return static_cast<int>(strtol(digits, nullptr, 10));
}
} // namespace

namespace textvalue {
void copyValue(const char *func, const char *value, size_t length, int reportedLength, char *out,
               int size)
{
    if (static_cast<long long>(length) >= size) {
        COM_LOG(func, "Warning! overflow (len, size) = (%d, %d)\n", reportedLength, size);
        if (size <= 0) {
            return; // not even a terminator fits
        }
        length = static_cast<size_t>(size) - 1;
    }
    memcpy(out, value, length);
    out[length] = '\0';
}
} // namespace textvalue

char *COM_StrCaseStr(const char *text, const char *key)
{
    if (text == nullptr || key == nullptr) {
        return nullptr;
    }
    const size_t keyLength = strlen(key);
    const size_t textLength = strlen(text);
    for (size_t i = 0; i + keyLength <= textLength; ++i) {
        if (strncasecmp(text + i, key, keyLength) == 0) {
            return const_cast<char *>(text + i);
        }
    }
    return nullptr;
}

int COM_StrToUpper(char *pOut, const char *text)
{
    return mapLetters(pOut, text, toupper);
}

int COM_StrToLower(char *pOut, const char *text)
{
    return mapLetters(pOut, text, tolower);
}

char *COM_GetStrInDoubleQuotes(const char *text, const char *key, char *pOut, int size)
{
    return extract(__func__, text, key, pOut, size, betweenQuotes<'"'>, Kind::Quoted);
}

char *COM_GetStrInSingleQuotes(const char *text, const char *key, char *pOut, int size)
{
    return extract(__func__, text, key, pOut, size, betweenQuotes<'\''>, Kind::Quoted);
}

char *COM_GetStrBeforeNewLine(const char *text, const char *key, char *pOut, int size)
{
    return extract(__func__, text, key, pOut, size, beforeNewLine, Kind::Delimited);
}

char *COM_GetStrBeforeSpace(const char *text, const char *key, char *pOut, int size)
{
    return extract(__func__, text, key, pOut, size, beforeSpace, Kind::Delimited);
}

int COM_GetTwoNumbers(const char *text, int length, int *pFirst, int *pSecond)
{
    if (text == nullptr || pFirst == nullptr || pSecond == nullptr) {
        return 0;
    }
    char digits[kNumberSize];
    size_t count = 0;
    int stored = 0;
    for (int i = 0; i < length && text[i] != '\0'; ++i) {
        if (isdigit(static_cast<unsigned char>(text[i]))) {
            if (count < sizeof digits - 1) {
                digits[count++] = text[i]; // digits past the 31st are dropped
            }
        } else if (count > 0) {
            if (stored == 0) {
                *pFirst = convert(digits, count);
                stored = 1;
            } else {
                *pSecond = convert(digits, count);
                return 2;
            }
        }
    }
    // A second number that runs to the text's end is complete; a first one
    // is not.
    if (stored == 1 && count > 0) {
        *pSecond = convert(digits, count);
        stored = 2;
    }
    return stored;
}
