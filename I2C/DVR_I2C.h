/*
 * The road to the board's I2C devices through the main board driver
 * "/dev/zl340_main", and the entry of the command-line tool on top of it.
 *
 * The two request records cross into the driver: their layouts are a wire
 * format in the byte order of the target (big-endian on the board).
 */
#ifndef DVR_I2C_H
#define DVR_I2C_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
/* Everything declared here is the library's interface: it alone leaves the
 * shared library, whose objects are built with hidden visibility. */
#if defined(__GNUC__)
#pragma GCC visibility push(default)
#endif

#define ZL740_DRIVER_PATH "/dev/zl340_main"

/* Request numbers in the board's (PowerPC) encoding: direction in the top three
 * bits, record size in the next thirteen, type 'D', request number. */
#define ZL740_IOCTL_I2C_READ 0x40144473UL
#define ZL740_IOCTL_I2C_WRITE 0xC0144474UL
#define ZL740_IOCTL_I2C_WRITE_PAGE 0xC0304475UL

#define I2C_CHUNK_SIZE 1024 /* largest transfer one request carries */
#define I2C_EEPROM_ID 0xA0
#define I2C_EEPROM_PAGE 32
#define I2C_WORD_DEVICE_ID 0xDC /* the device of 16-bit values */
#define I2C_FAIL_LIMIT 16       /* failures after which a device is off */

/* Reads and writes other than EEPROM writes. 20 bytes on the board (ILP32);
 * on a 64-bit host the pointer makes it 32, with data at 16 and length at 24. */
typedef struct I2CTransferRequest {
    uint8_t id;
    uint8_t channel; /* low 8 bits of the channel number */
    uint8_t reserved[2];
    uint32_t reg;      /* register address of the first byte */
    uint32_t regWidth; /* 1 or 2 bytes on the bus */
    uint8_t *data;     /* caller's buffer */
    uint32_t length;   /* 1 to I2C_CHUNK_SIZE */
} I2CTransferRequest;

/* EEPROM page writes: 48 bytes on every target, the page inside the record. */
typedef struct I2CPageRequest {
    uint8_t id; /* always I2C_EEPROM_ID */
    uint8_t reserved[3];
    uint32_t reg;      /* a multiple of I2C_EEPROM_PAGE */
    uint32_t regWidth; /* always 2 */
    uint32_t channel;  /* the whole of gI2CChannelA0 */
    uint8_t data[I2C_EEPROM_PAGE];
} I2CPageRequest;

extern int gI2CDriverFd; /* opened and closed by the caller */
extern int gI2CChannelA0;
extern int gI2CChannelD0;
extern int gI2CChannelOther;
extern int gI2CFailCount[256]; /* indexed by I2C ID */
extern int gI2CVerbose;        /* the tool's -v */

int DVR_ReadI2CBlock(uint8_t id, uint32_t addr, int32_t length, uint8_t *data);
int DVR_SendI2CBlock(uint8_t id, uint32_t addr, int32_t length, uint8_t *data);
int DVR_ReadI2CData(uint8_t id, uint32_t addr, uint8_t *data);
int DVR_SendI2CData(uint8_t id, uint32_t addr, uint8_t data);

/* The tool: scans argv, performs the transfers, always returns 0. */
int DVR_I2CToolMain(int argc, char **argv);

#if defined(__GNUC__)
#pragma GCC visibility pop
#endif
#ifdef __cplusplus
}
#endif

#endif /* DVR_I2C_H */
