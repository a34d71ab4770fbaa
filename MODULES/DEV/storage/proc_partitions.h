/* Private to the library: the line test behind Dev_IsInProcPartitions. */
#ifndef DVR_PROC_PARTITIONS_H
#define DVR_PROC_PARTITIONS_H

namespace dev {

// True when the line of /proc/partitions names the device: name found (case
// ignored) and followed by a control character or the end of the line.
bool partitionLineNames(const char *line, const char *name);

} // namespace dev

#endif
