/* Private to the library: the readers of the hexadecimal text of /proc/ide
 * (identify, smart_values) over the digits COM_ReadHexDataInStrFormat keeps. */
#ifndef DVR_IDE_TEXT_H
#define DVR_IDE_TEXT_H

#include <cstdint>

namespace dev {

// The identify data is usable from this many bytes on: the end of the model.
constexpr int kIdentifyMinBytes = 94;

// Copies serial number, firmware revision and model (each may be null) out of
// the identify digits, each ending with a NUL; false when the digits hold
// fewer than kIdentifyMinBytes bytes.
bool identifyTexts(const char *digits, int count, char *sn, char *fwRev, char *model);

// Looks attribute up by the number of each 12-byte table slot of the SMART
// digits and gives its first raw byte; false when no slot has it.
bool smartAttribute(const char *digits, int count, uint8_t attribute, int8_t &value);

} // namespace dev

#endif
