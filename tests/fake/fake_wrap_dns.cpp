// select() that times out at once when a test says so (fake_select.h);
// otherwise the real call, on real sockets.
#include <sys/select.h>

#include "fake_select.h"
#include "fake_state.h"

namespace {
int gPendingTimeOuts = 0; // guarded by the fake platform's mutex
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
    timeval none = {0, 0};
    const int ready = REAL(SYM_SELECT)(n, r, w, e, &none); // what is ready is served as usual
    if (ready == 0 && tv != nullptr) {
        {
            std::lock_guard lock(fake::state().mutex);
            --gPendingTimeOuts;
        }
        // The whole wait passes on the fake clock, as a sleep would.
        fake::clock::sleepFor(tv->tv_sec * 1'000'000'000LL + tv->tv_usec * 1000LL);
        *tv = {0, 0};
    }
    return ready;
}
} // extern "C"
