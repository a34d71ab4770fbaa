#include "ide_text.h"

#include <cstdlib>

namespace {

// Where each text of the identify data starts, in stream bytes, and its length.
struct IdentifyItem {
    int firstByte;
    int length;
};
constexpr IdentifyItem kSerial{20, 20};  // ATA words 10 to 19
constexpr IdentifyItem kFirmware{46, 8}; // words 23 to 26
constexpr IdentifyItem kModel{54, 40};   // words 27 to 46

// The SMART table starts at byte 2, a slot every 12 bytes; read through the
// byte swap of the kernel's words, the number of slot k is at 3 + 12 * k and
// its first raw byte three bytes later.
constexpr int kSmartFirstNumber = 3;
constexpr int kSmartSlotBytes = 12;
constexpr int kSmartRawOffset = 3;
constexpr int kSmartMinDigits = 30;

// The stream byte at index i: two digits read by strtoul in base 16.
unsigned streamByte(const char *digits, int i)
{
    const char pair[3] = {digits[2 * i], digits[2 * i + 1], '\0'};
    return static_cast<unsigned>(strtoul(pair, nullptr, 16)) & 0xFFu;
}

void copyItem(const char *digits, const IdentifyItem &item, char *out)
{
    if (out == nullptr) {
        return;
    }
    for (int k = 0; k < item.length; ++k) {
        out[k] = static_cast<char>(streamByte(digits, item.firstByte + k));
    }
    out[item.length] = '\0';
}

} // namespace

namespace dev {

bool identifyTexts(const char *digits, int count, char *sn, char *fwRev, char *model)
{
    if (digits == nullptr || count / 2 < kIdentifyMinBytes) {
        return false;
    }
    copyItem(digits, kSerial, sn);
    copyItem(digits, kFirmware, fwRev);
    copyItem(digits, kModel, model);
    return true;
}

bool smartAttribute(const char *digits, int count, uint8_t attribute, int8_t &value)
{
    if (digits == nullptr || count < kSmartMinDigits) {
        return false;
    }
    // A slot whose raw byte lies beyond the stream isn't read.
    const int bytes = count / 2;
    for (int i = kSmartFirstNumber; i + kSmartRawOffset < bytes; i += kSmartSlotBytes) {
        if (streamByte(digits, i) == attribute) {
            value = static_cast<int8_t>(streamByte(digits, i + kSmartRawOffset));
            return true;
        }
    }
    return false;
}

} // namespace dev
