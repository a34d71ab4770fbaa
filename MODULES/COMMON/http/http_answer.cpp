// The answer side of a command: the growing answer block, the Content-Length
// scan and the header end. The scanners read only the bytes received, which
// carry no terminator.
#include "http_private.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <strings.h>

#include "com_log.h"

namespace {
constexpr std::string_view kContentLength = "Content-Length";
// A hit is looked for where the name and two more characters fit.
constexpr int kScanTail = 16;
constexpr std::string_view kCrLfEnd = "\r\n\r\n";
constexpr std::string_view kLfEnd = "\n\n";

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

// atoi over bytes that carry no terminator: the digits up to the block's end.
int numberAt(const char *p, const char *end)
{
    int64_t value = 0;
    for (; p < end && isDigit(*p); ++p) {
        value = std::min<int64_t>(value * 10 + (*p - '0'), INT_MAX);
    }
    return static_cast<int>(value);
}

int endOf(std::string_view block, std::string_view mark)
{
    const size_t at = block.find(mark);
    return at == std::string_view::npos ? 0 : static_cast<int>(at + mark.size());
}
} // namespace

namespace http {

int scanContentLength(const char *block, int length)
{
    int value = -1;
    const char *end = block + std::max(length, 0);
    for (int i = 0; i <= length - kScanTail; ++i) {
        if (strncasecmp(block + i, kContentLength.data(), kContentLength.size()) != 0) {
            continue;
        }
        for (const char *p = block + i; p < end; ++p) {
            if (isDigit(*p)) {
                value = numberAt(p, end);
                break;
            }
            if (*p == '\r' && p + 1 < end && p[1] == '\n') {
                break;
            }
        }
    }
    return value;
}

int findHeaderEnd(const char *block, int length)
{
    const std::string_view text(block, static_cast<size_t>(std::max(length, 0)));
    const int crlf = endOf(text, kCrLfEnd);
    return crlf > 0 ? crlf : endOf(text, kLfEnd);
}

bool Answer::append(const char *func, const char *bytes, int length)
{
    if (length <= 0) {
        return true;
    }
    // One byte more than the content is kept, so the terminator always fits.
    const int64_t need = static_cast<int64_t>(stored_) + length + 1;
    if (need <= capacity_) {
        memcpy(*owner_ + stored_, bytes, static_cast<size_t>(length));
        stored_ += length;
        return true;
    }
    const int64_t roomy = std::min<int64_t>(
        std::max<int64_t>(need, static_cast<int64_t>(stored_) + stored_ / 4 + kRequestSize),
        INT_MAX);
    for (const int64_t size : {roomy, need}) {
        if (size >= need && COM_ReallocAndCopyBuf(static_cast<int>(size), owner_, stored_, bytes,
                                                  length) != nullptr) {
            capacity_ = static_cast<int>(size);
            stored_ += length;
            return true;
        }
    }
    COM_LOG(func, "COM_ReallocAndCopyBuf(%d) error\n",
            static_cast<int>(std::min<int64_t>(need - 1, INT_MAX)));
    return false;
}

int Answer::finish(const char *func)
{
    if (stored_ == 0) {
        return 0;
    }
    // The byte behind the content is zero already (a grown block is cleared
    // behind what it holds); trimming the spare room may fail harmlessly.
    COM_ReallocAndCopyBuf(stored_ + 1, owner_, stored_, "", 1);
    return stored_ + 1;
}

} // namespace http
