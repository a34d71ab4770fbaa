#include "DVR_I2C.h"
#include "com_log.h"
#include "fd_io.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <getopt.h>
#include <unistd.h>

extern "C" {
int gI2CVerbose = 0;
}

namespace {
constexpr int kMaxValues = 4;        // ID, register, data, and one that only counts
constexpr int kLineBufferSize = 256; // a longer batch line arrives in pieces
constexpr const char *kDelimiters = ", \t\r\n";

enum Slot { kId = 0, kAddr = 1, kData = 2 };

struct Invocation {
    int action = 0; // 'r', 'w' or 0
    int varCnt = 0;
    uint16_t values[kMaxValues] = {};
    uint8_t dataByte = 0;
    const char *batchPath = nullptr;
};

uint16_t hexValue(const char *token)
{
    return static_cast<uint16_t>(strtol(token, nullptr, 16));
}

void printUsage(const char *prog)
{
    static const char *const kLines[] = {
        "-------------------------------------------------------------",
        nullptr, // the line with the program's name
        "-------------------------------------------------------------",
        " [I2C ID] [I2C Addr] : read from specified ID, Addr",
        " [I2C ID] [I2C Addr] [I2C Data] : write to specified ID, Addr",
        "-------------------------------------------------------------",
        " -v : enable verbose message.",
        " -f [path] : read data from file.",
        "             data will be parsered by line based.",
        "             accept separator ',' ' ' or '\\t'",
        "             Ex. read original data from 6C,45[line1]",
        "                 write data(0x30) to 6C,45[line2] then read back[line3]",
        "             ============",
        "               6C,45",
        "               6C,45,30",
        "               6C,45",
        "             ============",
        "-------------------------------------------------------------",
    };
    for (const char *line : kLines) {
        if (line == nullptr) {
            printf(" %s Usage (all number input should be in hex str)\n", prog);
        } else {
            printf("%s\n", line);
        }
    }
}

// The 16-bit device's value travels high byte first, whatever the host order.
void readWord(Invocation &inv)
{
    uint8_t wire[2] = {static_cast<uint8_t>(inv.values[kData] >> 8),
                       static_cast<uint8_t>(inv.values[kData])};
    DVR_ReadI2CBlock(I2C_WORD_DEVICE_ID, inv.values[kAddr], 2, wire);
    inv.values[kData] = static_cast<uint16_t>(wire[0] << 8 | wire[1]);
}

void sendWord(const Invocation &inv)
{
    uint8_t wire[2] = {static_cast<uint8_t>(inv.values[kData] >> 8),
                       static_cast<uint8_t>(inv.values[kData])};
    DVR_SendI2CBlock(I2C_WORD_DEVICE_ID, inv.values[kAddr], 2, wire);
}

void transfer(Invocation &inv)
{
    const bool word = inv.values[kId] == I2C_WORD_DEVICE_ID;
    const auto id = static_cast<uint8_t>(inv.values[kId]);
    if (inv.varCnt == 2) {
        inv.action = 'r';
        if (word) {
            readWord(inv);
        } else {
            DVR_ReadI2CData(id, inv.values[kAddr], &inv.dataByte);
        }
    } else {
        inv.action = 'w';
        inv.dataByte = static_cast<uint8_t>(inv.values[kData]);
        if (word) {
            sendWord(inv);
        } else {
            DVR_SendI2CData(id, inv.values[kAddr], inv.dataByte);
        }
    }
}

void printResult(const Invocation &inv)
{
    const bool word = inv.values[kId] == I2C_WORD_DEVICE_ID;
    printf("[%c] (0x%X, 0x%X, 0x%X)\n", inv.action, inv.values[kId] & 0xFFu,
           static_cast<unsigned>(inv.values[kAddr]),
           word ? static_cast<unsigned>(inv.values[kData]) : inv.dataByte);
}

void runBatch(Invocation &inv)
{
    const fdio::UniqueFile file = fdio::openFile(inv.batchPath, "r");
    if (!file) {
        printf("fopen(%s) fail : %s\n", inv.batchPath, strerror(errno));
        return;
    }
    char line[kLineBufferSize] = {};
    while (fgets(line, sizeof line, file.get()) != nullptr) {
        char *save = nullptr;
        for (char *tok = strtok_r(line, kDelimiters, &save);
             tok != nullptr && inv.varCnt < kMaxValues;
             tok = strtok_r(nullptr, kDelimiters, &save)) {
            inv.values[inv.varCnt++] = hexValue(tok);
        }
        inv.dataByte = 0;
        inv.action = 0;
        if (inv.varCnt == 2 || inv.varCnt == 3) {
            transfer(inv);
        }
        if (inv.action != 0 && gI2CVerbose == 1) {
            printResult(inv);
        }
        inv.varCnt = 0;
        memset(line, 0, sizeof line);
    }
}
} // namespace

int DVR_I2CToolMain(int argc, char **argv)
{
    Invocation inv;
    gI2CVerbose = 0;

    optind = 0; // full rescan, so the entry can run more than once in a process
    for (int opt; (opt = getopt(argc, argv, "rwvf:")) != -1;) {
        switch (opt) {
        case 'v':
            gI2CVerbose = 1;
            break;
        case 'f':
            inv.batchPath = optarg;
            COM_LOG(nullptr, "Using [%s]\n", optarg);
            break;
        case 'r':
        case 'w':
            inv.action = opt;
            COM_LOG(nullptr, "Action [%c]\n", opt);
            break;
        default:
            break; // getopt has complained; scanning goes on
        }
    }
    for (int i = optind; i < argc && inv.varCnt < kMaxValues; ++i) {
        inv.values[inv.varCnt++] = hexValue(argv[i]);
    }
    if (inv.varCnt != 2 && inv.varCnt != 3) {
        inv.varCnt = 0;
    }

    if (inv.batchPath == nullptr && inv.varCnt == 0) {
        printUsage(argc > 0 ? argv[0] : "i2c");
        return 0;
    }

    gI2CDriverFd = open(ZL740_DRIVER_PATH, O_RDWR);
    if (gI2CDriverFd < 0) {
        COM_LOG_FAILED_CALL(nullptr, "open(%s) fail : %s\n", ZL740_DRIVER_PATH);
        return 0;
    }

    if (inv.varCnt == 0) {
        runBatch(inv);
    } else {
        transfer(inv);
        if (gI2CVerbose == 1) {
            printResult(inv);
        }
    }

    COM_SafeClose(&gI2CDriverFd);
    return 0;
}
