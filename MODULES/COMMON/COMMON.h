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
/* Everything declared here is the library's interface: it alone leaves the
 * shared library, whose objects are built with hidden visibility. */
#if defined(__GNUC__)
#pragma GCC visibility push(default)
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

/* Makes a path with all its parents (prefix buffer of 256 bytes); what is
 * there stays. */
int COM_Mkdir(const char *path, mode_t mode);

/* Clears a directory: every entry but ".", ".." and "lost+found" that is no
 * directory is unlinked; directories are cleared and removed too when
 * recursive is exactly 1. With removeSelf set the directory itself is removed
 * last. Returns the count of removed entries, or -1 when an entry failed
 * (entries that could go are gone). A refused or unreadable directory gives 0. */
int _COM_RemoveFileInDir_(int recursive, const char *dirPath, int removeSelf);
int COM_RemoveDirAndFile(int recursive, const char *dirPath);
int COM_RemoveFileInDir(int recursive, const char *dirPath);

/* Removes the file a path stands for: a link's target, or the path itself. */
int COM_RemoveRealFile(const char *path);
/* Makes linkPath point to targetPath, replacing what is at linkPath when the
 * target exists or force is non-zero. */
int COM_CreateSymbolLink(int force, const char *targetPath, const char *linkPath);
/* Turns linkPath into a link to targetPath, carrying a regular file at
 * linkPath over to the target when the target does not exist yet. */
int COM_RelocateAndLink(const char *targetPath, const char *linkPath);

/* Names what a descriptor stands for (the text of /proc/<pid>/fd/<fd>). */
#define COM_FD_INFO_SIZE 128
int COM_GetFdInfo(int fd, char *pOut, int verbose);

/* Moves a file by copying it (works across file systems), then unlinks the
 * source. The source stays whenever the copy is not complete. */
int COM_RenameFile(const char *srcPath, const char *dstPath);
/* Copies a regular file; destination first. */
int COM_CopyFile(const char *dstPath, const char *srcPath);

/* One read of len bytes: 0 when all were read, 1 for some, otherwise what
 * read() returned; -1 when the file can't be opened. */
int COM_ReadDataFromFile(const char *path, void *pBuf, int len);
/* Creates or truncates the file and writes len bytes: 0 when all were
 * written, 1 for some, otherwise what write() returned; -1 when the file
 * can't be opened. */
int COM_SaveDataIntoFile(const char *path, const void *pData, int len);

/* Appends the first line of a one-line file to the string in pBuf (len bytes
 * in all). On failure the buffer holds "unknown", cut to fit. */
int COM_GetFileContent(const char *pFileName, char *pBuf, int len);
/* Replace / append the text of a file; 0 only if at least one byte went. */
int COM_SetFileContent(const char *pFileName, const char *pBuf);
int COM_AppendFileContent(const char *pFileName, const char *pBuf);
/* Appends one file to another; returns the bytes appended, or -1 (also for
 * an empty source). */
int COM_File2FileAppend(const char *dstPath, const char *srcPath);

/* Creates a device node unless something is at the path already. */
int COM_MakeNode(const char *path, unsigned int mode, dev_t dev);
/* Writes the identity text to the file "ID" in a directory. */
int COM_SaveID(const char *dirPath, const char *id);
/* Complements every byte of the buffer. */
int COM_InvertBytes(void *pBuf, int len);
/* The value of the environment variable "PWD", or null. */
char *COM_GetPwd(void);

/* ===================================================== item replacement */

#define COM_ITEM_KEY_SIZE 160
#define COM_ITEM_VALUE_SIZE 160

/* One key and the line that takes the place of the line it matches. */
typedef struct COM_ITEM {
    int keyLen; /* characters of key compared; set to 0 once matched,
                   0 (or less) on entry: the item takes no part */
    char key[COM_ITEM_KEY_SIZE];
    char value[COM_ITEM_VALUE_SIZE]; /* the whole new line without its line feed;
                                        empty: the matched line is removed */
} COM_ITEM;

