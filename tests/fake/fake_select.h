// Waits on sockets under the fake clock: a test lets a select() time out at
// once instead of waiting for a peer that won't answer.
#ifndef DVR_FAKE_SELECT_H
#define DVR_FAKE_SELECT_H

#include "fake_platform.h"

namespace fake::clock {
// The next count select() calls that find nothing ready return 0 at once, as
// if their whole time value had passed; it passes on the fake clock when that
// is on. Replaces any count still pending; 0 ends it.
void timeOutWaits(int count);
int pendingTimeOuts();
} // namespace fake::clock

#endif
