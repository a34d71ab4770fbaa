// The fake clock behind the wrapped sleep and time calls.
#include <pthread.h>

#include "fake_platform.h"

namespace fake::clock {

namespace {
struct ClockState {
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t changed = PTHREAD_COND_INITIALIZER;
    bool on = false;
    bool manual = false;
    int64_t ns = 0;
    int64_t slept = 0;
    int sleeps = 0;  // begun since enable()
    int cancels = 0; // thread cancellations requested
};

ClockState &cs()
{
    static ClockState s;
    return s;
}

class Locked {
public:
    Locked() { pthread_mutex_lock(&cs().lock); }
    ~Locked() { pthread_mutex_unlock(&cs().lock); }
    Locked(const Locked &) = delete;
    Locked &operator=(const Locked &) = delete;
};

} // namespace

void enable(int64_t startSeconds, bool manual)
{
    Locked l;
    cs().on = true;
    cs().manual = manual;
    cs().ns = startSeconds * 1'000'000'000;
    cs().slept = 0;
    cs().sleeps = 0;
    pthread_cond_broadcast(&cs().changed);
}

void disable()
{
    Locked l;
    cs().on = false;
    cs().manual = false;
    cs().ns = 0;
    cs().slept = 0;
    pthread_cond_broadcast(&cs().changed); // manual sleepers end
}

bool enabled()
{
    Locked l;
    return cs().on;
}

int64_t nowNs()
{
    Locked l;
    return cs().ns;
}

int64_t sleptNs()
{
    Locked l;
    return cs().slept;
}

void advance(int64_t ns)
{
    Locked l;
    cs().ns += ns;
    pthread_cond_broadcast(&cs().changed);
}

void waitForSleeps(int n)
{
    Locked l;
    while (cs().on && cs().sleeps < n) {
        pthread_cond_wait(&cs().changed, &cs().lock);
    }
}

bool now(int64_t &ns)
{
    Locked l;
    ns = cs().ns;
    return cs().on;
}

// A manual sleep waits with cancellation held off and acts on a cancellation
// between waits, where the thread runs in plain code: cancelling a thread
// inside a blocking call is what qemu-user can't unwind on the board target.
// The wrapped pthread_cancel wakes the sleepers for that.
bool sleepFor(int64_t ns)
{
    int cancelState = PTHREAD_CANCEL_DISABLE;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancelState);
    pthread_mutex_lock(&cs().lock);
    if (!cs().on) {
        pthread_mutex_unlock(&cs().lock);
        pthread_setcancelstate(cancelState, nullptr);
        return false;
    }
    cs().slept += ns;
    ++cs().sleeps;
    const int64_t wake = cs().ns + ns;
    if (!cs().manual) {
        cs().ns = wake;
    }
    pthread_cond_broadcast(&cs().changed);
    int seen = cs().cancels;
    for (;;) {
        while (cs().on && cs().manual && cs().ns < wake && seen == cs().cancels) {
            pthread_cond_wait(&cs().changed, &cs().lock);
        }
        if (!(cs().on && cs().manual && cs().ns < wake)) {
            break;
        }
        seen = cs().cancels;
        pthread_mutex_unlock(&cs().lock);
        pthread_setcancelstate(cancelState, nullptr);
        pthread_testcancel();
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
        pthread_mutex_lock(&cs().lock);
    }
    pthread_mutex_unlock(&cs().lock);
    pthread_setcancelstate(cancelState, nullptr);
    pthread_testcancel(); // a sleep stays a cancellation point
    return true;
}

void cancelRequested()
{
    Locked l;
    ++cs().cancels;
    pthread_cond_broadcast(&cs().changed);
}

} // namespace fake::clock
