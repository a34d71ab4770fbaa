// select() that times out at once when a test says so (fake_select.h);
// otherwise the real call, on real sockets.
#include <set>
#include <sys/select.h>
#include <sys/stat.h>

#include "fake_select.h"
#include "fake_state.h"

namespace {
int gPendingTimeOuts = 0; // guarded by the fake platform's mutex
bool gIdleTimeOuts = false;
std::set<ino_t> gAnswered; // sockets (by inode) that were ready once

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
    gIdleTimeOuts = on;
    gAnswered.clear();
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

// The one socket a reading wait is for, by inode; 0 if not an idle-mode wait.
static ino_t idleSocket(int n, fd_set *r)
{
    struct stat st;
    std::lock_guard lock(fake::state().mutex);
    return gIdleTimeOuts && n > 0 && FD_ISSET(n - 1, r) && fstat(n - 1, &st) == 0 ? st.st_ino : 0;
}

static bool idleTimeOut(int n, fd_set *r)
{
    const ino_t socket = idleSocket(n, r);
    if (socket == 0) {
        return false;
    }
    fd_set now = *r;
    timeval zero{0, 0};
    const bool ready = REAL(SYM_SELECT)(n, &now, nullptr, nullptr, &zero) > 0;
    std::lock_guard lock(fake::state().mutex);
    return !ready && gAnswered.count(socket) > 0;
}

static void noteAnswered(int n, fd_set *r)
{
    struct stat st;
    if (n > 0 && FD_ISSET(n - 1, r) && fstat(n - 1, &st) == 0) {
        std::lock_guard lock(fake::state().mutex);
        if (gIdleTimeOuts) {
            gAnswered.insert(st.st_ino);
        }
    }
}

int WRAP(SYM_SELECT)(int n, fd_set *r, fd_set *w, fd_set *e, timeval *tv)
{
    if (r == nullptr || tv == nullptr || !(takeTimeOut() || idleTimeOut(n, r))) {
        const int ready = REAL(SYM_SELECT)(n, r, w, e, tv);
        if (r != nullptr && ready > 0) {
            noteAnswered(n, r);
        }
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
