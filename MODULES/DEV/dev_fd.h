/* Private to the library: a descriptor closed at the end of its scope. */
#ifndef DVR_DEV_FD_H
#define DVR_DEV_FD_H

#include "COMMON.h"

namespace dev {

class ScopedFd {
public:
    explicit ScopedFd(int fd) : fd_(fd) {}
    ~ScopedFd() { COM_SafeClose(&fd_); }
    ScopedFd(const ScopedFd &) = delete;
    ScopedFd &operator=(const ScopedFd &) = delete;
    int get() const { return fd_; }
    bool ok() const { return fd_ >= 0; }
    void close() { COM_SafeClose(&fd_); }

private:
    int fd_;
};

} // namespace dev

#endif
