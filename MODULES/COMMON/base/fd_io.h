/* Private to the library: descriptor ownership, whole-block I/O and the log
 * form of a failed system call. */
#ifndef DVR_FD_IO_H
#define DVR_FD_IO_H

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <memory>
#include <sys/types.h>

#include "COMMON.h"
#include "com_log.h"

// Logs a failed call's message, whose last conversion is the text of errno,
// and leaves errno as the call left it for the caller to look at.
#define COM_LOG_FAILED_CALL(func, fmt, ...)                                     \
    do {                                                                        \
        const int savedErrno_ = errno;                                          \
        COM_LOG((func), fmt, __VA_ARGS__ __VA_OPT__(, ) strerror(savedErrno_)); \
        errno = savedErrno_;                                                    \
    } while (0)

namespace fdio {

// Mode of every file the library creates.
constexpr mode_t kNewFileMode = 0664;

// Owns a descriptor and closes it through COM_SafeClose at the end of its scope.
class UniqueFd {
public:
    explicit UniqueFd(int fd = -1) : fd_(fd) {}
    ~UniqueFd() { COM_SafeClose(&fd_); }
    UniqueFd(const UniqueFd &) = delete;
    UniqueFd &operator=(const UniqueFd &) = delete;
    int get() const { return fd_; }
    bool valid() const { return fd_ >= 0; }
    // Closes now; returns what close() returned, -1 if nothing was open.
    int close() { return COM_SafeClose(&fd_); }
    // Hands the descriptor out; the owner no longer closes it.
    int release()
    {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }

private:
    int fd_;
};

// Sockets are descriptors: UniqueFd owns them too.

struct DirCloser {
    void operator()(DIR *dir) const { closedir(dir); }
};
using UniqueDir = std::unique_ptr<DIR, DirCloser>;

struct FileCloser {
    void operator()(FILE *f) const { fclose(f); }
};
// A stdio stream; release() hands it out, reset() closes it early.
using UniqueFile = std::unique_ptr<FILE, FileCloser>;

struct PipeCloser {
    void operator()(FILE *f) const { pclose(f); }
};
// A stream of popen(), closed by pclose().
using UniquePipe = std::unique_ptr<FILE, PipeCloser>;

// The one place the library opens streams, directories and pipes.
inline UniqueFile openFile(const char *path, const char *mode)
{
    return UniqueFile(fopen(path, mode));
}
inline UniqueDir openDir(const char *path)
{
    return UniqueDir(opendir(path));
}
inline UniquePipe openPipe(const char *command, const char *mode)
{
    return UniquePipe(popen(command, mode));
}

// read() restarted after a signal.
ssize_t readSome(int fd, void *buf, size_t size);
// One write() of size bytes, restarted only after a signal that came before
// any byte was written. A short count is returned as it is, with errno 0:
// write() reports no error for it. The writers of whole files make one
// write a block, so that a file-size limit gives a short count and no second
// write raises SIGXFSZ.
ssize_t writeOnce(int fd, const void *buf, size_t size);
// Writes all size bytes, going on after short writes. Returns size, or the
// count written before a failure (errno set), or -1 when nothing was written.
ssize_t writeAll(int fd, const void *buf, size_t size);
// True when path names the file open on fd (same device and inode).
bool isSameFile(int fd, const char *path);

} // namespace fdio

#endif
