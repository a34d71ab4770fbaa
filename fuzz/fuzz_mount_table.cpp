// A line of /proc/mounts as the mount table queries read it: a piece of at
// most 255 characters, with or without the rest of its line behind it. The
// columns must stay inside their buffers, escapes or not.
#include <cstdint>
#include <cstring>

#include "mount_table.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0) {
        return 0;
    }
    char line[dev::kMountLineSize] = {};
    const size_t n = size - 1 < sizeof line - 1 ? size - 1 : sizeof line - 1;
    memcpy(line, data + 1, n);
    dev::MountColumns columns;
    dev::splitMountLine(line, (data[0] & 1) != 0, columns);
    for (int i = 0; i < columns.count; ++i) {
        if (strlen(columns.text[i]) >= dev::kMountLineSize) {
            __builtin_trap();
        }
    }
    return 0;
}
