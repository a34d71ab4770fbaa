// Parsing of an address with an optional mask: "a.b.c.d", "a.b.c.d/len",
// "a.b.c.d/m.m.m.m" or the same with a blank.
#include "com_log.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {
constexpr size_t kTextCopySize = 256;
constexpr const char *kDelims = "/ \r\n";
constexpr int kPrefixMax = 32;

// The mask of len leading one bits, in network byte order.
uint32_t prefixMask(int len)
{
    return len == 0 ? 0 : htonl(0xFFFFFFFFu << (kPrefixMax - len));
}
} // namespace

int COM_ConvertNetworkAddr(const char *text, uint32_t *addr, uint32_t *mask)
{
    if (addr == nullptr || mask == nullptr) {
        return -1;
    }
    *addr = 0;
    *mask = 0xFFFFFFFFu;
    if (text == nullptr) {
        return -1;
    }
    char copy[kTextCopySize];
    snprintf(copy, sizeof copy, "%s", text);
    char *save = nullptr;
    const char *first = strtok_r(copy, kDelims, &save);
    if (first == nullptr) {
        return -1;
    }
    struct in_addr value {};
    if (inet_aton(first, &value) == 0) {
        COM_LOG(nullptr, "[%s][%s] is not a valid ip address\n", text, first);
        return -1;
    }
    *addr = value.s_addr;
    const char *second = strtok_r(nullptr, kDelims, &save);
    if (second == nullptr) {
        return 0;
    }
    if (strchr(second, '.') != nullptr) {
        if (inet_aton(second, &value) == 0) {
            COM_LOG(__func__, "[%s] is not a valid netmask\n", second);
        } else {
            *mask = value.s_addr;
        }
        return 0;
    }
    const int len = atoi(second);
    if (len < 0 || len > kPrefixMax) {
        COM_LOG(__func__, "offset : (%s, %d) : isn't resonable\n", second, len);
    } else {
        *mask = prefixMask(len);
    }
    return 0;
}
