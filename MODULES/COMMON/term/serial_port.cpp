#include "COMMON.h"
#include "com_log.h"
#include "fd_io.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <sys/stat.h>

namespace {
constexpr const char *kUsbSerialTable = "/proc/tty/driver/usb-serial";
constexpr const char *kUsbSerialTableOld = "/proc/tty/driver/usbserial";
constexpr const char *kFixedPortPrefix = "/dev/ttyTX";
constexpr const char *kUsbPortPrefix = "/dev/ttyUSB";
constexpr int kLineSize = 256;
constexpr unsigned kUsbSerialNodeMode = S_IFCHR | 0664; // 0x21B4
constexpr unsigned kUsbSerialMajorBits = 188u << 8;     // 0xBC00

// A logical port's accepted endings of the adapter's USB path, in order.
struct SerialPortEntry {
    const char *tails[3];
    int count;
};

constexpr const char *kNoTail = "---";
constexpr SerialPortEntry kPorts[] = {
    {{kNoTail}, 1},             // 0: none
    {{kNoTail}, 1},             // 1: the board's fixed port
    {{"1-2", "0-2", "0-3"}, 3}, // 2 to 4: USB sockets
    {{"1-1"}, 1},
    {{"0-1"}, 1},
};
constexpr int kPortCount = static_cast<int>(sizeof kPorts / sizeof kPorts[0]);

fdio::UniqueFile openUsbSerialTable()
{
    fdio::UniqueFile file = fdio::openFile(kUsbSerialTable, "r");
    if (file) {
        return file;
    }
    if (errno != ENOENT) {
        COM_LOG_FAILED_CALL("COM_GetSerialPort", "open(%s) failed! : %s\n", kUsbSerialTable);
        return nullptr;
    }
    file = fdio::openFile(kUsbSerialTableOld, "r");
    if (!file) {
        COM_LOG_FAILED_CALL("COM_GetSerialPort", "open(%s, %s) failed! : %s\n", kUsbSerialTable,
                            kUsbSerialTableOld);
    }
    return file;
}

// Looks for the first line of the USB serial table whose path ends in one of
// the port's accepted tails; fills pName with the adapter's node.
int findUsbPort(int port, char *pName, const char *&stoppedAt)
{
    const fdio::UniqueFile table = openUsbSerialTable();
    if (!table) {
        return -1;
    }
    const SerialPortEntry &entry = kPorts[port];
    int result = -1;
    char line[kLineSize];
    while (result != 0 && fgets(line, sizeof line, table.get()) != nullptr) {
        const char *dot = strrchr(line, '.');
        if (dot == nullptr) {
            continue;
        }
        std::string_view tail(dot + 1);
        tail = tail.substr(0, tail.find('\n'));
        for (int i = 0; i < entry.count; ++i) {
            COM_LOG("COM_GetSerialPort", "[%d][%d][%d] - [%.*s] <=> [%s]\n", port, 0, i,
                    static_cast<int>(tail.size()), tail.data(), entry.tails[i]);
            if (tail != entry.tails[i]) {
                continue;
            }
            // The adapter's number stands in front of the line's colon.
            char copy[kLineSize];
            memcpy(copy, line, sizeof copy);
            char *save = nullptr;
            const char *token = strtok_r(copy, ".:", &save);
            if (token == nullptr) {
                const size_t len = strlen(line);
                if (len > 1) {
                    COM_LOG("COM_GetSerialPort", "No key delimiter found : [%.*s]\n",
                            static_cast<int>(len - 1), line);
                }
                continue;
            }
            snprintf(pName, COM_SERIAL_PATH_SIZE, "%s%s", kUsbPortPrefix, token);
            stoppedAt = entry.tails[i];
            result = 0;
            COM_MakeNode(pName, kUsbSerialNodeMode,
                         kUsbSerialMajorBits | static_cast<unsigned>(atoi(token)));
            break;
        }
    }
    return result;
}
} // namespace

int COM_GetSerialPort(int port, char *pName)
{
    static constexpr const char *kFunc = "COM_GetSerialPort";
    if (port < 0 || port >= kPortCount) {
        COM_LOG(kFunc, "Un-support idx = %d\n", port);
        return -1;
    }
    const char *stoppedAt = nullptr;
    int result = -1;
    if (pName == nullptr) {
        stoppedAt = port <= 1 ? kPorts[port].tails[0] : nullptr;
    } else if (port == 0) {
        COM_LOG(kFunc, "None port selected\n");
        stoppedAt = kPorts[0].tails[0];
    } else if (port == 1) {
        COM_LOG(kFunc, "Fixed serail port\n");
        snprintf(pName, COM_SERIAL_PATH_SIZE, "%s%d", kFixedPortPrefix, port - 1);
        stoppedAt = kPorts[1].tails[0];
        result = 0;
    } else {
        result = findUsbPort(port, pName, stoppedAt);
    }
    COM_LOG(kFunc, "path[%d] = [%s], (result, pName) = (%d, %s)\n", port,
            stoppedAt != nullptr ? stoppedAt : "(null)", result,
            pName != nullptr ? pName : "(null)");
    return result;
}
