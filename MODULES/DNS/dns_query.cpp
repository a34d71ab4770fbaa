#include "DNS.h"
#include "dns_name.h"

#include <cstring>

namespace {
// Transaction id, flags (standard query, recursion desired), one question and
// no answer, authority or additional records.
constexpr uint8_t kQueryHeader[] = {0xA9, 0xFA, 0x01, 0x00, 0x00, 0x01,
                                    0x00, 0x00, 0x00, 0x00, 0x00, 0x00};
constexpr uint8_t kClassIn = 1;

uint8_t *putLabel(uint8_t *out, std::string_view label)
{
    *out++ = static_cast<uint8_t>(label.size());
    memcpy(out, label.data(), label.size());
    return out + label.size();
}
} // namespace

int DNS_BuildQuery(const char *pDomainName, uint8_t *pPacket, uint8_t qtype)
{
    if (pDomainName == nullptr || pPacket == nullptr) {
        return -1;
    }
    const std::string_view name = dnsQueryName(pDomainName);
    if (name.empty()) {
        return -1;
    }
    memcpy(pPacket, kQueryHeader, sizeof kQueryHeader);
    uint8_t *out = pPacket + sizeof kQueryHeader;
    // A point ends a label and becomes its length byte; the last character
    // always belongs to the last label, so the labels take one byte more than
    // the name.
    size_t start = 0;
    for (size_t i = 0; i < name.size(); ++i) {
        if (i + 1 == name.size()) {
            out = putLabel(out, name.substr(start));
        } else if (name[i] == '.') {
            out = putLabel(out, name.substr(start, i - start));
            start = i + 1;
        }
    }
    const uint8_t tail[] = {0x00, 0x00, qtype, 0x00, kClassIn};
    memcpy(out, tail, sizeof tail);
    return static_cast<int>(out + sizeof tail - pPacket);
}
