/*
 * DEV: storage enumeration, mount table, mounting, SCSI generic map, disk
 * identity, temperature watch, device numbers, eject, modem, MMC commands and
 * disc classification.
 *
 * Plain C interface over caller-owned records.
 */
#ifndef DVR_DEV_H
#define DVR_DEV_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#ifdef __cplusplus
}
#endif

#endif /* DVR_DEV_H */
