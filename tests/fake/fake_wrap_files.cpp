// Path calls of the file utilities, sent through root redirection like the
// opens and stats of fake_wrap.cpp.
#include <sys/stat.h>
#include <unistd.h>

#include "fake_platform.h"

extern "C" {
int __real_unlink(const char *path);
int __real_rmdir(const char *path);
int __real_symlink(const char *target, const char *linkPath);
int __real_mknod(const char *path, mode_t mode, dev_t dev);

int __wrap_unlink(const char *path)
{
    return __real_unlink(fake::resolve(path).c_str());
}

int __wrap_rmdir(const char *path)
{
    return __real_rmdir(fake::resolve(path).c_str());
}

// The target is the link's text and stays as given; only where the link is
// made is redirected.
int __wrap_symlink(const char *target, const char *linkPath)
{
    return __real_symlink(target, fake::resolve(linkPath).c_str());
}

int __wrap_mknod(const char *path, mode_t mode, dev_t dev)
{
    return __real_mknod(fake::resolve(path).c_str(), mode, dev);
}
} // extern "C"
