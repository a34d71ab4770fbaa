#include "fd_io.h"

#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace fdio {

UniqueTempPath::~UniqueTempPath()
{
    if (path_ != nullptr && unlink(path_) != 0) {
        // The log names the source file that made the owner by its base name.
        const char *slash = strrchr(file_, '/');
        COM_LOG_FAILED_CALL_AT(slash != nullptr ? slash + 1 : file_, line_, func_,
                               "unlink(%s) failed : %s\n", path_);
    }
}

ssize_t readSome(int fd, void *buf, size_t size)
{
    ssize_t n;
    do {
        n = read(fd, buf, size);
    } while (n < 0 && errno == EINTR);
    return n;
}

ssize_t writeOnce(int fd, const void *buf, size_t size)
{
    ssize_t n;
    do {
        errno = 0;
        n = write(fd, buf, size);
    } while (n < 0 && errno == EINTR);
    return n;
}

ssize_t writeAll(int fd, const void *buf, size_t size)
{
    const auto *bytes = static_cast<const char *>(buf);
    size_t done = 0;
    while (done < size) {
        const ssize_t n = write(fd, bytes + done, size - done);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            if (n == 0) {
                errno = EIO; // no progress: the file takes no more
            }
            return done > 0 ? static_cast<ssize_t>(done) : -1;
        }
        done += static_cast<size_t>(n);
    }
    return static_cast<ssize_t>(done);
}

bool isSameFile(int fd, const char *path)
{
    const int saved = errno;
    struct stat open {};
    struct stat named {};
    const bool same = fstat(fd, &open) == 0 && stat(path, &named) == 0 &&
                      open.st_dev == named.st_dev && open.st_ino == named.st_ino;
    errno = saved;
    return same;
}

} // namespace fdio
