// select() for peers that stay silent: see fake_select.h. Everything else goes
// to the real call, on real sockets.
#include <sys/select.h>

#include "fake_select.h"
#include "fake_state.h"

namespace {
int gPendingTimeOuts = 0; // guarded by the fake platform's mutex

// Takes one pending time-out and lets the whole time value pass.
bool timeOut(timeval *tv)
{
    std::lock_guard lock(fake::state().mutex);
    if (gPendingTimeOuts == 0) {
        return false;
    }
    --gPendingTimeOuts;
    if (tv != nullptr) {
        const int64_t ns = tv->tv_sec * 1'000'000'000LL + tv->tv_usec * 1000LL;
        if (fake::state().clockOn) {
            fake::state().clockNs += ns;
            fake::state().sleptNs += ns;
        }
        *tv = {0, 0};
    }
    return true;
}
} // namespace

namespace fake::clock {
void timeOutWaits(int count)
{
    std::lock_guard lock(state().mutex);
    gPendingTimeOuts = count;
}

int pendingTimeOuts()
{
    std::lock_guard lock(state().mutex);
    return gPendingTimeOuts;
}
} // namespace fake::clock

#if __SIZEOF_POINTER__ == 4
#define SYM_SELECT __select64
#else
#define SYM_SELECT select
#endif
#define CAT_(a, b) a##b
#define REAL(sym) CAT_(__real_, sym)
#define WRAP(sym) CAT_(__wrap_, sym)

extern "C" {
int REAL(SYM_SELECT)(int n, fd_set *r, fd_set *w, fd_set *e, timeval *tv);

int WRAP(SYM_SELECT)(int n, fd_set *r, fd_set *w, fd_set *e, timeval *tv)
{
    if (fake::clock::pendingTimeOuts() == 0) {
        return REAL(SYM_SELECT)(n, r, w, e, tv);
    }
    // Look without waiting, on copies: what is ready is served as usual.
    fd_set sets[3];
    fd_set *const given[3] = {r, w, e};
    for (int i = 0; i < 3; ++i) {
        if (given[i] != nullptr) {
            sets[i] = *given[i];
        }
    }
    timeval now = {0, 0};
    const int ready = REAL(SYM_SELECT)(n, r, w, e, &now);
    if (ready != 0 || timeOut(tv)) {
        return ready;
    }
    for (int i = 0; i < 3; ++i) {
        if (given[i] != nullptr) {
            *given[i] = sets[i];
        }
    }
    return REAL(SYM_SELECT)(n, r, w, e, tv);
}
} // extern "C"
