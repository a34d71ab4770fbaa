#include "COMMON.h"
#include "com_log.h"

#include <cstdint>
#include <sys/time.h>

namespace {
constexpr long kUsPerSecond = 1000000;
// Each later pass of an exact sleep finishes off in steps this long.
constexpr long kRetrySleepNs = 100000;

int64_t microseconds(const struct timeval &tv)
{
    return int64_t{tv.tv_sec} * kUsPerSecond + tv.tv_usec;
}
} // namespace

int64_t COM_GetTimeMs(void)
{
    struct timeval now {};
    gettimeofday(&now, nullptr);
    // Computed in 32 bits: the clock wraps about every 49 days.
    const uint32_t ms =
        static_cast<uint32_t>(now.tv_sec) * 1000u + static_cast<uint32_t>(now.tv_usec / 1000);
    return static_cast<int32_t>(ms);
}

int COM_TimevalSubtract(struct timeval *out, struct timeval *x, struct timeval *y)
{
    // Carry between y's fields so that x's microseconds minus y's fall in
    // 0 .. 999999.
    if (x->tv_usec < y->tv_usec) {
        const long carry = (y->tv_usec - x->tv_usec) / kUsPerSecond + 1;
        y->tv_usec -= kUsPerSecond * carry;
        y->tv_sec += carry;
    }
    if (x->tv_usec - y->tv_usec > kUsPerSecond) {
        const long carry = (x->tv_usec - y->tv_usec) / kUsPerSecond;
        y->tv_usec += kUsPerSecond * carry;
        y->tv_sec -= carry;
    }
    out->tv_sec = x->tv_sec - y->tv_sec;
    out->tv_usec = x->tv_usec - y->tv_usec;
    return x->tv_sec < y->tv_sec ? 1 : 0;
}

int COM_SleepExact(const struct timespec *req, int maxRetries)
{
    struct timeval start {};
    gettimeofday(&start, nullptr);
    const int64_t askedUs = int64_t{req->tv_sec} * kUsPerSecond + req->tv_nsec / 1000;
    const struct timespec step = {0, kRetrySleepNs};
    int retries = 0;
    for (const struct timespec *span = req;; span = &step) {
        nanosleep(span, nullptr);
        struct timeval now {};
        gettimeofday(&now, nullptr);
        if (microseconds(now) - microseconds(start) >= askedUs) {
            break;
        }
        if (++retries >= maxRetries) {
            break;
        }
    }
    if (retries != 0) {
        COM_LOG(nullptr, "Woops! retry = %d\n", retries);
    }
    return retries;
}
