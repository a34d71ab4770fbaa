/*
 * COMMON: the shared foundation of the recorder's programs: log, files, text,
 * processes, threads, terminals, system information, network queries, unit
 * identity, HTTP client, codecs and digests.
 *
 * Plain C interface: every record is a plain struct owned by the caller, every
 * operation a plain function. Results are 0 for success and -1 for failure
 * unless an operation says otherwise.
 */
#ifndef DVR_COMMON_H
#define DVR_COMMON_H

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>
#include <termios.h>
#include <time.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define COM_PRINTF_LIKE(f, a) __attribute__((format(printf, f, a)))
#else
#define COM_PRINTF_LIKE(f, a)
#endif

/* ===================================================== descriptors */

/* Closes *pFd when it is a valid descriptor and sets it to -1. Returns what
 * close() returned, or -1 for a null pointer or a negative descriptor. */
int COM_SafeClose(int *pFd);

/* ===================================================== log and debug dumps */

/* The one log call: formats the message and prints it on standard output
 * behind "file,line:function(): " (or "file,line: " when func is null). */
int COM_Printf(const char *file, int line, const char *func, const char *fmt, ...)
    COM_PRINTF_LIKE(4, 5);

void COM_DumpHex(const char *title, const void *data, int length);
void COM_DumpHexChars(const char *title, const void *data, int length);

/* One entry of a flag-name table; a table ends with an entry whose name is
 * empty. */
#define COM_FLAG_NAME_SIZE 12
typedef struct COM_FLAG_NAME {
    uint32_t value;
    char name[COM_FLAG_NAME_SIZE];
} COM_FLAG_NAME;

extern const COM_FLAG_NAME gTermIFlagTable[];
extern const COM_FLAG_NAME gTermOFlagTable[];
extern const COM_FLAG_NAME gTermCFlagTable[];
extern const COM_FLAG_NAME gTermLFlagTable[];
extern const COM_FLAG_NAME gTermCcTable[];

void COM_ShowTermios(const char *title, const struct termios *pTerm);
void COM_ShowTermFlags(const char *label, uint32_t flags, const COM_FLAG_NAME *table);

#define COM_TIME_TEXT_SIZE 32
int COM_FormatTime(char *out, time_t seconds);
int COM_ShowTime(const char *file, int line, time_t seconds);
int COM_ShowCurrentTime(const char *file, int line);
struct tm *COM_GmTime(struct tm *out, time_t seconds);

/* ===================================================== files and directories */

/* ===================================================== item replacement */

/* ===================================================== process control */

/* ===================================================== threads */

/* ===================================================== text and markup */

/* ===================================================== terminals and serial */

/* ===================================================== system information */

/* ===================================================== codecs and digests */

#ifdef __cplusplus
}
#endif

#endif /* DVR_COMMON_H */
