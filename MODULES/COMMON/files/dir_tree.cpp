// Making and clearing directory trees.
#include "fd_io.h"

#include <cstdio>
#include <cstdlib>
#include <sys/stat.h>
#include <unistd.h>

namespace {
// Each parent prefix of a path to make is built here.
constexpr size_t kMkdirPrefixSize = 256;
// The path of one directory entry to remove is built here.
constexpr size_t kEntryPathSize = 260;
// The file system's own directory on a disk's top level is never removed.
constexpr const char *kKeptEntry = "lost+found";

int mkdirLeavingExisting(const char *path, mode_t mode)
{
    if (mkdir(path, mode) != 0 && errno != EEXIST) {
        COM_LOG_FAILED_CALL("COM_Mkdir", "mkdir(%s) error : %s\n", path);
        return -1;
    }
    return 0;
}

// The path is "/" however many slashes spell it (its base name is "/").
bool isRoot(const char *path)
{
    return path[0] != '\0' && path[strspn(path, "/")] == '\0';
}

bool isSkipped(const char *name)
{
    return strcmp(name, ".") == 0 || strcmp(name, "..") == 0 || strcmp(name, kKeptEntry) == 0;
}
} // namespace

int COM_Mkdir(const char *path, mode_t mode)
{
    if (path == nullptr) {
        errno = EINVAL;
        return -1;
    }
    char prefix[kMkdirPrefixSize];
    for (size_t i = 0; path[i] != '\0'; ++i) {
        if (path[i] != '/') {
            continue;
        }
        if (i + 1 >= sizeof prefix) {
            errno = ENAMETOOLONG;
            COM_LOG_FAILED_CALL(__func__, "mkdir(%s) error : %s\n", path);
            return -1;
        }
        memcpy(prefix, path, i + 1);
        prefix[i + 1] = '\0';
        if (mkdirLeavingExisting(prefix, mode) != 0) {
            return -1;
        }
    }
    return mkdirLeavingExisting(path, mode);
}

int _COM_RemoveFileInDir_(int recursive, const char *dirPath, int removeSelf)
{
    if (dirPath == nullptr || isRoot(dirPath)) {
        COM_LOG(__func__, "opendir(%s) error : %s\n", dirPath != nullptr ? dirPath : "(null)",
                strerror(EINVAL));
        return 0;
    }
    fdio::UniqueDir dir = fdio::openDir(dirPath);
    if (!dir) {
        COM_LOG_FAILED_CALL(__func__, "opendir(%s) error : %s\n", dirPath);
        return 0;
    }

    int count = 0;
    bool failed = false;
    while (const dirent *entry = readdir(dir.get())) {
        if (isSkipped(entry->d_name)) {
            continue;
        }
        char path[kEntryPathSize];
        const int length = snprintf(path, sizeof path, "%s/%s", dirPath, entry->d_name);
        struct stat st {};
        if (length < 0 || static_cast<size_t>(length) >= sizeof path) {
            errno = ENAMETOOLONG; // the cut path must not be touched
            COM_LOG_FAILED_CALL(__func__, "stat(%s) error : %s\n", path);
            failed = true;
            continue;
        }
        if (stat(path, &st) != 0) {
            COM_LOG_FAILED_CALL(__func__, "stat(%s) error : %s\n", path);
            failed = true;
            continue;
        }
        if (!S_ISDIR(st.st_mode)) {
            if (unlink(path) != 0) {
                COM_LOG_FAILED_CALL(__func__, "unlink(%s) error : %s\n", path);
                failed = true;
            } else {
                ++count;
            }
        } else if (recursive == 1) {
            const int removed = _COM_RemoveFileInDir_(recursive, path, 1);
            if (removed < 0) {
                failed = true;
            } else {
                count += removed;
            }
        }
    }
    dir.reset();

    if (removeSelf != 0) {
        if (rmdir(dirPath) == 0) {
            ++count;
        } else {
            COM_LOG_FAILED_CALL(__func__, "rmdir(%s) error : %s\n", dirPath);
        }
    }
    return failed ? -1 : count;
}

int COM_RemoveDirAndFile(int recursive, const char *dirPath)
{
    return _COM_RemoveFileInDir_(recursive, dirPath, 1);
}

int COM_RemoveFileInDir(int recursive, const char *dirPath)
{
    return _COM_RemoveFileInDir_(recursive, dirPath, 0);
}

char *COM_GetPwd(void)
{
    return getenv("PWD");
}