typedef struct COM_ITEM_LIST {
    int count;         /* entries in items */
    int findOnly;      /* non-zero: search only, the file stays as it is */
    int anywhere;      /* non-zero: key found anywhere in the line, case sensitive;
                          zero: the line begins with the key, case ignored */
    int appendMissing; /* non-zero: values of items that matched no line are added at the end */
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
    const char *name;        /* may be null */
    int found;               /* out: processes that matched in the last pass */
    void (*onMissing)(void); /* may be null; called when none matched */
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

/* Case-insensitive substring search; null if absent or an argument is null. */
char *COM_StrCaseStr(const char *text, const char *key);
int COM_StrToUpper(char *pOut, const char *text);
int COM_StrToLower(char *pOut, const char *text);

/* Extractors: find key (ignoring case) and copy the value behind it to pOut
 * (size bytes, terminator included; longer values are cut and reported).
 * They return the place behind the key, or null; see each for empty values. */
char *COM_GetStrInDoubleQuotes(const char *text, const char *key, char *pOut, int size);
char *COM_GetStrInSingleQuotes(const char *text, const char *key, char *pOut, int size);
char *COM_GetStrBeforeNewLine(const char *text, const char *key, char *pOut, int size);
char *COM_GetStrBeforeSpace(const char *text, const char *key, char *pOut, int size);

/* Stores the first two decimal numbers of the first length characters;
 * returns how many were stored. */
int COM_GetTwoNumbers(const char *text, int length, int *pFirst, int *pSecond);

/* The content of <tag>...</tag>: returns its start in the text, or null. */
char *COM_GetXMLData(const char *xml, const char *tag, char *pOut, int size);
/* The text between "<tag" and the next ">": returns the place behind ">". */
char *COM_GetXMLAttribute(const char *xml, const char *tag, char *pOut, int size);

#define COM_XML_NAME_SIZE 80
#define COM_XML_TEXT_SIZE 256
#define COM_XML_TYPE_INT 0   /* "INT": a number with a list of choices */
#define COM_XML_TYPE_TEXT 1  /* "VIRTKB" or "TEXT" */
#define COM_XML_TYPE_OTHER 2 /* any other type word */
typedef struct COM_XML_ITEM {
    char name[COM_XML_NAME_SIZE]; /* in: the name to look for (by prefix) */
    int type;
    int min;
    int max;
    int value;
    char text[COM_XML_TEXT_SIZE]; /* the text value, or the choices joined by "," */
} COM_XML_ITEM;

/* Reads the DATA element whose Name begins with pItem->name; 0, or -1. */
int COM_ParserXmlData(const char *xml, COM_XML_ITEM *pItem);

/* Reads fd to its end and stores only its hexadecimal digits, unterminated,
 * in the growing buffer *ppBuf; returns their count, or -1 for fd < 0. */
int COM_ReadHexDataInStrFormat(int fd, char **ppBuf);

/* Resizes a growing buffer: ppBuf is the address of the owner's pointer (of
 * any object pointer type, null or a heap block). The block is reallocated
 * to newSize, cleared from offset to its end, and srcLen bytes of src are
 * copied to offset. Returns the new address, or null with the owner's block
 * unchanged. */
void *COM_ReallocAndCopyBuf(int newSize, void *ppBuf, int offset, const void *src, int srcLen);

/* ===================================================== HTTP and RTSP commands */

/* Command kinds: the word each puts in the Digest hash, and the request sent.
 * Kinds 4 to 8 (and any other number) build no request: an empty send is made
 * and the answer read; an RTSP request goes out whole through
 * COM_SendRawHttpCmd. */
#define HTTP_CMD_GET 0          /* "GET": GET template */
#define HTTP_CMD_POST 1         /* "POST": form POST with the data as body */
#define HTTP_CMD_POST_HEADERS 2 /* "POST": POST start, the data brings the rest */
#define HTTP_CMD_RAW 3          /* "POST": the data, unchanged */
#define RTSP_CMD_OPTIONS 4
#define RTSP_CMD_DESCRIBE 5
#define RTSP_CMD_SETUP 6
#define RTSP_CMD_PLAY 7
#define RTSP_CMD_TEARDOWN 8

#define COM_HTTP_REQUEST_SIZE 4096 /* the request, and the receive block */
#define COM_HTTP_HOST_SIZE 80      /* host part of a command address, terminated */
#define COM_HTTP_AUTH_TEXT_SIZE 512
#define COM_HTTP_DEFAULT_PORT 80

#define COM_HTTP_AUTH_NONE 0
#define COM_HTTP_AUTH_BASIC 1
#define COM_HTTP_AUTH_DIGEST 2

/* The caller's authentication record: the caller sets type, username and
 * password and zeroes the rest before first use; the Digest challenge (realm,
 * qop, nonce, opaque) stays between commands until the caller clears nonce.
 * Only chars follow type, so the layout is the same on the board and the
 * host: 528 bytes. */
typedef struct COM_HTTP_AUTH {
    int32_t type; /* COM_HTTP_AUTH_...; other values count as none */
    char username[28];
    char password[32];
    char realm[80];
    char qop[16];
    char nonce[80];
    char opaque[80];
    char nc[16];
    char ha1[48];
    char cnonce[48];
    char ha2[48];
    char response[48];
} COM_HTTP_AUTH;

struct sockaddr_in;

/* A command address is host, host:port, host/path or host:port/path (no
 * scheme). The answer goes to *out (null or a heap block on entry; the caller
 * frees it after a positive result): the body, or header and body with
 * keep_header, and a terminating zero. Result: bytes stored with the zero; 0
 * if nothing was stored; -1 on failure. */
int COM_SubGetPostHttpContent(const char *url, char **out, COM_HTTP_AUTH *auth, int kind,
                              const char *data, int keep_header, const char *cookie, int https);
/* One exchange with one address; -1 also when it can't be connected. */
int COM_SubSendHttpCmd(const struct sockaddr_in *peer, const char *host, const char *authText,
                       const char *path, char **out, COM_HTTP_AUTH *auth, int kind,
                       const char *data, int keep_header, const char *cookie, int https);

int COM_GetHttpContent(const char *url, char **out, COM_HTTP_AUTH *auth);
int COM_GetHttpsContent(const char *url, char **out, COM_HTTP_AUTH *auth);
int COM_PostHttpContent(const char *url, char **out, COM_HTTP_AUTH *auth, const char *data);
int COM_PostHttpHeaders(const char *url, char **out, COM_HTTP_AUTH *auth, const char *data);
int COM_GetHttpHeaderAndContent(const char *url, char **out, COM_HTTP_AUTH *auth);
int COM_PostHttpHeaderAndContent(const char *url, char **out, COM_HTTP_AUTH *auth,
                                 const char *data);
int COM_PostHttpsHeaderAndContent(const char *url, char **out, COM_HTTP_AUTH *auth,
                                  const char *data);
int COM_GetHttpContentWithCookie(const char *url, char **out, COM_HTTP_AUTH *auth,
                                 const char *cookie);
int COM_PostHttpContentWithCookie(const char *url, char **out, COM_HTTP_AUTH *auth,
                                  const char *data, const char *cookie);
int COM_SendRawHttpCmd(const char *url, char **out, COM_HTTP_AUTH *auth, const char *data);
/* The answer of COM_GetHttpContent without its markup. */
int COM_GetHttpPlainText(const char *url, char **out, COM_HTTP_AUTH *auth);

/* The text that closes a request header, into out (COM_HTTP_AUTH_TEXT_SIZE
 * bytes): an Authorization line and the blank line, or the blank line alone.
 * For Digest without a nonce the challenge is fetched first. */
void COM_MakeHttpAuthHeader(const char *method, const char *url, COM_HTTP_AUTH *auth, char *out);
int COM_GetHttpDigestChallenge(const char *url, COM_HTTP_AUTH *auth);
/* 0 if the answer holds a Digest challenge (stored in auth), otherwise -1. */
int COM_ParseHttpDigestChallenge(const char *answer, COM_HTTP_AUTH *auth);

/* ===================================================== HTML and socket helpers */

/* The text without tags, a line-break tag becoming a newline (also in html).
 * Bytes stored in *out with the zero, or -1 if nothing. */
int COM_StripHtmlCode(char *html, char **out);
/* The first element of the name (nesting counted, case ignored) in a new
 * block at *out; its size with the zero, or -1. */
int COM_ExtractHtmlTag(const char *tag, const char *html, char **out, int include_tag);
int COM_SetSocketTimeout(int sock, int seconds);
/* Bytes left unsent: 0 is success. */
int COM_SendAll(int sock, const void *bytes, int length);
/* Copies count bytes between areas of which either may be a ring (size > 0)
 * or plain (size <= 0). 0, or -1 when nothing was copied. */
int COM_RingCopy(void *dst, int dst_off, int dst_size, const void *src, int src_off, int src_size,
                 int count);

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

/* --- H.264 Annex B streams and the two bit readers ---------------------- */

/* Reader of an RBSP: takes emulation prevention bytes (the 3 of 00 00 03) out
 * of the payload as it fetches. cache holds the next 32 payload bits from a
 * byte boundary; offset counts the bits of it already used (0 to 7). Bytes at
 * or past end read as zero. */
typedef struct COM_RBSP_READER {
    const uint8_t *cur;
    const uint8_t *end;
    uint32_t cache;
    uint8_t offset;
} COM_RBSP_READER;

/* Sequence parameter set, from the byte behind the NAL header: stores the
 * profile (when profile is not null), then the coded width and height in
 * pixels. Returns 0, 1 for a log2_max_pic_order_cnt_lsb_minus4 above 12, or 2
 * for more than 255 reference frames in a cycle. reserved is not used. */
int COM_ProcH264SPS(const uint8_t *sps, int32_t *width, int32_t *height, int reserved,
                    int32_t *profile);
/* Slice header from the byte behind the NAL header: 1 for I and SI, 2 for P
 * and SP, 3 for B, 0 otherwise. */
int COM_GetH264SliceType(const uint8_t *data);
/* Offset of the first 00 00 00 01 start code with its header byte inside len,
 * or -1; stores the unit's nal_unit_type when type is not null. */
int32_t COM_FindH264NAL(const uint8_t *data, int32_t len, int32_t *type);
/* Offset of the start code of the first SEI unit, or -1; stores the payload
 * type and size of its first message. */
int32_t COM_FindH264SEI(const uint8_t *data, int32_t len, int32_t *payload_type,
                        int32_t *payload_size);

/* Plain bit reader: n bits, most significant first, from *ppData, whose
 * present byte has *pBitsLeft (1 to 8) bits left. */
uint32_t COM_ReadBits(const uint8_t **ppData, int *pBitsLeft, int n);

void COM_RbspInit(COM_RBSP_READER *reader, const uint8_t *data, int32_t len);
void COM_RbspSkip(COM_RBSP_READER *reader, int32_t n);
/* n bits, 1 to 24 at a time; 0 for n below 1. */
uint32_t COM_RbspRead(COM_RBSP_READER *reader, int32_t n);
uint32_t COM_RbspReadUE(COM_RBSP_READER *reader);
int32_t COM_RbspReadSE(COM_RBSP_READER *reader);

uint8_t COM_ReverseBits8(uint8_t value);
uint32_t COM_SwapBytes32(uint32_t value);

/* --- JPEG and MPEG-4 Visual headers -------------------------------------- */

/* data points at the second byte of a start-of-frame marker (FF Cn). A
 * three-component segment stores width and height and returns 0 if both are
 * above 0; any other segment length returns -1 and stores nothing. */
int COM_ProcJpegSOF(const uint8_t *data, int32_t *width, int32_t *height);
/* data points behind the video object layer start code (00 00 01 2x). Stores
 * the displayed size (halved for interlaced streams) and, for a fixed VOP
 * rate, the frame rate in hundredths of a frame a second. 0 or -1. */
int COM_ProcMpeg4VOL(const uint8_t *data, int32_t *width, int32_t *height, int32_t *fps);

/* --- Quoted-printable, Base64, audio codec names -------------------------- */

/* dst holds 3 * len + 1 characters. Every byte becomes "=XX". */
int32_t COM_EncodeQP(char *dst, const void *src, int32_t len);
/* Bytes written to dst (not terminated); dst holds strlen(text) bytes. */
int32_t COM_DecodeQP(void *dst, const char *text);
/* dst holds 4 characters for each started group of 3 bytes, plus 1. */
int32_t COM_EncodeBase64(char *dst, const void *src, int32_t len);
/* Bytes written to dst (not terminated); dst holds strlen(text) bytes.
 * Characters outside the alphabet are skipped. */
int32_t COM_DecodeBase64(void *dst, const char *text);
/* Sets *value to 8 (kHz, the clock rate of every format listed) and *codec to
 * the code of an RTP audio format name, or 0 for an unknown name. Returns 0. */
int COM_GetAudioCodecId(const char *name, int32_t *value, int32_t *codec);

/* --- MD5 and SHA-1 -------------------------------------------------------- */

#define COM_MD5_TEXT_SIZE 32 /* hexadecimal digits, written without a terminator */
#define COM_SHA1_SIZE 20     /* raw digest bytes */

void COM_MakeBufMD5(char *out, const void *data, size_t len);
void COM_MakeStrMD5(char *out, const char *text);
/* Leaves out as it was when the file can't be opened. */
void COM_MakeFileMD5(char *out, const char *path);
/* Checks path against the md5sum text line in path + suffix (".md5" when
 * suffix is null). 0 if they match, otherwise -1. */
int COM_CheckFileMD5(const char *path, const char *suffix);

/* A null text counts as empty. */
void COM_MakeStrSHA1(uint8_t *out, const char *text);
void COM_MakeBufSHA1(uint8_t *out, const void *data, size_t len);
void COM_MakeFileSHA1(uint8_t *out, const char *path);

/* ===================================================== network interface information */

/* Query flags of COM_GetNetInfo: each names an item and the form of the result.
 * Hardware addresses: hexadecimal text (12, 8 or 6 digits, terminated), colon
 * text (17, 11 or 8 characters, terminated) or raw bytes (3 or 2, no
 * terminator). Addresses: plain dotted text (16 bytes), padded dotted text
 * "%03d.%03d.%03d.%03d" (16 bytes) or a raw 32-bit word in network byte
 * order. The MTU is one 32-bit integer. */
enum {
    NETINFO_MAC_HEX = 0,
    NETINFO_MAC_HEX_LOWER = 1,
    NETINFO_MAC_HEX_TAIL4 = 2,
    NETINFO_MAC_HEX_TAIL3 = 3,
    NETINFO_MAC_COLON = 4,
    NETINFO_MAC_COLON_TAIL4 = 5,
    NETINFO_MAC_COLON_TAIL3 = 6,
    NETINFO_MAC_RAW_TAIL3 = 7,
    NETINFO_MAC_RAW_TAIL2 = 8,
    /* A neighbour's hardware address from the ARP table; dev is then the
     * neighbour's address as dotted text. */
    NETINFO_ARP_HEX = 9,
    NETINFO_ARP_HEX_LOWER = 10,
    NETINFO_ARP_HEX_TAIL4 = 11,
    NETINFO_ARP_HEX_TAIL3 = 12,
    NETINFO_ARP_COLON = 13,
    NETINFO_ARP_COLON_TAIL4 = 14,
    NETINFO_ARP_COLON_TAIL3 = 15,
    NETINFO_ARP_RAW_TAIL3 = 16,
    NETINFO_ARP_RAW_TAIL2 = 17,
    NETINFO_IP_TEXT = 18,
    NETINFO_IP_PADDED = 19,
    NETINFO_IP_RAW = 20,
    NETINFO_BROADCAST_TEXT = 21,
    NETINFO_BROADCAST_PADDED = 22,
    NETINFO_BROADCAST_RAW = 23,
    NETINFO_NETMASK_TEXT = 24,
    NETINFO_NETMASK_PADDED = 25,
    NETINFO_NETMASK_RAW = 26,
    NETINFO_GATEWAY_TEXT = 27,
    NETINFO_GATEWAY_PADDED = 28,
    NETINFO_GATEWAY_RAW = 29,
    /* The text forms of the name servers are the token as the file writes
     * it, cut to 15 characters. */
    NETINFO_DNS1_TEXT = 30,
    NETINFO_DNS1_PADDED = 31,
    NETINFO_DNS2_TEXT = 32,
    NETINFO_DNS2_PADDED = 33,
    NETINFO_DNS1_RAW = 34,
    NETINFO_DNS2_RAW = 35,
    NETINFO_MTU = 36
};

/* One entry of an interface-name list: at most 15 characters and a
 * terminator. A list is one heap array of entries, freed by the caller. */
#define COM_NET_DEV_NAME_SIZE 16
typedef char COM_NET_DEV_NAME[COM_NET_DEV_NAME_SIZE];

/* Answers one query flag for an interface (dev may be null: "eth0"; "auto":
 * chosen from /etc/network/interfaces). On failure out still holds a
 * printable fallback ("000.000.000.000", zeros or "unknown"). */
int COM_GetNetInfo(int flag, const char *dev, void *out);
/* The interface to use for dev: "eth0" for null, "eth0" or "ppp0" for
 * "auto", dev itself otherwise. */
const char *COM_ChooseNetDevice(const char *dev);
/* The members of COM_GetNetInfo's families; each takes a flag of its own
 * family and writes that flag's form. */
int COM_GetMAC(int flag, const char *dev, void *out);
int COM_GetMACViaARP(int flag, const char *dev, void *out);
int COM_SubGetNetInfo(int flag, const char *dev, void *out);
int COM_SubGetGateway(int flag, const char *dev, void *out);
int COM_GetDNSServer(int flag, const char *dev, void *out);
int COM_GetMTU(int flag, const char *dev, void *out);
/* Lists the interface names of a /proc/net table into a new heap array;
 * *list must be null on entry. Returns the count, or -1. */
int COM_GetDeviceFromProc(COM_NET_DEV_NAME **list, const char *path);
int COM_GetNetDevices(COM_NET_DEV_NAME **list);
int COM_GetWirelessDevices(COM_NET_DEV_NAME **list);
/* Brings an interface up or down through /sbin/ifconfig; -1 at once when the
 * real user is not root, otherwise COM_System's result. */
int COM_NetDeviceUp(const char *dev);
int COM_NetDeviceDown(const char *dev);
/* Parses "address[/prefix|/mask| mask]" into network-byte-order words; the
 * mask is 0xFFFFFFFF unless a valid one is given. */
int COM_ConvertNetworkAddr(const char *text, uint32_t *addr, uint32_t *mask);

/* ===================================================== unit identity and UDP broadcast */

/* The unit record; callers pass arrays of it, so its layout is fixed: 264
 * bytes on every target, text arrays at the offsets below, mtu and the
 * reserved word at 256 and 260. */
typedef struct COM_UNIT_INFO {
    char model[32];
    char proj[32];
    char name[32];
    char ip[16];
    char trigger_port[8];
    char netmask[16];
    char gateway[16];
    char dns[16];
    char mac[24];
    char dev[16];
    char note[48];
    int32_t mtu;
    /* Kept for the calling programs; this library never reads or writes it. */
    uint32_t reserved;
} COM_UNIT_INFO;

#define COM_UDP_PAYLOAD_MAX 1500

int COM_GetUnitModel(char *buf, int size);
int COM_GetUnitProj(char *buf, int size);
int COM_GetUnitName(char *buf, int size);
int COM_GetUnitNote(char *buf, int size);
int COM_GetUnitPort(char *buf, int size);
int COM_SetUnitModel(const char *model);
int COM_SetUnitProj(const char *proj);
int COM_SetUnitName(const char *name);
int COM_SetUnitNote(const char *note);
int COM_SetUnitPort(int port);
/* Fills every member; 0, or minus the number of members (note aside) that
 * failed. */
int COM_GetUnitInfo(COM_UNIT_INFO *info, const char *dev);
int COM_SetUnitInfo(const COM_UNIT_INFO *info);
/* First minus second address, for sorting records by address. */
int COM_CompareUnitIp(const COM_UNIT_INFO *first, const COM_UNIT_INFO *second);
void COM_ShowUnitInfo(const COM_UNIT_INFO *info);
void COM_ShowAllUnitInfo(int count, const COM_UNIT_INFO *infos);
/* Sends the payload (at most 1500 bytes) as link-level UDP broadcasts to
 * port: 0.0.0.0 to 255.255.255.255, then, with dev given and configured, the
 * interface's address to its broadcast address. */
int COM_SendUDPBroadcast(const char *dev, uint16_t port, const void *data, uint32_t data_sz);
/* The Internet checksum (RFC 1071) over len bytes, to be stored as is. */
uint16_t COM_IpChecksum(const void *data, int len);

#if defined(__GNUC__)
#pragma GCC visibility pop
#endif
#ifdef __cplusplus
}
#endif

#endif /* DVR_COMMON_H */
