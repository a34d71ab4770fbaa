// Symbolic links and device nodes: removing what a link stands for, making
// and relocating links, creating nodes.
#include "fd_io.h"

#include <libgen.h>
#include <sys/stat.h>
#include <unistd.h>

// Device numbers are passed whole, major and minor as the kernel packs them.
static_assert(sizeof(dev_t) == 8);

namespace {
// The text of a link, read whole with room for its terminator.
constexpr size_t kLinkTextSize = 256;
// A copy of the target path that dirname() cuts to its directory.
constexpr size_t kTargetDirSize = 256;
constexpr mode_t kTargetDirMode = 0755;

// Makes the directory that will hold the target; false if the target's path
// is past the buffer's limit (a cut path would name the wrong directory).
bool makeTargetDir(const char *targetPath)
{
    char copy[kTargetDirSize];
    if (strlen(targetPath) >= sizeof copy) {
        errno = ENAMETOOLONG;
        COM_LOG_FAILED_CALL("COM_RelocateAndLink", "dirname(%s) error : %s\n", targetPath);
        return false;
    }
    strcpy(copy, targetPath);
    COM_Mkdir(dirname(copy), kTargetDirMode); // a failure is reported there
    return true;
}
} // namespace

int COM_RemoveRealFile(const char *path)
{
    if (path == nullptr) {
        errno = EINVAL;
        return -1;
    }
    struct stat st {};
    if (stat(path, &st) != 0) {
        COM_LOG_FAILED_CALL(__func__, "stat(%s) error : %s\n", path);
        return -1;
    }
    char linkText[kLinkTextSize] = {};
    const ssize_t n = readlink(path, linkText, sizeof linkText);
    const char *victim = linkText;
    if (n == static_cast<ssize_t>(sizeof linkText)) {
        // The text was cut: unlinking the cut name could hit another file.
        errno = ENAMETOOLONG;
        COM_LOG_FAILED_CALL(__func__, "realpath(%s) failed : %s\n", path);
        return -1;
    }
    if (n < 0) {
        if (errno != EINVAL) {
            COM_LOG_FAILED_CALL(__func__, "realpath(%s) failed : %s\n", path);
        }
        victim = path;
    }
    if (unlink(victim) != 0) {
        COM_LOG_FAILED_CALL(__func__, "unlink(%s) failed : %s\n", victim);
        return -1;
    }
    return 0;
}

int COM_CreateSymbolLink(int force, const char *targetPath, const char *linkPath)
{
    if (targetPath == nullptr || linkPath == nullptr) {
        errno = EINVAL;
        return -1;
    }
    struct stat st {};
    if (force != 0 || stat(targetPath, &st) == 0) {
        unlink(linkPath); // nothing there is as good as removed
    }
    if (symlink(targetPath, linkPath) != 0) {
        COM_LOG_FAILED_CALL(__func__, "symlink(%s, %s) fail : %s\n", targetPath, linkPath);
        return -1;
    }
    return 0;
}

int COM_RelocateAndLink(const char *targetPath, const char *linkPath)
{
    if (targetPath == nullptr || linkPath == nullptr) {
        errno = EINVAL;
        return -1;
    }
    struct stat atLink {};
    if (stat(linkPath, &atLink) != 0) {
        if (errno != ENOENT) {
            COM_LOG_FAILED_CALL(__func__, "stat(%s) error : %s\n", linkPath);
            return -1;
        }
        return makeTargetDir(targetPath) ? COM_CreateSymbolLink(1, targetPath, linkPath) : -1;
    }

    struct stat atTarget {};
    if (stat(targetPath, &atTarget) == 0) {
        return COM_CreateSymbolLink(1, targetPath, linkPath); // the target wins
    }
    if (errno != ENOENT) {
        COM_LOG_FAILED_CALL(__func__, "stat(%s) error : %s\n", targetPath);
        return -1;
    }
    // The file moves to the target first; it is replaced by the link only
    // once the copy is complete.
    if (!makeTargetDir(targetPath) || !S_ISREG(atLink.st_mode) ||
        COM_CopyFile(targetPath, linkPath) != 0) {
        return -1;
    }
    return COM_CreateSymbolLink(1, targetPath, linkPath);
}

int COM_MakeNode(const char *path, unsigned int mode, dev_t dev)
{
    if (path == nullptr) {
        errno = EINVAL;
        return -1;
    }
    struct stat st {};
    if (stat(path, &st) == 0) {
        return 0;
    }
    if (errno != ENOENT) {
        COM_LOG_FAILED_CALL(nullptr, "stat(%s) fail : %s\n", path);
        return -1;
    }
    if (mknod(path, static_cast<mode_t>(mode), dev) != 0) {
        COM_LOG_FAILED_CALL(nullptr, "mknod(%s) fail : %s\n", path);
        return -1;
    }
    return 0;
}
