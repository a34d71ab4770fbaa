/* Private to the library: the readers of the kernel's USB device list and of
 * its USB serial port list, behind the loading of a 3G modem's driver. */
#ifndef DVR_USB_MODEM_TEXT_H
#define DVR_USB_MODEM_TEXT_H

#include <cstddef>
#include <cstdint>

namespace dev {

// Both lists are read by fgets in pieces of this many characters and a
// terminator; a longer line counts as several.
constexpr size_t kUsbLineSize = 256;
// The highest port number taken from the port list.
constexpr int kMaxUsbPort = 1024;

// Where the walk over /proc/bus/usb/devices stands: whether the device of the
// last "T: " line is still a candidate, and its vendor and product numbers,
// -1 until their key is seen.
struct UsbWalk {
    bool active = false;
    bool vendorSeen = false;
    bool productSeen = false;
    int32_t vendor = -1;
    int32_t product = -1;
};

// Takes the next line of the device list. True when the line is an
// interface without a driver ("Driver=(none)") of a candidate device whose
// vendor and product numbers are both above 0: the driver is to be loaded
// for it.
bool usbLineWantsDriver(UsbWalk &walk, const char *line);

// The port number of a port list line that begins with it (0 to
// kMaxUsbPort) and names the device as "vendor:<hex>" and "product:<hex>";
// -1 for any other line.
int usbSerialPort(const char *line, int32_t vendor, int32_t product);

} // namespace dev

#endif
