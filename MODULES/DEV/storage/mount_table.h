/* Private to the library: the line scanner behind the mount table queries. */
#ifndef DVR_MOUNT_TABLE_H
#define DVR_MOUNT_TABLE_H

#include <cstddef>

#include "DEV.h"

namespace dev {

// /proc/mounts is read in pieces of this many characters and a terminator.
constexpr size_t kMountLineSize = 256;

// The columns of one line of /proc/mounts, with the kernel's octal escapes
// (\040 for a blank) decoded. A column that the line's first
// kMountLineSize - 1 characters cut short doesn't count.
struct MountColumns {
    char text[4][kMountLineSize];
    int count;
};

// Splits a line (a piece read by fgets) at blanks, tabs and line feeds into up
// to four columns. truncated: the line went on beyond the piece.
void splitMountLine(const char *line, bool truncated, MountColumns &columns);

} // namespace dev

#endif
