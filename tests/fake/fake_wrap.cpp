// The wrapped C library calls. The linker sends every reference to NAME in
// the product's objects to __wrap_NAME (GNU ld --wrap); __real_NAME is the C
// library's own. The names follow the compile flags: the 32-bit board with
// 64-bit off_t and time_t calls open64, __ioctl_time64, __stat64_time64 ...
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <dirent.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include "fake_state.h"

namespace {
using fake::state;

constexpr int64_t kNsPerSecond = 1'000'000'000;
constexpr int kNotFake = -2;

// Opens a fake device node: a real descriptor of /dev/null mapped to it.
template <typename RealOpen> int openDevice(const char *path, RealOpen realOpen)
{
    std::lock_guard lock(state().mutex);
    auto it = path != nullptr ? state().devices.find(path) : state().devices.end();
    if (it == state().devices.end()) {
        return kNotFake;
    }
    if (it->second->openErrno != 0) {
        errno = it->second->openErrno;
        return -1;
    }
    const int fd = realOpen("/dev/null", O_RDWR, 0);
    if (fd >= 0) {
        state().openFds[fd] = it->second;
    }
    return fd;
}

std::shared_ptr<fake::Device> deviceOf(int fd)
{
    std::lock_guard lock(state().mutex);
    auto it = state().openFds.find(fd);
    return it == state().openFds.end() ? nullptr : it->second;
}

void forget(int fd)
{
    std::lock_guard lock(state().mutex);
    state().openFds.erase(fd);
}

mode_t modeArg(int flags, va_list ap)
{
    return (flags & (O_CREAT | O_TMPFILE)) != 0 ? static_cast<mode_t>(va_arg(ap, int)) : 0;
}
} // namespace

#define CAT_(a, b) a##b
#define REAL(sym) CAT_(__real_, sym)
#define WRAP(sym) CAT_(__wrap_, sym)

// Path calls that come in several spellings: each spelling gets a wrapper of
// its own that redirects the path and calls that spelling's real function.
#define DEFINE_OPEN(sym)                                                                         \
    int REAL(sym)(const char *path, int flags, ...);                                             \
    int WRAP(sym)(const char *path, int flags, ...)                                              \
    {                                                                                            \
        va_list ap;                                                                              \
        va_start(ap, flags);                                                                     \
        const mode_t mode = modeArg(flags, ap);                                                  \
        va_end(ap);                                                                              \
        const int fd =                                                                           \
            openDevice(path, [](const char *p, int f, mode_t m) { return REAL(sym)(p, f, m); }); \
        return fd != kNotFake ? fd : REAL(sym)(fake::resolve(path).c_str(), flags, mode);        \
    }
#define DEFINE_OPENAT(sym)                                                                       \
    int REAL(sym)(int dirfd, const char *path, int flags, ...);                                  \
    int WRAP(sym)(int dirfd, const char *path, int flags, ...)                                   \
    {                                                                                            \
        va_list ap;                                                                              \
        va_start(ap, flags);                                                                     \
        const mode_t mode = modeArg(flags, ap);                                                  \
        va_end(ap);                                                                              \
        const int fd = openDevice(                                                               \
            path, [](const char *p, int f, mode_t m) { return REAL(sym)(AT_FDCWD, p, f, m); });  \
        return fd != kNotFake ? fd : REAL(sym)(dirfd, fake::resolve(path).c_str(), flags, mode); \
    }
#define DEFINE_FOPEN(sym)                                    \
    FILE *REAL(sym)(const char *path, const char *mode);     \
    FILE *WRAP(sym)(const char *path, const char *mode)      \
    {                                                        \
        return REAL(sym)(fake::resolve(path).c_str(), mode); \
    }
#define DEFINE_STAT(sym)                                   \
    int REAL(sym)(const char *path, struct stat *st);      \
    int WRAP(sym)(const char *path, struct stat *st)       \
    {                                                      \
        return REAL(sym)(fake::resolve(path).c_str(), st); \
    }

#if __SIZEOF_POINTER__ == 4
#define SYM_IOCTL __ioctl_time64
#define SYM_NANOSLEEP __nanosleep64
#define SYM_TIME __time64
#define SYM_GETTIMEOFDAY __gettimeofday64
#define SYM_CLOCK_GETTIME __clock_gettime64
#else
#define SYM_IOCTL ioctl
#define SYM_NANOSLEEP nanosleep
#define SYM_TIME time
#define SYM_GETTIMEOFDAY gettimeofday
#define SYM_CLOCK_GETTIME clock_gettime
#endif

