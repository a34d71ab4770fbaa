#include "COMMON.h"
#include "com_log.h"

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

// A stdio stream closed at the end of its scope unless closed before.
class Stream {
public:
    explicit Stream(FILE *f = nullptr) : f_(f) {}
    ~Stream() { close(); }
    Stream(const Stream &) = delete;
    Stream &operator=(const Stream &) = delete;
    FILE *get() const { return f_; }
    void reset(FILE *f)
    {
        close();
        f_ = f;
    }
    void close()
    {
        if (f_ != nullptr) {
            fclose(f_);
            f_ = nullptr;
        }
    }

private:
    FILE *f_;
};

// The temporary file, removed whatever way the call ends.
class TempFile {
public:
    explicit TempFile(const char *path) : path_(path) {}
    ~TempFile()
    {
        if (unlink(path_) != 0) {
            COM_LOG("COM_ReplaceItemsInFile", "unlink(%s) failed : %s\n", path_, strerror(errno));
        }
    }
    TempFile(const TempFile &) = delete;
    TempFile &operator=(const TempFile &) = delete;

private:
    const char *path_;
};

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
        COM_LOG(__func__, "mkstemp() failed : %s\n", strerror(errno));
        return -1;
    }
    COM_SafeClose(&fd);
    const TempFile tempFile(tempPath);

    Stream temp(fopen(tempPath, "w+"));
    if (temp.get() == nullptr) {
        COM_LOG(__func__, "fopen(%s) failed : %s\n", tempPath, strerror(errno));
        return -1;
    }
    Stream target(fopen(path, "r+"));
    if (target.get() == nullptr) {
        if (errno != ENOENT) {
            COM_LOG(__func__, "fopen(%s) failed : %s\n", path, strerror(errno));
            return -1;
        }
        target.reset(fopen(path, "w+"));
        if (target.get() == nullptr) {
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
        COM_LOG(__func__, "fgets(%s) error : %s\n", path, strerror(errno));
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
    temp.close();
    target.close();
    if (copied && truncate(path, length) != 0) {
        COM_LOG(nullptr, "truncate(%s) error : %s\n", path, strerror(errno));
    }
    return result;
}
