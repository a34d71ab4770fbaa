// The fake platform: stands in, at link time, for what a development machine
// lacks. Product code calls the C library as on the board; the wrapped calls
// land here. Linked only into test programs and the simulator.
#ifndef DVR_FAKE_PLATFORM_H
#define DVR_FAKE_PLATFORM_H

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace fake {

// One control request a device saw, with the bytes of its record on entry.
struct Request {
    unsigned long code;
    std::vector<uint8_t> bytes;
};

// A device node. Opening its path yields a real descriptor (of /dev/null)
// that the fake maps to the device, so ioctl() reaches it and close() frees it.
class Device {
public:
    virtual ~Device() = default;
    // Returns 0, or -1 with errno set, as the kernel would.
    virtual int ioctl(unsigned long code, void *arg) = 0;
    // errno that open() of the node fails with; 0 to open normally.
    int openErrno = 0;

    std::vector<Request> requests() const;
    void clearRequests();

protected:
    void record(unsigned long code, const void *arg, size_t size);

private:
    mutable std::mutex mutex_;
    std::vector<Request> requests_;
};

void addDevice(const std::string &path, std::shared_ptr<Device> device);
void removeDevice(const std::string &path);
// Descriptors of fake devices still open.
int openDeviceCount();

// Paths under prefix (an absolute path, e.g. "/proc/ide") are looked up under
// dir instead. The longest matching prefix wins.
void redirect(const std::string &prefix, const std::string &dir);
std::string resolve(const char *path);

// The fake clock: while on, sleeps return at once and advance it, and the
// time calls read it. Off, everything goes to the real system. In manual
// mode a sleep blocks instead until the test advances the clock past its end,
// so a test can step a sleeping thread through its passes. A fake sleep
// stays a cancellation point.
namespace clock {
void enable(int64_t startSeconds = 1'000'000'000, bool manual = false);
void disable();
bool enabled();
int64_t nowNs();
// Total time the process has slept on the fake clock.
int64_t sleptNs();
// Manual mode: moves the clock on and wakes the sleeps that have ended.
void advance(int64_t ns);
// Manual mode: blocks until n sleeps have begun since the clock was enabled,
// so that a sleeping thread is known to have finished what came before.
void waitForSleeps(int n);

// For the wrapped calls: a sleep or a reading of the clock; false when the
// clock is off and the real call must serve.
bool sleepFor(int64_t ns);
bool now(int64_t &ns);
// For the wrapped pthread_cancel: wakes manual sleeps to act on it.
void cancelRequested();
} // namespace clock

// Forgets devices, redirections and the clock: the state of a new process.
void reset();

// Descriptors the process has open now, from /proc/self/fd.
int openDescriptorCount();

// Sends standard output to a temporary file until text() is called.
class StdoutCapture {
public:
    StdoutCapture();
    ~StdoutCapture();
    StdoutCapture(const StdoutCapture &) = delete;
    StdoutCapture &operator=(const StdoutCapture &) = delete;
    // Restores standard output and returns what was printed meanwhile.
    std::string text();

private:
    int saved_ = -1;
    int file_ = -1;
};

template <typename Fn> std::string captureStdout(Fn &&fn)
{
    StdoutCapture capture;
    fn();
    return capture.text();
}

} // namespace fake

#endif
