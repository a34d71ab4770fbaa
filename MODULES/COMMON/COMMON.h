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

#define COM_ITEM_KEY_SIZE 160
#define COM_ITEM_VALUE_SIZE 160

/* One key and the line that takes the place of the line it matches. */
typedef struct COM_ITEM {
    int keyLen;                       /* characters of key compared; set to 0 once matched,
                                         0 (or less) on entry: the item takes no part */
    char key[COM_ITEM_KEY_SIZE];
    char value[COM_ITEM_VALUE_SIZE];  /* the whole new line without its line feed;
                                         empty: the matched line is removed */
} COM_ITEM;

typedef struct COM_ITEM_LIST {
    int count;          /* entries in items */
    int findOnly;       /* non-zero: search only, the file stays as it is */
    int anywhere;       /* non-zero: key found anywhere in the line, case sensitive;
                           zero: the line begins with the key, case ignored */
    int appendMissing;  /* non-zero: values of items that matched no line are added at the end */
    COM_ITEM *items;
} COM_ITEM_LIST;

/* Edits (or searches) a line-oriented text file by key, in place; a missing
 * file is created. Returns the number of items matched plus the number
 * appended, or -1. */
int COM_ReplaceItemsInFile(const char *path, COM_ITEM_LIST *list);

/* ===================================================== process control */

/* Called with each line of a command's output (a piece of at most 255
 * characters) and the caller's value, then once with a null line. */
typedef void (*COM_POPEN_LINE_FN)(char *line, uint32_t value);

/* One name a watch pass looks for: the beginning of a process's command line. */
typedef struct COM_WATCH_ITEM {
    const char *name;         /* may be null */
    int found;                /* out: processes that matched in the last pass */
    void (*onMissing)(void);  /* may be null; called when none matched */
} COM_WATCH_ITEM;

typedef struct COM_WATCH_LIST {
    int count;
    COM_WATCH_ITEM *items;
} COM_WATCH_LIST;

/* Splits the line at blanks and execv()s it, without a shell. Returns -1,
 * after reporting, only when the command could not be started. */
int COM_ParserCMD(const char *cmd);
/* Closes every descriptor above 2 that /proc/<pid>/fd lists. */
void COM_CloseFdExceptSTD(pid_t pid);
/* Runs a command without a shell and waits for it; *pPid holds the child's id
 * while it runs and 0 otherwise. Returns the raw wait status, or -1. */
int COM_System(const char *cmd, int *pPid);
/* Runs a command through popen() and hands its output to fn line by line.
 * Returns pclose()'s result, or -1. */
int COM_PopenRead(const char *cmd, uint32_t unused, uint32_t value, COM_POPEN_LINE_FN fn);
/* Writes the own process id, in decimal without a line feed, to path. */
int COM_SavePid(const char *path);
/* Sends SIGTERM to pid, then waits usec microseconds. */
int COM_KillPid(pid_t pid, uint32_t usec);
/* Sends sig to the first process whose command line begins with name, or to
 * pid when name is null. Returns kill()'s result, or -1 if nothing was sent. */
int COM_KillProcess(const char *name, pid_t pid, int sig);
/* One pass over /proc: counts the processes of each item's name and calls
 * onMissing for items that have none. */
int COM_WatchDog(COM_WATCH_LIST *list);

/* ===================================================== threads */

/* ===================================================== text and markup */

/* ===================================================== terminals and serial */

/* ===================================================== system information */

/* ===================================================== codecs and digests */

#ifdef __cplusplus
}
#endif

#endif /* DVR_COMMON_H */
