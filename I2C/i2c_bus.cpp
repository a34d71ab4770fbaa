#include "DVR_I2C.h"
#include "com_log.h"
#include "fd_io.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <sys/ioctl.h>

// The records are the driver's wire format: hold their layout on the board,
// and say what it is on a 64-bit host, where only the pointer differs.
static_assert(offsetof(I2CTransferRequest, id) == 0);
static_assert(offsetof(I2CTransferRequest, channel) == 1);
static_assert(offsetof(I2CTransferRequest, reg) == 4);
static_assert(offsetof(I2CTransferRequest, regWidth) == 8);
static_assert(sizeof(void *) == 4 ? offsetof(I2CTransferRequest, data) == 12
                                  : offsetof(I2CTransferRequest, data) == 16);
static_assert(sizeof(void *) == 4 ? offsetof(I2CTransferRequest, length) == 16
                                  : offsetof(I2CTransferRequest, length) == 24);
static_assert(sizeof(I2CTransferRequest) == (sizeof(void *) == 4 ? 20 : 32));
static_assert(offsetof(I2CPageRequest, reg) == 4);
static_assert(offsetof(I2CPageRequest, regWidth) == 8);
static_assert(offsetof(I2CPageRequest, channel) == 12);
static_assert(offsetof(I2CPageRequest, data) == 16);
static_assert(sizeof(I2CPageRequest) == 48);
#if defined(__powerpc__)
static_assert(ZL740_IOCTL_I2C_READ == _IOR('D', 0x73, I2CTransferRequest));
static_assert(ZL740_IOCTL_I2C_WRITE == _IOWR('D', 0x74, I2CTransferRequest));
static_assert(ZL740_IOCTL_I2C_WRITE_PAGE == _IOWR('D', 0x75, I2CPageRequest));
#endif

extern "C" {
int gI2CDriverFd = -1;
int gI2CChannelA0 = 1;
int gI2CChannelD0 = 1;
int gI2CChannelOther = 0;
int gI2CFailCount[256];
}

namespace {
// Retries a write request gets: it fails when the count of failures exceeds it.
constexpr int kWriteRetries = 16;
constexpr int kPageMask = I2C_EEPROM_PAGE - 1;

struct BusRule {
    uint32_t regWidth;
    int channel;
};

BusRule ruleFor(uint8_t id)
{
    switch (id) {
    case I2C_EEPROM_ID:
        return {2, gI2CChannelA0};
    case 0xD0:
        return {1, gI2CChannelD0};
    case I2C_WORD_DEVICE_ID:
        return {2, gI2CChannelOther};
    default:
        return {1, gI2CChannelOther};
    }
}

I2CTransferRequest makeRequest(uint8_t id, uint8_t *staging)
{
    I2CTransferRequest req;
    memset(&req, 0, sizeof req);
    const BusRule rule = ruleFor(id);
    req.id = id;
    req.channel = static_cast<uint8_t>(rule.channel);
    req.regWidth = rule.regWidth;
    req.data = staging;
    return req;
}

int startResult()
{
    return gI2CDriverFd > -1 ? 0 : -1;
}

// Writes chunks of up to 1024 bytes; the whole call shares one retry budget.
int sendChunks(uint8_t id, uint32_t addr, int32_t length, const uint8_t *data)
{
    int result = startResult();
    uint8_t staging[I2C_CHUNK_SIZE];
    I2CTransferRequest req = makeRequest(id, staging);
    int retries = 0;
    for (int32_t done = 0; done < length;) {
        const int32_t chunk = std::min<int32_t>(length - done, I2C_CHUNK_SIZE);
        req.reg = addr + static_cast<uint32_t>(done);
        req.length = static_cast<uint32_t>(chunk);
        memcpy(staging, data + done, static_cast<size_t>(chunk));
        while (ioctl(gI2CDriverFd, ZL740_IOCTL_I2C_WRITE, &req) != 0) {
            if (++retries > kWriteRetries) {
                const int err = errno;
                if (err != EFAULT) {
                    COM_LOG(nullptr, "[%d] ZL740_IOCTL_I2C_WRITE(0x%X, 0x%X, 0x%X) error : %s\n",
                            done, id, req.reg, staging[0], strerror(err));
                }
                return -1;
            }
        }
        done += chunk;
    }
    return result;
}

// Reads into the page the bytes of the device that the caller's data leaves
// untouched. A failed read would leave 0xFF placeholders in the page, so the
// page is reported and never written.
bool readAround(uint32_t addr, int32_t count, uint8_t *into, uint32_t pageReg)
{
    if (DVR_ReadI2CBlock(I2C_EEPROM_ID, addr, count, into) == 0) {
        return true;
    }
    COM_LOG_FAILED_CALL(
        nullptr, "EEPROM page 0x%X not written: reading its old contents failed : %s\n", pageReg);
    return false;
}

// Writes whole 32-byte pages, reading the device's own bytes around the
// caller's data at unaligned edges; each page has its own retry budget.
int sendPages(uint32_t addr, int32_t length, const uint8_t *data)
{
    int result = startResult();
    I2CPageRequest req;
    memset(&req, 0, sizeof req);
    req.id = I2C_EEPROM_ID;
    req.regWidth = 2;
    req.channel = static_cast<uint32_t>(gI2CChannelA0);

    uint32_t page = 0;
    int32_t consumed = 0;
    do {
        memset(req.data, 0, sizeof req.data);
        int32_t filled = 0;
        req.reg = ((addr >> 5) + page) << 5;

        const int32_t head = page == 0 ? static_cast<int32_t>(addr & kPageMask) : 0;
        if (head != 0) {
            if (!readAround(req.reg, head, req.data, req.reg)) {
                return -1;
            }
            filled += head;
        }

        const int32_t remainder = length - consumed;
        const int32_t tail = I2C_EEPROM_PAGE - filled - remainder;
        if (tail > 0) {
            if (remainder > 0) {
                memcpy(req.data + filled, data + consumed, static_cast<size_t>(remainder));
            }
            filled += remainder;
            consumed += remainder;
            if (!readAround(addr + static_cast<uint32_t>(length), tail, req.data + filled,
                            req.reg)) {
                return -1;
            }
        } else {
            const int32_t take = I2C_EEPROM_PAGE - filled;
            memcpy(req.data + filled, data + consumed, static_cast<size_t>(take));
            consumed += take;
        }

        ++page;
        int retries = 0;
        while (ioctl(gI2CDriverFd, ZL740_IOCTL_I2C_WRITE_PAGE, &req) != 0) {
            if (++retries > kWriteRetries) {
                const int err = errno;
                COM_LOG(nullptr, "[%d/%d] ZL740_IOCTL_I2C_WRITE(0x%X, 0x%X, 0x%X) error : %s\n",
                        gI2CChannelA0, 1, req.id, req.reg,
                        static_cast<unsigned>(reinterpret_cast<uintptr_t>(req.data)),
                        strerror(err));
                result = -1;
                break;
            }
        }
        if (consumed >= length) {
            break;
        }
    } while (result == 0);
    return result;
}
} // namespace

