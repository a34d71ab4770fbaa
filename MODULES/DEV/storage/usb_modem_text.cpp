#include "usb_modem_text.h"

#include "COMMON.h"

#include <cstring>

namespace {

constexpr char kDeviceStart[] = "T: ";
constexpr char kVendorKey[] = "Vendor=";
constexpr char kProductKey[] = "ProdID=";
constexpr char kDriverKey[] = "Driver=";
constexpr char kNoDriver[] = "(none)";
constexpr char kPortVendorKey[] = "vendor:";
constexpr char kPortProductKey[] = "product:";

int hexDigit(char c)
{
    const char lower = static_cast<char>(c | 0x20);
    return c >= '0' && c <= '9' ? c - '0' : lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

// The number written from text on in the given base (10 or 16), after blanks;
// 0 without digits, INT32_MAX for one too large. The same on both targets,
// whatever the width of long.
int32_t numberAt(const char *text, int base)
{
    while (*text == ' ' || *text == '\t') {
        ++text;
    }
    int64_t value = 0;
    for (int d = hexDigit(*text); d >= 0 && d < base; d = hexDigit(*++text)) {
        value = value * base + d;
        if (value > INT32_MAX) {
            return INT32_MAX;
        }
    }
    return static_cast<int32_t>(value);
}

// The number behind key in line, if the key is there.
bool numberBehind(const char *line, const char *key, int32_t &value)
{
    const char *at = COM_StrCaseStr(line, key);
    if (at == nullptr) {
        return false;
    }
    value = numberAt(at + strlen(key), 16);
    return true;
}

} // namespace

namespace dev {

bool usbLineWantsDriver(UsbWalk &walk, const char *line)
{
    if (strncmp(line, kDeviceStart, sizeof kDeviceStart - 1) == 0) {
        walk = UsbWalk{};
        walk.active = true;
    }
    if (!walk.active) {
        return false;
    }
    if (!walk.vendorSeen) {
        walk.vendorSeen = numberBehind(line, kVendorKey, walk.vendor);
    }
    if (!walk.productSeen) {
        walk.productSeen = numberBehind(line, kProductKey, walk.product);
    }
    if (walk.vendor < 1 || walk.product < 1) {
        return false;
    }
    const char *driver = COM_StrCaseStr(line, kDriverKey);
    return driver != nullptr &&
           strncmp(driver + sizeof kDriverKey - 1, kNoDriver, sizeof kNoDriver - 1) == 0;
}

int usbSerialPort(const char *line, int32_t vendor, int32_t product)
{
    if (hexDigit(line[0]) < 0 || hexDigit(line[0]) > 9) {
        return -1;
    }
    const int32_t port = numberAt(line, 10);
    int32_t v = -1;
    int32_t p = -1;
    if (port > kMaxUsbPort || !numberBehind(line, kPortVendorKey, v) ||
        !numberBehind(line, kPortProductKey, p) || v != vendor || p != product) {
        return -1;
    }
    return port;
}

} // namespace dev
