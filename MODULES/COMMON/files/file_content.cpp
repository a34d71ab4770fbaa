// Small data files and the one-line settings files: whole reads and writes,
// first lines, identity files.
#include "fd_io.h"

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace {
// Blocks of a one-line file are read into a buffer with room for a terminator.
constexpr size_t kContentBlockSize = 256;
constexpr char kUnknownValue[] = "unknown";
// The path of an identity file is built here.
constexpr size_t kIdPathSize = 80;
constexpr const char *kIdFileName = "ID";

// Appends the first line of each block of the file to the string in buf;
// 0 once a block was read, otherwise -1.
int appendFirstLines(const char *path, char *buf, int len)
{
    fdio::UniqueFd fd(open(path, O_RDONLY | O_CLOEXEC));
    if (!fd.valid()) {
        if (errno != ENOENT) {
            COM_LOG_FAILED_CALL("COM_GetFileContent", "open(%s) error : %s\n", path);
        }
        return -1;
    }
    const auto room = static_cast<size_t>(len) - 1;
    // A buffer with no terminator inside its length holds no string to extend.
    size_t used = strnlen(buf, static_cast<size_t>(len));
    used = used > room ? 0 : used;

    int result = -1;
    char block[kContentBlockSize + 1];
    // The first block is always read; reading stops once the buffer is full.
    for (bool full = false; !full;) {
        const ssize_t n = fdio::readSome(fd.get(), block, kContentBlockSize);
        if (n == 0) {
            break;
        }
        if (n < 0) {
            COM_LOG_FAILED_CALL("COM_GetFileContent", "read(%s) error : %s\n", path);
            break;
        }
        block[n] = '\0';
        const size_t copied = std::min(strcspn(block, "\r\n"), room - used);
        memcpy(buf + used, block, copied);
        used += copied;
        buf[used] = '\0';
        result = 0;
        full = used >= room;
    }
    return result;
}

int writeText(const char *func, const char *path, const char *text, int flags)
{
    if (path == nullptr || text == nullptr) {
        COM_LOG(func, "input error : (pFileName, pBuf) = (%p, %p)\n",
                static_cast<const void *>(path), static_cast<const void *>(text));
        return -1;
    }
    fdio::UniqueFd fd(open(path, flags | O_CLOEXEC, fdio::kNewFileMode));
    if (!fd.valid()) {
        COM_LOG_FAILED_CALL(func, "open(%s) error : %s\n", path);
        return -1;
    }
    const size_t length = strlen(text);
    const ssize_t n = fdio::writeOnce(fd.get(), text, length);
    if (n != static_cast<ssize_t>(length)) {
        COM_LOG_FAILED_CALL(func, "write(%s) error : %s\n", path);
    }
    return n > 0 ? 0 : -1;
}
} // namespace

int COM_ReadDataFromFile(const char *path, void *pBuf, int len)
{
    if (path == nullptr || pBuf == nullptr || len < 0) {
        errno = EINVAL;
        return -1;
    }
    fdio::UniqueFd fd(open(path, O_RDONLY | O_CLOEXEC));
    if (!fd.valid()) {
        COM_LOG_FAILED_CALL(nullptr, "open(%s) fail : %s\n", path);
        return -1;
    }
    const ssize_t n = fdio::readSome(fd.get(), pBuf, static_cast<size_t>(len));
    if (n == len) {
        return 0;
    }
    if (n > 0) {
        return 1;
    }
    if (n < 0) {
        COM_LOG_FAILED_CALL(nullptr, "read(%s) fail : %s\n", path);
    }
    return static_cast<int>(n);
}

int COM_SaveDataIntoFile(const char *path, const void *pData, int len)
{
    if (path == nullptr || (pData == nullptr && len > 0) || len < 0) {
        errno = EINVAL;
        return -1;
    }
    fdio::UniqueFd fd(open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, fdio::kNewFileMode));
    if (!fd.valid()) {
        COM_LOG_FAILED_CALL(__func__, "open(%s) fail : %s\n", path);
        return -1;
    }
    const ssize_t n = fdio::writeOnce(fd.get(), pData, static_cast<size_t>(len));
    if (n == len) {
        return 0;
    }
    COM_LOG_FAILED_CALL(__func__, "write(%s) size failed - %d/%d - %s\n", path, static_cast<int>(n),
                        len);
    return n > 0 ? 1 : static_cast<int>(n);
}

int COM_GetFileContent(const char *pFileName, char *pBuf, int len)
{
    int result = -1;
    if (pFileName == nullptr || pBuf == nullptr || len <= 0) {
        COM_LOG(__func__, "input error : (pFileName, pBuf, len) = (%p, %p, %d)\n",
                static_cast<const void *>(pFileName), static_cast<void *>(pBuf), len);
    } else {
        result = appendFirstLines(pFileName, pBuf, len);
    }
    // Display code reads the buffer without looking at the result.
    if (result != 0 && pBuf != nullptr && len > 0) {
        const size_t cut = std::min(sizeof kUnknownValue - 1, static_cast<size_t>(len) - 1);
        memcpy(pBuf, kUnknownValue, cut);
        pBuf[cut] = '\0';
    }
    return result;
}

int COM_SetFileContent(const char *pFileName, const char *pBuf)
{
    return writeText(__func__, pFileName, pBuf, O_WRONLY | O_CREAT | O_TRUNC);
}

int COM_AppendFileContent(const char *pFileName, const char *pBuf)
{
    return writeText(__func__, pFileName, pBuf, O_WRONLY | O_CREAT | O_APPEND);
}

int COM_SaveID(const char *dirPath, const char *id)
{
    if (dirPath == nullptr || id == nullptr) {
        errno = EINVAL;
        return -1;
    }
    char path[kIdPathSize];
    const int length = snprintf(path, sizeof path, "%s/%s", dirPath, kIdFileName);
    // A failed snprintf's negative length is huge as a size.
    if (static_cast<size_t>(length) >= sizeof path) {
        errno = ENAMETOOLONG; // the cut path would name another file
        COM_LOG_FAILED_CALL(__func__, "fopen(%s) error : %s\n", path);
        return -1;
    }
    fdio::UniqueFile file = fdio::openFile(path, "w");
    if (!file) {
        COM_LOG_FAILED_CALL(__func__, "fopen(%s) error : %s\n", path);
        return -1;
    }
    const int written = fprintf(file.get(), "%s", id);
    // The text reaches the file at fclose; a failure there means it is not saved.
    const int closed = fdio::closeFile(file);
    return written > 0 && closed == 0 ? 0 : -1;
}

int COM_InvertBytes(void *pBuf, int len)
{
    if (pBuf == nullptr) {
        return -1;
    }
    auto *bytes = static_cast<unsigned char *>(pBuf);
    for (int i = 0; i < len; ++i) {
        bytes[i] = static_cast<unsigned char>(~bytes[i]);
    }
    return 0;
}
