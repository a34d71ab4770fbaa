/* Private to the library: small text helpers of the device module. */
#ifndef DVR_DEV_TEXT_H
#define DVR_DEV_TEXT_H

#include <cstddef>

namespace dev {

// Compacts the first positions characters of text in place: letters and
// digits stay, a run of blanks shrinks to one, everything else goes; a NUL
// ends the walk, the freed positions are zeroed and one trailing blank is
// cut off.
void compactModelText(char *text, size_t positions);

// The text a possibly null name prints as in log lines.
inline const char *printable(const char *text)
{
    return text != nullptr ? text : "(null)";
}

} // namespace dev

#endif
