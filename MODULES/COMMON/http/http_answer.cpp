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
#include <sys/mman.h>

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

// An announced answer up to this size is given its whole room at once.
constexpr int64_t kOneStep = int64_t{128} << 20;
constexpr uintptr_t kLargePage = uintptr_t{2} << 20;

// Asks for large pages over the whole large pages inside [from, to): a long
// answer then faults a page per 2 MiB instead of per 4 KiB. Only advice.
void preferLargePages(char *from, char *to)
{
#ifdef MADV_HUGEPAGE
    const uintptr_t begin =
        (reinterpret_cast<uintptr_t>(from) + kLargePage - 1) & ~(kLargePage - 1);
    const uintptr_t end = reinterpret_cast<uintptr_t>(to) & ~(kLargePage - 1);
    if (end > begin) {
        madvise(reinterpret_cast<void *>(begin), end - begin, MADV_HUGEPAGE);
    }
#else
    (void)from;
    (void)to;
#endif
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

char *Answer::room(int length)
{
    // One byte more than the content is kept, so the terminator always fits.
    const int64_t need = static_cast<int64_t>(stored_) + length + 1;
    if (need <= capacity_) {
        return *owner_ + stored_;
    }
    if (need > INT_MAX) {
        return nullptr;
    }
    int64_t roomy =
        std::max<int64_t>(need, static_cast<int64_t>(stored_) + stored_ / 2 + kRequestSize);
    if (expected_ >= need) {
        roomy = std::min<int64_t>(std::max<int64_t>(roomy, kOneStep), expected_);
    }
    roomy = std::min<int64_t>(roomy, INT_MAX);
    // The offset is the new size: the block grows without clearing its new
    // room, which the receive writes into at once.
    for (const int64_t size : {roomy, need}) {
        if (size >= need && COM_ReallocAndCopyBuf(static_cast<int>(size), owner_,
                                                  static_cast<int>(size), nullptr, 0) != nullptr) {
            capacity_ = static_cast<int>(size);
            if (size == expected_) {
                preferLargePages(*owner_ + stored_, *owner_ + capacity_);
            }
            return *owner_ + stored_;
        }
        // An announced size that can't be had is not asked for again.
        expected_ = -1;
    }
    return nullptr;
}

void Answer::reportLost(const char *func, int length) const
{
    COM_LOG(func, "COM_ReallocAndCopyBuf(%d) error\n",
            static_cast<int>(std::min<int64_t>(static_cast<int64_t>(stored_) + length, INT_MAX)));
}

bool Answer::append(const char *func, const char *bytes, int length)
{
    if (length <= 0) {
        return true;
    }
    char *at = room(length);
    if (at == nullptr) {
        reportLost(func, length);
        return false;
    }
    memcpy(at, bytes, static_cast<size_t>(length));
    stored_ += length;
    return true;
}

int Answer::finish(const char *func)
{
    if (stored_ == 0) {
        return 0;
    }
    // Trims the spare room and writes the terminator; a failed trim leaves
    // the block as large as it was, with room for the terminator kept.
    if (COM_ReallocAndCopyBuf(stored_ + 1, owner_, stored_, "", 1) == nullptr) {
        (*owner_)[stored_] = '\0';
    }
    return stored_ + 1;
}

} // namespace http
