// Temporary files under redirected directories: mkstemp() makes its file
// where the redirection points and hands the caller back its own template
// with the chosen name filled in, so that the later fopen(), unlink() and
// truncate() of that name follow the same redirection.
//
// unlink and truncate64 are weak: another wrapper file may wrap them for its
// own paths, and every definition resolves the path the same way.
#include <cstring>
#include <string>
#include <sys/types.h>

#include "fake_platform.h"

namespace {
// mkstemp() replaces the last six characters of its template.
constexpr size_t kTemplateTail = 6;
} // namespace

extern "C" {
int __real_mkstemp64(char *tmpl);
int __real_unlink(const char *path);
int __real_truncate64(const char *path, off64_t length);

int __wrap_mkstemp64(char *tmpl)
{
    std::string resolved = fake::resolve(tmpl);
    const int fd = __real_mkstemp64(resolved.data());
    const size_t n = strlen(tmpl);
    if (fd >= 0 && n >= kTemplateTail && resolved.size() >= kTemplateTail) {
        memcpy(tmpl + n - kTemplateTail, resolved.data() + resolved.size() - kTemplateTail, kTemplateTail);
    }
    return fd;
}

__attribute__((weak)) int __wrap_unlink(const char *path)
{
    return __real_unlink(fake::resolve(path).c_str());
}

__attribute__((weak)) int __wrap_truncate64(const char *path, off64_t length)
{
    return __real_truncate64(fake::resolve(path).c_str(), length);
}
} // extern "C"
