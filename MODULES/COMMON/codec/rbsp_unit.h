// Private to the library: the RBSP reader for parsers that are not told the
// length of their data.
#ifndef DVR_RBSP_UNIT_H
#define DVR_RBSP_UNIT_H

#include "COMMON.h"

namespace dvr {
// Reads the payload of a NAL unit whose length is unknown, with emulation
// prevention bytes dropped as COM_RbspRead drops them. It takes a byte only
// when a read needs one of its bits, so a unit whose fields end at the end of
// the caller's buffer is never read past it. It stops at the start code of
// the next unit (00 00 00, 00 00 01 or 00 00 02, which emulation prevention
// keeps out of a unit) and reads zeros from there on.
class UnitReader {
public:
    explicit UnitReader(const uint8_t *data) : cur_(data) {} // data not null
    void skip(uint32_t n);
    uint32_t read(uint32_t n); // n up to 32
    uint32_t readUE();
    int32_t readSE();

private:
    void need(uint32_t n);
    uint32_t nextByte();
    uint32_t leadingZeros();

    const uint8_t *cur_;
    bool ended_ = false;
    uint32_t payload_ = 0xFFFFFFFF; // bytes taken so far, the last in the low end
    uint64_t bits_ = 0;             // the low count_ bits are taken and not yet read
    uint32_t count_ = 0;
};
} // namespace dvr

#endif
