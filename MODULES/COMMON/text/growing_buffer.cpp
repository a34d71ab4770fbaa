// The growing heap buffer that variable-length answers live in, and the
// reader that collects the hexadecimal digits of a descriptor into one.
#include "fd_io.h"

#include <cctype>
#include <cstdint>
#include <cstdlib>

namespace {
constexpr size_t kHexBlockSize = 80;

// The owner's pointer is read and written as bytes, so that the owner may
// hold it as a pointer of any object type.
void *loadPointer(const void *ppBuf)
{
    void *p;
    memcpy(&p, ppBuf, sizeof p);
    return p;
}

void storePointer(void *ppBuf, void *p)
{
    memcpy(ppBuf, &p, sizeof p);
}

// The new data must lie inside the new block, and a block of size 0 would be
// freed by realloc behind the owner's back.
bool fits(int newSize, const void *ppBuf, int offset, const void *src, int srcLen)
{
    return ppBuf != nullptr && newSize > 0 && offset >= 0 && srcLen >= 0 &&
           (src != nullptr || srcLen == 0) && static_cast<int64_t>(offset) + srcLen <= newSize;
}
} // namespace

void *COM_ReallocAndCopyBuf(int newSize, void *ppBuf, int offset, const void *src, int srcLen)
{
    if (!fits(newSize, ppBuf, offset, src, srcLen)) {
        errno = EINVAL;
        COM_LOG_FAILED_CALL(__func__, "REALLOC(%d) failed : %s\n", newSize);
        return nullptr;
    }
    auto *block = static_cast<char *>(realloc(loadPointer(ppBuf), static_cast<size_t>(newSize)));
    if (block == nullptr) {
        COM_LOG_FAILED_CALL(__func__, "REALLOC(%d) failed : %s\n", newSize);
        return nullptr;
    }
    if (newSize > offset) {
        memset(block + offset, 0, static_cast<size_t>(newSize - offset));
    }
    storePointer(ppBuf, block);
    if (srcLen > 0) {
        memmove(block + offset, src, static_cast<size_t>(srcLen));
    }
    return block;
}

int COM_ReadHexDataInStrFormat(int fd, char **ppBuf)
{
    if (fd < 0 || ppBuf == nullptr) {
        return -1;
    }
    int total = 0;
    char block[kHexBlockSize];
    for (;;) {
        const ssize_t n = fdio::readSome(fd, block, sizeof block);
        if (n <= 0) {
            break;
        }
        // The digits are packed to the block's front, in order and case.
        int digits = 0;
        for (ssize_t i = 0; i < n && block[i] != '\0'; ++i) {
            if (isxdigit(static_cast<unsigned char>(block[i]))) {
                block[digits++] = block[i];
            }
        }
        if (digits == 0) {
            continue;
        }
        if (COM_ReallocAndCopyBuf(total + digits, ppBuf, total, block, digits) == nullptr) {
            COM_LOG(__func__, "COM_ReallocAndCopyBuf() failed!!\n");
            break;
        }
        total += digits;
    }
    return total;
}
