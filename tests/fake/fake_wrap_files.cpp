// Path calls of the file utilities and of item replacement, sent through root
// redirection like the opens and stats of fake_wrap.cpp. The target of a
// symbolic link is the link's text and stays as given. mkstemp() makes its
// file where the redirection points and fills the chosen name into the
// caller's own template, so the later fopen(), unlink() and truncate() of that
// name are redirected alike.
#include <cstring>
#include <string>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include "fake_platform.h"

namespace {
constexpr size_t kTemplateTail = 6; // the XXXXXX that mkstemp() replaces
} // namespace

extern "C" {
int __real_unlink(const char *path);
int __real_rmdir(const char *path);
int __real_symlink(const char *target, const char *linkPath);
int __real_mknod(const char *path, mode_t mode, dev_t dev);
int __real_mkstemp64(char *tmpl);
int __real_truncate64(const char *path, off64_t length);
char *__real_mkdtemp(char *tmpl);

int __wrap_unlink(const char *path)
{
    return __real_unlink(fake::resolve(path).c_str());
}

int __wrap_rmdir(const char *path)
{
    return __real_rmdir(fake::resolve(path).c_str());
}

int __wrap_symlink(const char *target, const char *linkPath)
{
    return __real_symlink(target, fake::resolve(linkPath).c_str());
}

int __wrap_mknod(const char *path, mode_t mode, dev_t dev)
{
    return __real_mknod(fake::resolve(path).c_str(), mode, dev);
}

int __wrap_truncate64(const char *path, off64_t length)
{
    return __real_truncate64(fake::resolve(path).c_str(), length);
}

int __wrap_mkstemp64(char *tmpl)
{
    std::string resolved = fake::resolve(tmpl);
    const int fd = __real_mkstemp64(resolved.data());
    const size_t n = strlen(tmpl);
    if (fd >= 0 && n >= kTemplateTail && resolved.size() >= kTemplateTail) {
        memcpy(tmpl + n - kTemplateTail, resolved.data() + resolved.size() - kTemplateTail,
               kTemplateTail);
    }
    return fd;
}

// Like mkstemp(): the directory is made where the redirection points.
char *__wrap_mkdtemp(char *tmpl)
{
    std::string resolved = fake::resolve(tmpl);
    const size_t n = strlen(tmpl);
    if (__real_mkdtemp(resolved.data()) == nullptr) {
        return nullptr;
    }
    if (n >= kTemplateTail && resolved.size() >= kTemplateTail) {
        memcpy(tmpl + n - kTemplateTail, resolved.data() + resolved.size() - kTemplateTail,
               kTemplateTail);
    }
    return tmpl;
}
} // extern "C"
