// select() that times out at once when a test says so (fake_select.h);
// otherwise the real call, on real sockets.
#include <sys/select.h>

#include "fake_select.h"
#include "fake_state.h"

namespace {
int gPendingTimeOuts = 0; // guarded by the fake platform's mutex

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

int WRAP(SYM_SELECT)(int n, fd_set *r, fd_set *w, fd_set *e, timeval *tv)
{
    if (r == nullptr || tv == nullptr || !takeTimeOut()) {
        return REAL(SYM_SELECT)(n, r, w, e, tv);
    }
    // The whole wait passes on the fake clock, as a sleep would, and nothing is
    // ready, even a reply that waits: a later try reads it.
    fake::clock::sleepFor(tv->tv_sec * 1'000'000'000LL + tv->tv_usec * 1000LL);
    *tv = {0, 0};
    FD_ZERO(r);
    return 0;
}
} // extern "C"
