#include "mount_table.h"

#include "com_log.h"
#include "fd_io.h"

#include <cstdio>
#include <cstring>
#include <string_view>

// A mount table entry is handed to callers by size: four text columns.
static_assert(sizeof(MountEntry) == 512);
static_assert(offsetof(MountEntry, type) == 256 && offsetof(MountEntry, opts) == 272);

namespace dev {
namespace {

bool isSeparator(char c)
{
    return c == ' ' || c == '\t' || c == '\n';
}

bool isOctal(char c)
{
    return c >= '0' && c <= '7';
}

// Copies a column, turning "\ooo" back into the byte the kernel escaped.
void decode(std::string_view in, char *out)
{
    size_t n = 0;
    for (size_t i = 0; i < in.size(); ++i) {
        if (in[i] == '\\' && i + 3 < in.size() && isOctal(in[i + 1]) && isOctal(in[i + 2]) &&
            isOctal(in[i + 3])) {
            out[n++] = static_cast<char>(((in[i + 1] - '0') << 6) | ((in[i + 2] - '0') << 3) |
                                         (in[i + 3] - '0'));
            i += 3;
        } else {
            out[n++] = in[i];
        }
    }
    out[n] = '\0';
}

} // namespace

void splitMountLine(const char *line, bool truncated, MountColumns &columns)
{
    columns.count = 0;
    const std::string_view text(line, strnlen(line, kMountLineSize - 1));
    size_t pos = 0;
    while (columns.count < 4) {
        while (pos < text.size() && isSeparator(text[pos])) {
            ++pos;
        }
        if (pos == text.size()) {
            return;
        }
        size_t end = pos;
        while (end < text.size() && !isSeparator(text[end])) {
            ++end;
        }
        // A column the piece ends in may go on in the rest of the line.
        if (end == text.size() && truncated) {
            return;
        }
        decode(text.substr(pos, end - pos), columns.text[columns.count++]);
        pos = end;
    }
}

} // namespace dev

namespace {

constexpr const char *kProcMounts = "/proc/mounts";
using dev::kMountLineSize;
using dev::MountColumns;

// Reads /proc/mounts line by line and hands each line's columns to fn until
// it returns false. A line longer than a piece counts by its first piece; the
// rest of it is passed over. false when the file can't be opened.
template <typename Fn> bool forEachMountLine(const char *func, Fn &&fn)
{
    const fdio::UniqueFile file = fdio::openFile(kProcMounts, "r");
    if (!file) {
        COM_LOG_FAILED_CALL(func, "fopen(%s) error : %s\n", kProcMounts);
        return false;
    }
    char line[kMountLineSize] = {};
    MountColumns columns;
    bool continuation = false;
    while (fgets(line, sizeof line, file.get()) != nullptr) {
        const size_t length = strlen(line);
        const bool whole = length > 0 && line[length - 1] == '\n';
        const bool truncated = !whole && !feof(file.get());
        if (!continuation) {
            dev::splitMountLine(line, truncated, columns);
            if (!fn(columns)) {
                break;
            }
        }
        continuation = truncated;
        memset(line, 0, sizeof line);
    }
    return true;
}

// Copies a column into a caller's buffer of size bytes; false when it
// doesn't fit, so that a cut path is never handed out.
bool copyFitting(char *out, size_t size, const char *column)
{
    const size_t length = strlen(column);
    if (length >= size) {
        return false;
    }
    memcpy(out, column, length + 1);
    return true;
}

void copyCut(char *out, size_t size, const char *column)
{
    const size_t length = strnlen(column, size - 1);
    memcpy(out, column, length);
    out[length] = '\0';
}

bool deviceMatches(const char *device, const char *pDev, int n)
{
    if (n <= 0) {
        return strncmp(device, pDev, strlen(pDev)) == 0;
    }
    const auto limit = static_cast<size_t>(n);
    return strncmp(device, pDev, limit) == 0 && strlen(device) <= limit;
}

} // namespace

int Dev_nGetMPT(const char *pDev, char *pMPT, int n)
{
    if (pDev == nullptr || pMPT == nullptr) {
        COM_LOG(__func__, "(%p, %p, %d) : Null ptr\n", static_cast<const void *>(pDev),
                static_cast<void *>(pMPT), n);
        return -1;
    }
    int result = -1;
    forEachMountLine(__func__, [&](const MountColumns &c) {
        if (c.count >= 2 && deviceMatches(c.text[0], pDev, n) &&
            copyFitting(pMPT, DEV_MPT_SIZE, c.text[1])) {
            result = 0;
        }
        return result != 0;
    });
    return result;
}

int Dev_GetMPT(const char *pDev, char *pMPT)
{
    return Dev_nGetMPT(pDev, pMPT, 0);
}

int Dev_GetDevViaMount(char *pDev, const char *pMPT)
{
    if (pDev == nullptr || pMPT == nullptr) {
        COM_LOG(__func__, "(%p, %p) : Null ptr\n", static_cast<void *>(pDev),
                static_cast<const void *>(pMPT));
        return -1;
    }
    int result = -1;
    forEachMountLine(__func__, [&](const MountColumns &c) {
        if (c.count >= 2 && strcmp(c.text[1], pMPT) == 0 &&
            copyFitting(pDev, DEV_MPT_SIZE, c.text[0])) {
            result = 0;
        }
        return true;
    });
    return result;
}

int Dev_GetEntryViaMtab(const char *pKey, MountEntry *pEntry)
{
    if (pKey == nullptr || pEntry == nullptr) {
        COM_LOG(__func__, "(%p, %p) : Null ptr\n", static_cast<const void *>(pKey),
                static_cast<void *>(pEntry));
        return -1;
    }
    int result = -1;
    forEachMountLine(__func__, [&](const MountColumns &c) {
        if (c.count < 4 || (strcmp(c.text[0], pKey) != 0 && strcmp(c.text[1], pKey) != 0)) {
            return true;
        }
        // Device and mount point are the keys: they must fit whole. Type and
        // options are cut to their fields.
        MountEntry entry{};
        if (!copyFitting(entry.device, sizeof entry.device, c.text[0]) ||
            !copyFitting(entry.dir, sizeof entry.dir, c.text[1])) {
            return true;
        }
        copyCut(entry.type, sizeof entry.type, c.text[2]);
        copyCut(entry.opts, sizeof entry.opts, c.text[3]);
        *pEntry = entry;
        result = 0;
        return false;
    });
    return result;
}
