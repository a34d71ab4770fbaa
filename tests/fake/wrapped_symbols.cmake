# The C library calls the fake platform wraps, by the names the objects
# reference on each target (see fake_wrap.cpp).
set(DVR_WRAP_COMMON open64 openat64 fopen64 opendir access readlink mkdir close usleep sleep)
set(DVR_WRAP_HOST open openat fopen stat lstat stat64 lstat64 ioctl nanosleep time gettimeofday clock_gettime)
set(DVR_WRAP_BOARD __stat64_time64 __lstat64_time64 __ioctl_time64
    __nanosleep64 __time64 __gettimeofday64 __clock_gettime64)
list(APPEND DVR_WRAP_COMMON mkstemp64 mkdtemp unlink truncate64)
list(APPEND DVR_WRAP_COMMON rmdir symlink mknod)
list(APPEND DVR_WRAP_COMMON pthread_cancel)
list(APPEND DVR_WRAP_HOST select)
list(APPEND DVR_WRAP_BOARD __select64)
