/* Private to the library: every owner of a resource (descriptor, socket,
 * stream, directory, popen() stream, temporary path), whole-block I/O and the
 * log form of a failed system call. The only place of the library that calls
 * fopen(), opendir(), popen(), socket() and their closing calls. */
#ifndef DVR_FD_IO_H
#define DVR_FD_IO_H

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <memory>
#include <sys/socket.h>
#include <sys/types.h>

#include "COMMON.h"
#include "com_log.h"

// Logs a failed call's message, whose last conversion is the text of errno,
// and leaves errno as the call left it for the caller to look at.
#define COM_LOG_FAILED_CALL(func, fmt, ...) \
    COM_LOG_FAILED_CALL_AT(__FILE_NAME__, __LINE__, func, fmt, __VA_ARGS__)
// The same for an owner that logs on behalf of the file and line that made it.
#define COM_LOG_FAILED_CALL_AT(file, line, func, fmt, ...)                                         \
    do {                                                                                           \
        const int savedErrno_ = errno;                                                             \
        COM_Printf((file), (line), (func), fmt, __VA_ARGS__ __VA_OPT__(, ) strerror(savedErrno_)); \
        errno = savedErrno_;                                                                       \
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
inline UniqueFd openSocket(int domain, int type, int protocol)
{
    return UniqueFd(socket(domain, type, protocol));
}

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

// Closes now, for callers that look at the result: fclose()'s, or EOF when
// nothing was open.
inline int closeFile(UniqueFile &file)
{
    return file ? fclose(file.release()) : EOF;
}
// pclose()'s result (the command's wait status), or -1 when nothing was open.
inline int closePipe(UniquePipe &pipe)
{
    return pipe ? pclose(pipe.release()) : -1;
}

// Owns a temporary file by its path: unlinks it at the end of its scope and
// logs a failure as "unlink(<path>) failed : <error>" for logFunc, with the
// file and line that made the owner. The path text must outlive the owner.
class UniqueTempPath {
public:
    explicit UniqueTempPath(const char *path, const char *logFunc,
                            const char *file = __builtin_FILE(), int line = __builtin_LINE())
        : path_(path), func_(logFunc), file_(file), line_(line)
    {
    }
    ~UniqueTempPath();
    UniqueTempPath(const UniqueTempPath &) = delete;
    UniqueTempPath &operator=(const UniqueTempPath &) = delete;
    const char *get() const { return path_; }
    // Hands the file out; the owner no longer removes it.
    const char *release()
    {
        const char *path = path_;
        path_ = nullptr;
        return path;
    }

private:
    const char *path_;
    const char *func_;
    const char *file_;
    int line_;
};

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
