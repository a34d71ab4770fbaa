// The main board driver "/dev/zl340_main" and the I2C devices behind it.
#ifndef DVR_FAKE_BOARD_H
#define DVR_FAKE_BOARD_H

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "fake_platform.h"

namespace fake {

class Board : public Device {
public:
    enum Kind { kRead, kWrite, kWritePage, kKinds };

    // A device that answers on the bus: regWidth bytes of register address,
    // bytesPerReg data bytes in each register, registers 0 to regCount-1.
    struct Chip {
        uint32_t regWidth;
        uint32_t bytesPerReg;
        std::vector<uint8_t> memory;
    };

    // The recorder's board: EEPROM 0xA0 (64 KiB, 2-byte addresses), 8-bit
    // register devices 0x6C and 0xD0, 16-bit register device 0xDC.
    Board();

    void addChip(uint8_t id, uint32_t regWidth, uint32_t bytesPerReg, uint32_t regCount);
    std::vector<uint8_t> &memory(uint8_t id) { return chips_.at(id).memory; }

    // Queues a fault of a kind: after `after` more requests of that kind have
    // gone through, the next count fail with err (EIO, EFAULT, ...). Faults
    // queued for one kind follow each other.
    void failNext(Kind kind, int count, int err, int after = 0);

    int ioctl(unsigned long code, void *arg) override;

    // Keeps the chips' contents between runs of the simulator.
    bool load(const std::string &path);
    bool save(const std::string &path) const;

private:
    struct Fault {
        int count = 0;
        int err = 0;
        int after = 0;
    };
    bool injected(Kind kind);
    int transfer(void *arg, bool write);
    int writePage(void *arg);

    std::map<uint8_t, Chip> chips_;
    std::deque<Fault> faults_[kKinds];
};

} // namespace fake

#endif