int DVR_ReadI2CBlock(uint8_t id, uint32_t addr, int32_t length, uint8_t *data)
{
    int result = startResult();
    if (data == nullptr) {
        return -1;
    }
    uint8_t staging[I2C_CHUNK_SIZE];
    I2CTransferRequest req = makeRequest(id, staging);
    for (int32_t done = 0; done < length;) {
        const int32_t chunk = std::min<int32_t>(length - done, I2C_CHUNK_SIZE);
        req.reg = addr + static_cast<uint32_t>(done);
        req.length = static_cast<uint32_t>(chunk);
        if (ioctl(gI2CDriverFd, ZL740_IOCTL_I2C_READ, &req) != 0) {
            memset(staging, 0xFF, static_cast<size_t>(chunk));
            result = -1;
        }
        memcpy(data + done, staging, static_cast<size_t>(chunk));
        if (result == -1) {
            break;
        }
        done += chunk;
    }
    return result;
}

int DVR_SendI2CBlock(uint8_t id, uint32_t addr, int32_t length, uint8_t *data)
{
    if (data == nullptr && length > 0) {
        return -1;
    }
    if (id == I2C_EEPROM_ID) {
        // A negative length has no page to fill: nothing is sent.
        return length < 0 ? -1 : sendPages(addr, length, data);
    }
    return sendChunks(id, addr, length, data);
}

int DVR_SendI2CData(uint8_t id, uint32_t addr, uint8_t data)
{
    if (gI2CFailCount[id] >= I2C_FAIL_LIMIT) {
        return -1;
    }
    const int rc = DVR_SendI2CBlock(id, addr, 1, &data);
    if (rc == 0) {
        gI2CFailCount[id] = 0;
        return 0;
    }
    if (++gI2CFailCount[id] >= I2C_FAIL_LIMIT) {
        COM_LOG("DVR_SendI2CData", "Warning : I2C[0x%02X] is turnned off\n", id);
    }
    return rc;
}

int DVR_ReadI2CData(uint8_t id, uint32_t addr, uint8_t *data)
{
    if (gI2CFailCount[id] >= I2C_FAIL_LIMIT) {
        return -1;
    }
    const int rc = DVR_ReadI2CBlock(id, addr, 1, data);
    if (rc != 0 && ++gI2CFailCount[id] >= I2C_FAIL_LIMIT) {
        COM_LOG("DVR_ReadI2CData", "Warning : I2C[0x%02X] is turnned off\n", id);
    }
    return rc;
}
