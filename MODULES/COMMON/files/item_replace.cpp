#include "COMMON.h"
#include "com_log.h"
#include "fd_io.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <strings.h>
#include <unistd.h>

namespace {
// A longer line is read, matched and written back in pieces of this size.
constexpr size_t kLineSize = 256;
constexpr size_t kKeyCopySize = 256;
constexpr size_t kTempPathSize = 80;
constexpr const char *kTempDir = "/var";
constexpr size_t kCopyBlockSize = 4096;

// Reads into buf, as fgets() does, at most size - 1 bytes and no further than
// the first line feed, and terminates them. Unlike fgets() it says how many
// bytes it read, zero bytes included, so a piece is written back whole.
size_t readPiece(FILE *f, char *buf, size_t size)
{
    size_t n = 0;
    for (int c; n + 1 < size && (c = getc(f)) != EOF;) {
        buf[n++] = static_cast<char>(c);
        if (c == '\n') {
            break;
        }
    }
    buf[n] = '\0';
    return n;
}

// Writes the bytes through to the file, so that a full disk is noticed at the
// line that meets it and never first at the copy back.
bool put(FILE *f, const char *data, size_t size)
{
    return fwrite(data, 1, size, f) == size && fflush(f) == 0;
}

bool matches(const COM_ITEM &item, const char *line, bool anywhere)
{
    const size_t keyLen = std::min(static_cast<size_t>(item.keyLen), sizeof item.key);
    if (!anywhere) {
        return strncasecmp(line, item.key, keyLen) == 0;
    }
    char key[kKeyCopySize];
    const size_t n = strnlen(item.key, std::min(keyLen, sizeof key - 1));
    memcpy(key, item.key, n);
    key[n] = '\0';
    return strstr(line, key) != nullptr;
}

// Puts the item's value and a line feed in the line's place, or nothing for
// an empty value; returns the new length.
size_t replaceLine(char *line, const COM_ITEM &item)
{
    const size_t n = strnlen(item.value, sizeof item.value);
    static_assert(sizeof(COM_ITEM::value) + 2 <= kLineSize);
    memcpy(line, item.value, n);
    line[n] = '\n';
    const size_t length = n > 0 ? n + 1 : 0;
    line[length] = '\0';
    return length;
}

// Copies the temporary file over the target from its start; false when a
// read or a write fails.
bool copyBack(FILE *from, FILE *to)
{
    rewind(from);
    rewind(to);
    char block[kCopyBlockSize];
    for (size_t n; (n = fread(block, 1, sizeof block, from)) > 0;) {
        if (fwrite(block, 1, n, to) != n) {
            return false;
        }
    }
    return fflush(to) == 0 && ferror(from) == 0;
}
} // namespace

int COM_ReplaceItemsInFile(const char *path, COM_ITEM_LIST *list)
{
    if (path == nullptr || list == nullptr || (list->count > 0 && list->items == nullptr)) {
        return -1;
    }
    const int count = std::max(list->count, 0);
    COM_ITEM *const items = list->items;

    char tempPath[kTempPathSize];
    snprintf(tempPath, sizeof tempPath, "%s/COM_XXXXXX", kTempDir);
    int fd = mkstemp(tempPath);
    if (fd < 0) {
        COM_LOG_FAILED_CALL(__func__, "mkstemp() failed : %s\n");
        return -1;
    }
    COM_SafeClose(&fd);
    const fdio::UniqueTempPath tempFile(tempPath, "COM_ReplaceItemsInFile");

    fdio::UniqueFile temp = fdio::openFile(tempPath, "w+");
    if (!temp) {
        COM_LOG_FAILED_CALL(__func__, "fopen(%s) failed : %s\n", tempPath);
        return -1;
    }
    fdio::UniqueFile target = fdio::openFile(path, "r+");
    if (!target) {
        if (errno != ENOENT) {
            COM_LOG_FAILED_CALL(__func__, "fopen(%s) failed : %s\n", path);
            return -1;
        }
        target = fdio::openFile(path, "w+");
        if (!target) {
            return -1;
        }
    }

    int result = 0;
    bool endsWithFeed = true; // what the temporary file holds so far
    char line[kLineSize];
    for (size_t len; (len = readPiece(target.get(), line, sizeof line)) > 0;) {
        for (int i = 0; i < count; ++i) {
            if (items[i].keyLen <= 0 || !matches(items[i], line, list->anywhere != 0)) {
                continue;
            }
            if (!list->findOnly) {
                len = replaceLine(line, items[i]);
            }
            items[i].keyLen = 0;
            ++result;
            break;
        }
        if (list->findOnly || len == 0) {
            continue;
        }
        if (!put(temp.get(), line, len)) {
            COM_LOG(__func__, "fprintf() fail : %s : %s", strerror(errno), line);
            result = -1;
            break;
        }
        endsWithFeed = line[len - 1] == '\n';
    }
    if (result >= 0 && ferror(target.get())) {
        COM_LOG_FAILED_CALL(__func__, "fgets(%s) error : %s\n", path);
        result = -1;
    }

    // A search leaves the file as it is, so nothing is appended to it either.
    if (list->appendMissing && !list->findOnly && result >= 0) {
        for (int i = 0; i < count; ++i) {
            const COM_ITEM &item = items[i];
            const size_t n = strnlen(item.value, sizeof item.value);
            if (item.keyLen <= 0 || n == 0) {
                continue;
            }
            // An appended value starts a line of its own, even after a last
            // line that had no line feed.
            if ((!endsWithFeed && !put(temp.get(), "\n", 1)) || !put(temp.get(), item.value, n) ||
                !put(temp.get(), "\n", 1)) {
                COM_LOG(__func__, "fprintf() fail : %s : %.*s", strerror(errno),
                        static_cast<int>(n), item.value);
                result = -1;
                break;
            }
            endsWithFeed = true;
            ++result;
        }
    }

    long length = -1;
    const bool copied = !list->findOnly && result >= 0;
    if (copied) {
        if (!copyBack(temp.get(), target.get())) {
            result = -1;
        }
        length = ftell(target.get());
    }
    temp.reset();
    target.reset();
    if (copied && truncate(path, length) != 0) {
        COM_LOG_FAILED_CALL(nullptr, "truncate(%s) error : %s\n", path);
    }
    return result;
}
