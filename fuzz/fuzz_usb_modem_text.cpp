// The lines of /proc/bus/usb/devices and /proc/tty/driver/usbserial as the
// modem driver loading reads them: pieces of at most 255 characters. A device
// is offered only with both numbers above 0, and a port only from 0 to 1024.
#include <cstdint>
#include <cstring>

#include "usb_modem_text.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    dev::UsbWalk walk;
    size_t at = 0;
    while (at < size) {
        char line[dev::kUsbLineSize] = {};
        size_t n = 0;
        while (at < size && n < sizeof line - 1) {
            line[n] = static_cast<char>(data[at++]);
            if (line[n++] == '\n') {
                break;
            }
        }
        const bool wanted = dev::usbLineWantsDriver(walk, line);
        if (wanted && (walk.vendor < 1 || walk.product < 1 || !walk.active)) {
            __builtin_trap();
        }
        const int port = dev::usbSerialPort(line, walk.vendor, walk.product);
        if (port < -1 || port > dev::kMaxUsbPort) {
            __builtin_trap();
        }
    }
    return 0;
}
