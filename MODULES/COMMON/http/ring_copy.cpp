// A copy between two areas of which either may be a ring buffer.
#include <algorithm>
#include <cstring>

#include "com_log.h"

namespace {
// Offsets within a ring are taken modulo its size; a count larger than a ring
// would overwrite (or reread) itself and is refused, as is a negative offset.
bool usable(int offset, int size, int count)
{
    return offset >= 0 && (size <= 0 || count <= size);
}
} // namespace

int COM_RingCopy(void *dst, int dst_off, int dst_size, const void *src, int src_off, int src_size,
                 int count)
{
    if (count <= 0 || dst == nullptr || src == nullptr || !usable(dst_off, dst_size, count) ||
        !usable(src_off, src_size, count)) {
        COM_LOG(nullptr, "Panic (%p, %d, %d, %p, %d, %d, %d)\n", dst, dst_off, dst_size, src,
                src_off, src_size, count);
        return -1;
    }
    auto *to = static_cast<char *>(dst);
    const auto *from = static_cast<const char *>(src);
    int d = dst_size > 0 ? dst_off % dst_size : dst_off;
    int s = src_size > 0 ? src_off % src_size : src_off;
    // Each move ends where the first of the two contiguous runs ends: at most
    // three moves.
    while (count > 0) {
        const int run = std::min(
            {count, dst_size > 0 ? dst_size - d : count, src_size > 0 ? src_size - s : count});
        memmove(to + d, from + s, static_cast<size_t>(run));
        count -= run;
        d += run;
        s += run;
        d = dst_size > 0 && d == dst_size ? 0 : d;
        s = src_size > 0 && s == src_size ? 0 : s;
    }
    return 0;
}
