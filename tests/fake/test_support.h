// Small helpers shared by the unit tests.
#ifndef DVR_TEST_SUPPORT_H
#define DVR_TEST_SUPPORT_H

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "COMMON.h"
#include "fake_platform.h"

namespace fake {

// Log lines carry the source line number of the call site; tests compare
// them with the number written as N: "file.cpp,N: text".
std::string withoutLineNumbers(const std::string &log);

// The one way to capture a call's log: what fn printed, line numbers as N.
template <typename Fn> std::string logOf(Fn &&fn)
{
    return withoutLineNumbers(captureStdout(fn));
}

// A 32-bit word of a recorded driver record, in the target's byte order.
inline uint32_t wordAt(const std::vector<uint8_t> &bytes, size_t offset)
{
    uint32_t w = 0;
    if (offset + sizeof w <= bytes.size()) {
        memcpy(&w, bytes.data() + offset, sizeof w);
    }
    return w;
}

// A temporary directory, removed with its contents at the end of its scope.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;
    const std::string &path() const { return path_; }
    std::string file(const std::string &name) const { return path_ + "/" + name; }
    // Writes a file under the directory (parents made) and returns its path.
    std::string write(const std::string &name, const std::string &content) const;

private:
    std::string path_;
};

std::string readFile(const std::string &path);

} // namespace fake

#endif
