// The result forms of the network queries: hardware-address text and bytes,
// plain, padded and raw addresses.
#include "net_flags.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
#include <net/if.h>

namespace net {

void writeMac(const FlagInfo &info, const uint8_t *bytes, void *out)
{
    auto *text = static_cast<char *>(out);
    if (info.form == Form::RawBytes) {
        memcpy(out, bytes + info.first, static_cast<size_t>(kMacBytes - info.first));
        return;
    }
    const char *digits = info.form == Form::HexLower ? "%02x" : "%02X";
    for (int i = info.first; i < kMacBytes; ++i) {
        if (info.form == Form::Colon && i > info.first) {
            *text++ = ':';
        }
        snprintf(text, 3, digits, bytes[i]);
        text += 2;
    }
    *text = '\0';
}

void writeAddress(Form form, uint32_t raw, void *out)
{
    uint8_t b[4];
    memcpy(b, &raw, sizeof b);
    switch (form) {
    case Form::Text: {
        struct in_addr addr {};
        addr.s_addr = raw;
        snprintf(static_cast<char *>(out), kAddrTextSize, "%s", inet_ntoa(addr));
        break;
    }
    case Form::Padded:
        snprintf(static_cast<char *>(out), kAddrTextSize, "%03d.%03d.%03d.%03d", b[0], b[1], b[2],
                 b[3]);
        break;
    default:
        memcpy(out, &raw, sizeof raw);
        break;
    }
}

void writeAddressFallback(Form form, void *out)
{
    writeAddress(form == Form::Text ? Form::Padded : form, 0, out);
}

void copyIfName(char *field, const char *dev)
{
    strncpy(field, dev, IFNAMSIZ - 1);
    field[IFNAMSIZ - 1] = '\0';
}

} // namespace net
