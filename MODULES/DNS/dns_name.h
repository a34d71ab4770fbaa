/* Private to the DNS module: the name that goes into a query. */
#ifndef DVR_DNS_NAME_H
#define DVR_DNS_NAME_H

#include <string_view>

#include "DNS.h"

/* The part of a name argument that a query asks for: the text behind the first
 * "@", without a final point, which only says that the name is absolute. Empty
 * when there is nothing to ask for, or when the name is too long for the
 * packet buffer. */
inline std::string_view dnsQueryName(const char *pDomainName)
{
    std::string_view name(pDomainName);
    if (const size_t at = name.find('@'); at != std::string_view::npos) {
        name.remove_prefix(at + 1);
    }
    if (!name.empty() && name.back() == '.') {
        name.remove_suffix(1);
    }
    return name.size() <= DNS_MAX_NAME_LENGTH ? name : std::string_view();
}

#endif
