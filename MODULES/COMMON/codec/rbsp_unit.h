// Private to the library: the RBSP reader for parsers that are not told the
// length of their data.
#ifndef DVR_RBSP_UNIT_H
#define DVR_RBSP_UNIT_H

#include "COMMON.h"

namespace dvr {
// Sets up reader on a NAL unit's payload whose length is unknown: it reads up
// to the start code of the next unit (00 00 00, 00 00 01 or 00 00 02, which
// emulation prevention keeps out of a unit) and zeros from there on. Its end
// stays null until it meets that start code.
void rbspInitUnit(COM_RBSP_READER *reader, const uint8_t *data);
} // namespace dvr

#endif
