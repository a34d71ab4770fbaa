// Peers that stay silent: a test lets the next waits for a reply time out at once.
#ifndef DVR_FAKE_SELECT_H
#define DVR_FAKE_SELECT_H

namespace fake::clock {
// The next count select() calls that wait for reading return 0 at once, whatever
// is ready, as if their whole time value had passed, on the fake clock when it is
// on. 0 ends it.
void timeOutWaits(int count);
// While on, once a wait for reading has found something, a later one that
// finds nothing at once times out at once on the fake clock: for a peer that
// answers and then keeps the connection open. Other waits are real.
void timeOutIdleWaits(bool on);
} // namespace fake::clock

#endif
