/* Private to the library: how an extracted value reaches the caller's buffer. */
#ifndef DVR_TEXT_VALUE_H
#define DVR_TEXT_VALUE_H

#include <cstddef>

namespace textvalue {

// Copies length characters of value, terminated, to out (size bytes in all).
// A value of size characters or more is cut to size - 1 after the report
// "Warning! overflow (len, size)" under func, showing reportedLength.
void copyValue(const char *func, const char *value, size_t length, int reportedLength, char *out,
               int size);

} // namespace textvalue

#endif
