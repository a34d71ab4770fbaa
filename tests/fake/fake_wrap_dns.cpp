// select() that times out at once when a test says so (fake_select.h);
// otherwise the real call, on real sockets.
#include <sys/select.h>

#include "fake_select.h"
#include "fake_state.h"

namespace {
int gPendingTimeOuts = 0; // guarded by the fake platform's mutex
int gIdleMode = 0;        // 0 off, 1 on, 2 on and a wait has found something

bool takeTimeOut()
{
    std::lock_guard lock(fake::state().mutex);
    if (gPendingTimeOuts == 0) {
        return false;
    }
    --gPendingTimeOuts;
    return true;
}
} // namespace

void fake::clock::timeOutIdleWaits(bool on)
{
    std::lock_guard lock(state().mutex);
    gIdleMode = on ? 1 : 0;
}

void fake::clock::timeOutWaits(int count)
{
    std::lock_guard lock(state().mutex);
    gPendingTimeOuts = count;
}

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

// Idle mode: once a wait has found something, a wait that finds nothing at
// once times out.
static bool idleTimeOut(int n, fd_set *r)
{
    {
        std::lock_guard lock(fake::state().mutex);
        if (gIdleMode != 2) {
            return false;
        }
    }
    fd_set now = *r;
    timeval zero{0, 0};
    return REAL(SYM_SELECT)(n, &now, nullptr, nullptr, &zero) == 0;
}

int WRAP(SYM_SELECT)(int n, fd_set *r, fd_set *w, fd_set *e, timeval *tv)
{
    if (r == nullptr || tv == nullptr || !(takeTimeOut() || idleTimeOut(n, r))) {
        const int ready = REAL(SYM_SELECT)(n, r, w, e, tv);
        std::lock_guard lock(fake::state().mutex);
        gIdleMode = gIdleMode == 1 && r != nullptr && ready > 0 ? 2 : gIdleMode;
        return ready;
    }
    // The whole wait passes on the fake clock, as a sleep would, and nothing is
    // ready, even a reply that waits: a later try reads it.
    fake::clock::sleepFor(tv->tv_sec * 1'000'000'000LL + tv->tv_usec * 1000LL);
    *tv = {0, 0};
    FD_ZERO(r);
    return 0;
}
} // extern "C"
