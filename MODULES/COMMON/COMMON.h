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

#ifdef __cplusplus
}
#endif

#endif /* DVR_COMMON_H */
