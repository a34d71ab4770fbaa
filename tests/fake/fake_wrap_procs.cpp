// Temporary files under redirected paths: mkstemp() makes its file where the
// redirection points and fills the chosen name into the caller's own template,
// so the later fopen(), unlink() and truncate() of that name are redirected
// alike. unlink and truncate64 are weak: another wrapper file may define them,
// and each definition resolves the path the same way.
#include <cstring>
#include <string>
#include <sys/types.h>

#include "fake_platform.h"

namespace {
constexpr size_t kTemplateTail = 6; // the XXXXXX that mkstemp() replaces
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