extern "C" {
DEFINE_OPEN(open64)
DEFINE_OPENAT(openat64)
DEFINE_FOPEN(fopen64)
#if __SIZEOF_POINTER__ == 4
DEFINE_STAT(__stat64_time64)
DEFINE_STAT(__lstat64_time64)
#else
DEFINE_OPEN(open)
DEFINE_OPENAT(openat)
DEFINE_FOPEN(fopen)
DEFINE_STAT(stat)
DEFINE_STAT(lstat)
DEFINE_STAT(stat64)
DEFINE_STAT(lstat64)
#endif

DIR *__real_opendir(const char *path);
int __real_access(const char *path, int mode);
ssize_t __real_readlink(const char *path, char *buf, size_t size);
int __real_mkdir(const char *path, mode_t mode);
int __real_close(int fd);
int REAL(SYM_IOCTL)(int fd, unsigned long code, ...);
int REAL(SYM_NANOSLEEP)(const struct timespec *req, struct timespec *rem);
int __real_usleep(useconds_t us);
unsigned __real_sleep(unsigned seconds);
time_t REAL(SYM_TIME)(time_t *out);
int REAL(SYM_GETTIMEOFDAY)(struct timeval *tv, void *tz);
int REAL(SYM_CLOCK_GETTIME)(clockid_t id, struct timespec *ts);

DIR *__wrap_opendir(const char *path)
{
    return __real_opendir(fake::resolve(path).c_str());
}

int __wrap_access(const char *path, int mode)
{
    return __real_access(fake::resolve(path).c_str(), mode);
}

ssize_t __wrap_readlink(const char *path, char *buf, size_t size)
{
    return __real_readlink(fake::resolve(path).c_str(), buf, size);
}

int __wrap_mkdir(const char *path, mode_t mode)
{
    return __real_mkdir(fake::resolve(path).c_str(), mode);
}

int __wrap_close(int fd)
{
    forget(fd);
    return __real_close(fd);
}

int WRAP(SYM_IOCTL)(int fd, unsigned long code, ...)
{
    va_list ap;
    va_start(ap, code);
    void *arg = va_arg(ap, void *);
    va_end(ap);
    if (auto device = deviceOf(fd)) {
        return device->ioctl(code, arg);
    }
    return REAL(SYM_IOCTL)(fd, code, arg);
}

int WRAP(SYM_NANOSLEEP)(const struct timespec *req, struct timespec *rem)
{
    if (req != nullptr && fake::clock::sleepFor(req->tv_sec * kNsPerSecond + req->tv_nsec)) {
        return 0;
    }
    return REAL(SYM_NANOSLEEP)(req, rem);
}

int __wrap_usleep(useconds_t us)
{
    return fake::clock::sleepFor(static_cast<int64_t>(us) * 1000) ? 0 : __real_usleep(us);
}

unsigned __wrap_sleep(unsigned seconds)
{
    return fake::clock::sleepFor(static_cast<int64_t>(seconds) * kNsPerSecond)
               ? 0
               : __real_sleep(seconds);
}

time_t WRAP(SYM_TIME)(time_t *out)
{
    int64_t ns;
    if (!fake::clock::now(ns)) {
        return REAL(SYM_TIME)(out);
    }
    const auto now = static_cast<time_t>(ns / kNsPerSecond);
    if (out != nullptr) {
        *out = now;
    }
    return now;
}

int WRAP(SYM_GETTIMEOFDAY)(struct timeval *tv, void *tz)
{
    int64_t ns;
    if (!fake::clock::now(ns) || tv == nullptr) {
        return REAL(SYM_GETTIMEOFDAY)(tv, tz);
    }
    tv->tv_sec = static_cast<time_t>(ns / kNsPerSecond);
    tv->tv_usec = static_cast<suseconds_t>(ns % kNsPerSecond / 1000);
    return 0;
}

int WRAP(SYM_CLOCK_GETTIME)(clockid_t id, struct timespec *ts)
{
    int64_t ns;
    if (!fake::clock::now(ns) || ts == nullptr) {
        return REAL(SYM_CLOCK_GETTIME)(id, ts);
    }
    ts->tv_sec = static_cast<time_t>(ns / kNsPerSecond);
    ts->tv_nsec = static_cast<long>(ns % kNsPerSecond);
    return 0;
}

// Wakes the manual fake clock's sleepers so that they act on the request.
int __real_pthread_cancel(pthread_t thread);
int __wrap_pthread_cancel(pthread_t thread)
{
    const int rc = __real_pthread_cancel(thread);
    fake::clock::cancelRequested();
    return rc;
}
} // extern "C"
