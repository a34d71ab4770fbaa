/*
 * DNS: A and MX lookups over UDP against the name servers of
 * /etc/resolv.conf.
 *
 * Plain C interface over caller-owned records.
 */
#ifndef DVR_DNS_H
#define DVR_DNS_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#ifdef __cplusplus
}
#endif

#endif /* DVR_DNS_H */
