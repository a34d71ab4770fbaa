// Peers that stay silent: a test lets the next waits for a reply time out at once.
#ifndef DVR_FAKE_SELECT_H
#define DVR_FAKE_SELECT_H

namespace fake::clock {
// The next count select() calls that wait for reading return 0 at once, whatever
// is ready, as if their whole time value had passed, on the fake clock when it is
// on. 0 ends it.
void timeOutWaits(int count);
} // namespace fake::clock

#endif
