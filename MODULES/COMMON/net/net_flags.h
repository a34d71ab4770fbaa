/* Private to the library: what each query flag of COM_GetNetInfo names, and
 * the writers of its forms, shared by the query families. */
#ifndef DVR_NET_FLAGS_H
#define DVR_NET_FLAGS_H

#include <array>
#include <cstdint>

#include "COMMON.h"

namespace net {

// The family that answers a flag.
enum class Family : uint8_t { Mac, Arp, Iface, Gateway, Dns, Mtu };
// The form of a flag's result.
enum class Form : uint8_t { HexUpper, HexLower, Colon, RawBytes, Text, Padded, RawWord, Int };

struct FlagInfo {
    Family family;
    Form form;
    // Hardware addresses: the first of bytes 0 to 5 shown. Name servers: the
    // occurrence wanted (1 or 2).
    uint8_t first;
    // Interface addresses: the control request.
    uint16_t request;
};

constexpr uint16_t kSiocGifAddr = 0x8915;
constexpr uint16_t kSiocGifBrdAddr = 0x8919;
constexpr uint16_t kSiocGifNetmask = 0x891B;
constexpr int kMacBytes = 6;
// Bytes of every text address form, terminator included.
constexpr int kAddrTextSize = 16;

constexpr FlagInfo iface(Form form, uint16_t request)
{
    return {Family::Iface, form, 0, request};
}

// The forms that take no control request: all but the interface addresses.
constexpr FlagInfo plain(Family f, Form form, uint8_t first = 0)
{
    return {f, form, first, 0};
}

// The nine hardware-address forms, in the order both families use.
#define NET_MAC_FORMS(family)                                               \
    plain(family, Form::HexUpper, 0), plain(family, Form::HexLower, 0),     \
        plain(family, Form::HexUpper, 2), plain(family, Form::HexUpper, 3), \
        plain(family, Form::Colon, 0), plain(family, Form::Colon, 2),       \
        plain(family, Form::Colon, 3), plain(family, Form::RawBytes, 3),    \
        plain(family, Form::RawBytes, 4)

inline constexpr std::array<FlagInfo, 37> kFlags = {{
    NET_MAC_FORMS(Family::Mac),
    NET_MAC_FORMS(Family::Arp),
    iface(Form::Text, kSiocGifAddr),
    iface(Form::Padded, kSiocGifAddr),
    iface(Form::RawWord, kSiocGifAddr),
    iface(Form::Text, kSiocGifBrdAddr),
    iface(Form::Padded, kSiocGifBrdAddr),
    iface(Form::RawWord, kSiocGifBrdAddr),
    iface(Form::Text, kSiocGifNetmask),
    iface(Form::Padded, kSiocGifNetmask),
    iface(Form::RawWord, kSiocGifNetmask),
    plain(Family::Gateway, Form::Text),
    plain(Family::Gateway, Form::Padded),
    plain(Family::Gateway, Form::RawWord),
    // The raw name-server forms stand after both text pairs.
    plain(Family::Dns, Form::Text, 1),
    plain(Family::Dns, Form::Padded, 1),
    plain(Family::Dns, Form::Text, 2),
    plain(Family::Dns, Form::Padded, 2),
    plain(Family::Dns, Form::RawWord, 1),
    plain(Family::Dns, Form::RawWord, 2),
    plain(Family::Mtu, Form::Int),
}};
#undef NET_MAC_FORMS

static_assert(kFlags[NETINFO_MAC_RAW_TAIL2].first == 4 && kFlags[NETINFO_ARP_HEX].first == 0);
static_assert(kFlags[NETINFO_NETMASK_RAW].request == kSiocGifNetmask);
static_assert(kFlags[NETINFO_DNS2_RAW].first == 2 && kFlags[NETINFO_MTU].family == Family::Mtu);

// The flag's entry when it belongs to the family, otherwise null.
inline const FlagInfo *flagOf(int flag, Family family)
{
    if (flag < 0 || flag >= static_cast<int>(kFlags.size())) {
        return nullptr;
    }
    const FlagInfo &info = kFlags[static_cast<size_t>(flag)];
    return info.family == family ? &info : nullptr;
}

// Writes a hardware address (6 bytes; all zero for a failed query) in the form.
void writeMac(const FlagInfo &info, const uint8_t *bytes, void *out);
// Writes a raw address (network byte order) in the form; a failed query
// writes writeAddressFallback, the padded zeros or the raw 0.
void writeAddress(Form form, uint32_t raw, void *out);
void writeAddressFallback(Form form, void *out);
// Copies dev, cut to the kernel's 15 characters, into a request's name field.
void copyIfName(char *field, const char *dev);

} // namespace net

#endif
