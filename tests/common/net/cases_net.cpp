// Operations of the network case files: address texts, the interface chosen
// for "auto", and the queries (tests/cases/net; tests/cases/netpeer runs in the
// namespaces of tests/peers/test_net.sh).
#include <arpa/inet.h>

#include "case_runner.h"

namespace {
using cases::Args;

std::string dotted(uint32_t addr)
{
    char text[INET_ADDRSTRLEN] = "";
    return inet_ntop(AF_INET, &addr, text, sizeof text);
}

// A query of one family with a flag of another: the result and the first
// four bytes of the output, which start as 01 02 03 04.
cases::Op family(int (*fn)(int, const char *, void *))
{
    return [fn](Args &a) {
        uint8_t out[32] = {1, 2, 3, 4};
        return cases::nums(
            {fn(static_cast<int>(a.n(0)), a.s(1), out), out[0], out[1], out[2], out[3]});
    };
}

const cases::Register ops({
    // The result, then the address and mask, which start as 1.
    {"ConvertAddr",
     [](Args &a) {
         uint32_t addr = 1, mask = 1;
         const int rc = COM_ConvertNetworkAddr(a.s(0), &addr, &mask);
         return std::to_string(rc) + " " + dotted(addr) + " " + dotted(mask);
     }},
    // GetNetInfo flag dev [hex N|int]: the result and the output buffer, filled
    // with 5A before: as text, its first N bytes in hex, or a 32-bit number.
    {"GetNetInfo",
     [](Args &a) {
         uint8_t out[32];
         memset(out, 0x5A, sizeof out);
         const int rc = COM_GetNetInfo(static_cast<int>(a.n(0)), a.s(1), out);
         const char *text = reinterpret_cast<const char *>(out);
         std::string shown = cases::q(std::string(text, strnlen(text, sizeof out)));
         if (a.str(2) == "int") {
             int32_t value = 0;
             memcpy(&value, out, sizeof value);
             shown = std::to_string(value);
         } else if (a.str(2) == "hex") {
             shown.clear();
             for (long i = 0; i < a.n(3); ++i) {
                 shown += "0123456789abcdef"[out[i] >> 4];
                 shown += "0123456789abcdef"[out[i] & 15];
             }
         }
         return std::to_string(rc) + " " + shown;
     }},
    {"ChooseNetDevice", [](Args &a) { return cases::q(COM_ChooseNetDevice(a.s(0))); }},
    {"GetMAC", family(COM_GetMAC)},
    {"SubGetNetInfo", family(COM_SubGetNetInfo)},
    {"GetDNSServer", family(COM_GetDNSServer)},
    {"SubGetGateway", family(COM_SubGetGateway)},
});

} // namespace
