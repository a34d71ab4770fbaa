#include "fake_platform.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <map>
#include <unistd.h>

#include "fake_state.h"

namespace fake {

std::vector<Request> Device::requests() const
{
    std::lock_guard lock(mutex_);
    return requests_;
}

void Device::clearRequests()
{
    std::lock_guard lock(mutex_);
    requests_.clear();
}

void Device::record(unsigned long code, const void *arg, size_t size)
{
    const auto *p = static_cast<const uint8_t *>(arg);
    std::lock_guard lock(mutex_);
    requests_.push_back(
        {code, p != nullptr ? std::vector<uint8_t>(p, p + size) : std::vector<uint8_t>{}});
}

State &state()
{
    static State s;
    return s;
}

void addDevice(const std::string &path, std::shared_ptr<Device> device)
{
    std::lock_guard lock(state().mutex);
    state().devices[path] = std::move(device);
}

void removeDevice(const std::string &path)
{
    std::lock_guard lock(state().mutex);
    state().devices.erase(path);
}

int openDeviceCount()
{
    std::lock_guard lock(state().mutex);
    return static_cast<int>(state().openFds.size());
}

void redirect(const std::string &prefix, const std::string &dir)
{
    std::lock_guard lock(state().mutex);
    state().roots[prefix] = dir;
}

std::string resolve(const char *path)
{
    if (path == nullptr || path[0] != '/') {
        return path != nullptr ? path : "";
    }
    const std::string_view p(path);
    std::lock_guard lock(state().mutex);
    const std::pair<const std::string, std::string> *best = nullptr;
    for (const auto &entry : state().roots) {
        const std::string &prefix = entry.first;
        if (p.substr(0, prefix.size()) == prefix &&
            (p.size() == prefix.size() || p[prefix.size()] == '/' || prefix.back() == '/') &&
            (best == nullptr || prefix.size() > best->first.size())) {
            best = &entry;
        }
    }
    if (best == nullptr) {
        return path;
    }
    return best->second + std::string(p.substr(best->first.size()));
}

void reset()
{
    std::lock_guard lock(state().mutex);
    state().devices.clear();
    state().roots.clear();
    clock::disable();
}

int openDescriptorCount()
{
    int count = 0;
    if (DIR *dir = opendir("/proc/self/fd")) {
        while (const dirent *e = readdir(dir)) {
            count += e->d_name[0] != '.' ? 1 : 0;
        }
        closedir(dir);
        --count; // the directory's own descriptor
    }
    return count;
}

StdoutCapture::StdoutCapture()
{
    fflush(stdout);
    char name[] = "/tmp/dvr-stdout-XXXXXX";
    file_ = mkstemp(name);
    unlink(name);
    saved_ = dup(STDOUT_FILENO);
    dup2(file_, STDOUT_FILENO);
}

std::string StdoutCapture::text()
{
    std::string out;
    if (saved_ < 0) {
        return out;
    }
    fflush(stdout);
    dup2(saved_, STDOUT_FILENO);
    close(saved_);
    saved_ = -1;
    lseek(file_, 0, SEEK_SET);
    char buf[4096];
    for (ssize_t n; (n = read(file_, buf, sizeof buf)) > 0;) {
        out.append(buf, static_cast<size_t>(n));
    }
    close(file_);
    file_ = -1;
    return out;
}

StdoutCapture::~StdoutCapture()
{
    text();
}

} // namespace fake
