// Peers that stay silent: a test lets the next select() waits time out at once.
#ifndef DVR_FAKE_SELECT_H
#define DVR_FAKE_SELECT_H

namespace fake::clock {
// The next count select() calls that find nothing ready return 0 at once, as if
// their whole time value had passed, on the fake clock when it is on. 0 ends it.
void timeOutWaits(int count);
int pendingTimeOuts();
} // namespace fake::clock

#endif
