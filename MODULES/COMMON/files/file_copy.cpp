// Copying, moving and appending whole files.
#include "fd_io.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {
constexpr size_t kRenameBlockSize = 512;
constexpr size_t kCopyBlockSize = 8192;
constexpr size_t kAppendBlockSize = 102400;
constexpr mode_t kAppendFileMode = 0777;
constexpr int kWriteNew = O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC;
} // namespace

int COM_RenameFile(const char *srcPath, const char *dstPath)
{
    if (srcPath == nullptr || dstPath == nullptr) {
        errno = EINVAL;
        return -1;
    }
    fdio::UniqueFd src(open(srcPath, O_RDONLY | O_CLOEXEC));
    if (!src.valid()) {
        COM_LOG_FAILED_CALL(__func__, "open(%s) failed : %s\n", srcPath);
        return -1;
    }
    // Truncating the destination would empty the source itself: a file
    // moved onto itself (or a hard link of it) is already where it goes.
    if (fdio::isSameFile(src.get(), dstPath)) {
        return 0;
    }
    fdio::UniqueFd dst(open(dstPath, kWriteNew, fdio::kNewFileMode));
    if (!dst.valid()) {
        COM_LOG_FAILED_CALL(__func__, "open(%s) failed : %s\n", dstPath);
        return -1;
    }

    char block[kRenameBlockSize];
    for (;;) {
        const ssize_t n = fdio::readSome(src.get(), block, sizeof block);
        if (n == 0) {
            break;
        }
        // A failed read or write ends the move with the source kept whole;
        // the destination keeps what it got.
        if (n < 0) {
            COM_LOG_FAILED_CALL(__func__, "read(%s) failed : %s\n", srcPath);
            return -1;
        }
        if (fdio::writeAll(dst.get(), block, static_cast<size_t>(n)) != n) {
            COM_LOG_FAILED_CALL(__func__, "write() failed : %s");
            return -1;
        }
    }
    // A write error can surface only at close (NFS): then the copy is not
    // known to be whole and the source must stay.
    if (dst.close() != 0) {
        COM_LOG_FAILED_CALL(__func__, "close(%s) failed : %s\n", dstPath);
        return -1;
    }
    src.close();
    if (unlink(srcPath) != 0) {
        COM_LOG_FAILED_CALL(__func__, "unlink(%s) failed : %s\n", srcPath);
    }
    return 0;
}

int COM_CopyFile(const char *dstPath, const char *srcPath)
{
    if (srcPath == nullptr || dstPath == nullptr) {
        errno = EINVAL;
        return -1;
    }
    struct stat st {};
    if (stat(srcPath, &st) != 0) {
        COM_LOG_FAILED_CALL(__func__, "stat(%s) failed : %s\n", srcPath);
        return -1;
    }
    if (S_ISDIR(st.st_mode)) {
        COM_LOG(__func__, "[%s] is a folder\n", srcPath);
        return -1;
    }
    fdio::UniqueFd src(open(srcPath, O_RDONLY | O_CLOEXEC));
    if (!src.valid()) {
        COM_LOG_FAILED_CALL(__func__, "open(pSrv : %s) failed : %s\n", srcPath);
        return -1;
    }
    if (fdio::isSameFile(src.get(), dstPath)) {
        return 0; // truncating the destination would empty the source
    }
    fdio::UniqueFd dst(open(dstPath, kWriteNew, fdio::kNewFileMode));
    if (!dst.valid()) {
        COM_LOG_FAILED_CALL(__func__, "open(pDst : %s) failed : %s\n", dstPath);
        return -1;
    }

    int result = -1;
    char block[kCopyBlockSize];
    for (;;) {
        const ssize_t n = fdio::readSome(src.get(), block, sizeof block);
        if (n <= 0) {
            result = n == 0 ? 0 : -1;
            break;
        }
        if (fdio::writeOnce(dst.get(), block, static_cast<size_t>(n)) != n) {
            COM_LOG_FAILED_CALL(nullptr, "write(%s) failed : %s\n", dstPath);
            break;
        }
    }
    // The copy counts only once the destination took it all.
    if (dst.close() != 0 && result == 0) {
        COM_LOG_FAILED_CALL(nullptr, "write(%s) failed : %s\n", dstPath);
        result = -1;
    }
    return result;
}

int COM_File2FileAppend(const char *dstPath, const char *srcPath)
{
    if (dstPath == nullptr || srcPath == nullptr) {
        return -1;
    }
    fdio::UniqueFd dst(open(dstPath, O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, kAppendFileMode));
    if (!dst.valid()) {
        COM_LOG_FAILED_CALL(__func__, "open(%s) error:%s\n", dstPath);
    }
    fdio::UniqueFd src(open(srcPath, O_RDWR | O_CLOEXEC));
    if (!src.valid()) {
        COM_LOG_FAILED_CALL(__func__, "open(%s) error:%s\n", srcPath);
    }
    if (!dst.valid() || !src.valid()) {
        return -1;
    }

    // A file appended to itself grows while it is read: only what it held
    // at the start is copied.
    int64_t left = INT64_MAX;
    struct stat st {};
    if (fdio::isSameFile(src.get(), dstPath) && fstat(src.get(), &st) == 0) {
        left = st.st_size;
    }

    int64_t result = -1;
    static_assert(kAppendBlockSize <= INT_MAX);
    char block[kAppendBlockSize];
    while (left > 0) {
        const size_t want = static_cast<size_t>(std::min<int64_t>(left, sizeof block));
        const ssize_t n = fdio::readSome(src.get(), block, want);
        if (n <= 0) {
            break;
        }
        left -= n;
        if (fdio::writeOnce(dst.get(), block, static_cast<size_t>(n)) != n) {
            COM_LOG(nullptr, "failed to write %d bytes from [%s] to [%s]\n", static_cast<int>(n),
                    srcPath, dstPath);
            continue;
        }
        result = result < 0 ? n : result + n;
    }
    return static_cast<int>(std::min<int64_t>(result, INT_MAX));
}
