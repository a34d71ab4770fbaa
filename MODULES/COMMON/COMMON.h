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
#include <pthread.h>
#include <sys/time.h>
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

/* One registered thread. A record with pid 0 ends the table. */
#define COM_THREAD_STATE_SIZE 4
#define COM_THREAD_NAME_SIZE 76
typedef struct COM_THREAD_RECORD {
    int pid;
    char state[COM_THREAD_STATE_SIZE]; /* state letter(s) of the last check */
    int32_t memUsage;                  /* running total, in the caller's unit */
    char name[COM_THREAD_NAME_SIZE];
} COM_THREAD_RECORD;

/* The watchdog's state; its address is the watchdog thread's argument. */
typedef struct COM_THREAD_WATCHDOG {
    pthread_t thread;
    struct timespec period;
} COM_THREAD_WATCHDOG;

extern COM_THREAD_RECORD *gThreadTable; /* guarded by gThreadLock */
extern pthread_mutex_t gThreadLock;
extern pthread_t gThreadWatchdog;
extern struct timespec gThreadPeriod;

int COM_LogThread(const char *name);
int COM_LogThreadMemUsage(int amount);
void COM_ShowThread(void);
int COM_CreateThreadWatchdog(int periodSeconds);
int COM_DestroyThreadWatchdog(void);
void *COM_ThreadWatchdog(void *arg);
int COM_CheckThreadState(COM_THREAD_RECORD *pRecord);

/* ===================================================== text and markup */

/* ===================================================== terminals and serial */

#define COM_TERM_NAME_SIZE 80
typedef struct COM_TERM_DEV_INFO {
    char name[COM_TERM_NAME_SIZE]; /* path of the open device */
    int fd;                        /* negative when closed */
    int direction;                 /* 0 read only, 1 write only, 2 read and write */
    int speed;                     /* B9600 ... */
    struct termios oldTermios;     /* settings found at open, put back at close */
    struct termios newTermios;     /* settings in force */
} COM_TERM_DEV_INFO;

/* 0; -2 if the device can't be opened; -1 if its settings couldn't be read or
 * set (the device is then open and must still be closed). */
int COM_OpenTermDevice(const char *path, COM_TERM_DEV_INFO *pDevInfo);
int COM_CloseTermDevice(COM_TERM_DEV_INFO *pDevInfo);

/* Logical serial ports 0 to 4; the out buffer must hold COM_SERIAL_PATH_SIZE. */
#define COM_SERIAL_PATH_SIZE 32
int COM_GetSerialPort(int port, char *pName);

int COM_Sleep(int seconds, long nanoseconds, const char *file, int line);

/* ===================================================== system information */

#define COM_VERSION_ID "$Id: COMMON 7435 2011-10-18 09:27:20Z tesmar $"
/* Out buffers of COM_GetKernelVersion and COM_GetRevision must hold this. */
#define COM_VERSION_TEXT_SIZE 256

int COM_GetPciDeviceId(const char *key, uint32_t *ids, int capacity);
int COM_GetPciDevice(const char *key);
int COM_GetFreeMemAndSwap(int *pFreeMem, int *pFreeSwap);
void COM_GetKernelVersion(char *version, char *rest);
void COM_GetRevision(char *revision);
void COM_ShowVersion(void);
const char *COM_GetMimeType(const char *fileName);
int64_t COM_GetTimeMs(void);
int COM_TimevalSubtract(struct timeval *out, struct timeval *x, struct timeval *y);
int COM_SleepExact(const struct timespec *req, int maxRetries);

/* ===================================================== codecs and digests */

#ifdef __cplusplus
}
#endif

#endif /* DVR_COMMON_H */
