#include "fake_board.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "DVR_I2C.h"

namespace fake {

namespace {
constexpr char kStateMagic[8] = {'Z', 'L', '3', '4', '0', 'S', 'I', 'M'};

// The channel each ID must arrive on: the bus layer's own table.
int channelOf(uint8_t id)
{
    return id == I2C_EEPROM_ID ? gI2CChannelA0 : id == 0xD0 ? gI2CChannelD0 : gI2CChannelOther;
}

int fail(int err)
{
    errno = err;
    return -1;
}
} // namespace

Board::Board()
{
    addChip(0xA0, 2, 1, 0x10000);
    addChip(0x6C, 1, 1, 0x100);
    addChip(0xD0, 1, 1, 0x100);
    addChip(0xDC, 2, 2, 0x100);
}

void Board::addChip(uint8_t id, uint32_t regWidth, uint32_t bytesPerReg, uint32_t regCount)
{
    chips_[id] = Chip{regWidth, bytesPerReg, std::vector<uint8_t>(regCount * bytesPerReg)};
}

void Board::failNext(Kind kind, int count, int err, int after)
{
    faults_[kind].push_back({count, err, after});
}

bool Board::injected(Kind kind)
{
    auto &queue = faults_[kind];
    while (!queue.empty() && queue.front().after == 0 && queue.front().count <= 0) {
        queue.pop_front();
    }
    if (queue.empty()) {
        return false;
    }
    Fault &f = queue.front();
    if (f.after > 0) {
        --f.after;
        return false;
    }
    --f.count;
    errno = f.err;
    return true;
}

int Board::ioctl(unsigned long code, void *arg)
{
    switch (code) {
    case ZL740_IOCTL_I2C_READ:
        record(code, arg, sizeof(I2CTransferRequest));
        return injected(kRead) ? -1 : transfer(arg, false);
    case ZL740_IOCTL_I2C_WRITE:
        record(code, arg, sizeof(I2CTransferRequest));
        return injected(kWrite) ? -1 : transfer(arg, true);
    case ZL740_IOCTL_I2C_WRITE_PAGE:
        record(code, arg, sizeof(I2CPageRequest));
        return injected(kWritePage) ? -1 : writePage(arg);
    default:
        record(code, nullptr, 0);
        return fail(ENOTTY);
    }
}

// A transfer the bus would refuse (no device at the ID, wrong address width,
// a register past the end) fails as a missing acknowledge does: ENXIO.
int Board::transfer(void *arg, bool write)
{
    if (arg == nullptr) {
        return fail(EFAULT);
    }
    auto *req = static_cast<I2CTransferRequest *>(arg);
    auto it = chips_.find(req->id);
    if (it == chips_.end() || req->regWidth != it->second.regWidth ||
        req->channel != static_cast<uint8_t>(channelOf(req->id))) {
        return fail(ENXIO);
    }
    if (req->length < 1 || req->length > I2C_CHUNK_SIZE || req->data == nullptr) {
        return fail(EINVAL);
    }
    Chip &chip = it->second;
    const uint64_t offset = uint64_t{req->reg} * chip.bytesPerReg;
    if (offset + req->length > chip.memory.size()) {
        return fail(ENXIO);
    }
    if (write) {
        memcpy(chip.memory.data() + offset, req->data, req->length);
    } else {
        memcpy(req->data, chip.memory.data() + offset, req->length);
    }
    return 0;
}

int Board::writePage(void *arg)
{
    if (arg == nullptr) {
        return fail(EFAULT);
    }
    auto *req = static_cast<I2CPageRequest *>(arg);
    auto it = chips_.find(req->id);
    if (req->id != I2C_EEPROM_ID || it == chips_.end() || req->regWidth != 2 ||
        req->channel != static_cast<uint32_t>(gI2CChannelA0) || req->reg % I2C_EEPROM_PAGE != 0) {
        return fail(EINVAL);
    }
    Chip &chip = it->second;
    if (uint64_t{req->reg} + I2C_EEPROM_PAGE > chip.memory.size()) {
        return fail(ENXIO);
    }
    memcpy(chip.memory.data() + req->reg, req->data, I2C_EEPROM_PAGE);
    return 0;
}

// State file: the magic, then for each chip its ID and its memory.
bool Board::load(const std::string &path)
{
    FILE *f = fopen(path.c_str(), "rb");
    if (f == nullptr) {
        return false;
    }
    char magic[sizeof kStateMagic];
    bool ok = fread(magic, 1, sizeof magic, f) == sizeof magic &&
              memcmp(magic, kStateMagic, sizeof magic) == 0;
    for (auto &[id, chip] : chips_) {
        uint8_t stored = 0;
        ok = ok && fread(&stored, 1, 1, f) == 1 && stored == id &&
             fread(chip.memory.data(), 1, chip.memory.size(), f) == chip.memory.size();
    }
    fclose(f);
    return ok;
}

bool Board::save(const std::string &path) const
{
    const std::string temp = path + ".new";
    FILE *f = fopen(temp.c_str(), "wb");
    if (f == nullptr) {
        return false;
    }
    bool ok = fwrite(kStateMagic, 1, sizeof kStateMagic, f) == sizeof kStateMagic;
    for (const auto &[id, chip] : chips_) {
        ok = ok && fwrite(&id, 1, 1, f) == 1 &&
             fwrite(chip.memory.data(), 1, chip.memory.size(), f) == chip.memory.size();
    }
    ok = fclose(f) == 0 && ok;
    return ok && rename(temp.c_str(), path.c_str()) == 0;
}

} // namespace fake
