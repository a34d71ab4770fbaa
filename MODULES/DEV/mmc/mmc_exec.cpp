#include "DEV.h"
#include "com_log.h"
#include "fd_io.h"
#include "dev_endian.h"
#include "mmc_request.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/ioctl.h>

// The header is the kernel's SG_IO record: hold its layout on the board, and
// say what it is on a 64-bit host, where the pointers widen it.
static_assert(offsetof(sg_io_hdr_t, cmd_len) == 8);
static_assert(offsetof(sg_io_hdr_t, dxfer_len) == 12);
static_assert(offsetof(sg_io_hdr_t, dxferp) == 16);
static_assert(sizeof(void *) == 4 ? offsetof(sg_io_hdr_t, timeout) == 28
                                  : offsetof(sg_io_hdr_t, timeout) == 40);
static_assert(sizeof(void *) == 4 ? offsetof(sg_io_hdr_t, info) == 60
                                  : offsetof(sg_io_hdr_t, info) == 80);
static_assert(sizeof(sg_io_hdr_t) == (sizeof(void *) == 4 ? 64 : 88));
static_assert(sizeof(MmcCmd) == MMC_CMD_NAME_SIZE + sizeof(sg_io_hdr_t));

namespace {
constexpr int kMinSgVersion = 30000;
constexpr int kSenseBytesPerLine = 10;
constexpr int kReplyBytesPerRow = 16;
constexpr int kSenseKeyMask = 0x0F;
constexpr size_t kSenseKeyByte = 2;
constexpr size_t kSenseAscByte = 12;
constexpr size_t kSenseAscqByte = 13;

struct SenseCodes {
    uint8_t key;
    uint8_t asc;
    uint8_t ascq;
};

SenseCodes senseOf(const sg_io_hdr_t &hdr)
{
    if (hdr.sbp == nullptr || hdr.mx_sb_len <= kSenseAscqByte) {
        return {0, 0, 0};
    }
    return {static_cast<uint8_t>(hdr.sbp[kSenseKeyByte] & kSenseKeyMask), hdr.sbp[kSenseAscByte],
            hdr.sbp[kSenseAscqByte]};
}

void dumpSense(const sg_io_hdr_t &hdr)
{
    const int length = hdr.sbp != nullptr ? std::min<int>(hdr.sb_len_wr, hdr.mx_sb_len) : 0;
    for (int i = 0; i < length; ++i) {
        printf(" 0x%02X", hdr.sbp[i]);
        if ((i + 1) % kSenseBytesPerLine == 0) {
            printf("\n");
        }
    }
    printf("\n");
    const SenseCodes sense = senseOf(hdr);
    printf("Sense Key = 0x%02X \n", sense.key);
    printf("Additional Sense Code = 0x%02X \n", sense.asc);
    printf("Additional Sense Code Qualifier= 0x%02X\n", sense.ascq);
}

// Rows of 16: offset, bytes padded to 48 columns, the bytes as characters.
void dumpReply(const sg_io_hdr_t &hdr)
{
    const auto *bytes = static_cast<const uint8_t *>(hdr.dxferp);
    const unsigned length = bytes != nullptr ? hdr.dxfer_len : 0;
    for (unsigned row = 0; row < length; row += kReplyBytesPerRow) {
        const unsigned count = std::min<unsigned>(kReplyBytesPerRow, length - row);
        char text[kReplyBytesPerRow] = {}; // printed with its length, no terminator
        printf("%04xh  ", row);
        for (unsigned i = 0; i < count; ++i) {
            const uint8_t b = bytes[row + i];
            printf("%02X ", b);
            text[i] = b < 0x20 ? '.' : static_cast<char>(b);
        }
        printf("%*s|%.*s|\n", static_cast<int>((kReplyBytesPerRow - count) * 3), "",
               kReplyBytesPerRow, text);
    }
    printf("\n");
}

void reportFailure(const MmcCmd &cmd, uint8_t opcode)
{
    const sg_io_hdr_t &hdr = cmd.hdr;
    if (hdr.sb_len_wr != 0) {
        COM_LOG("Dev_ExecMMC", "%s (%02Xh) sense data :\n", cmd.name, opcode);
        dumpSense(hdr);
    }
    if (hdr.masked_status != 0) {
        COM_LOG("Dev_ExecMMC", "%s scsi status = 0x%02X\n", cmd.name, hdr.status);
    }
    if (hdr.host_status != 0) {
        COM_LOG("Dev_ExecMMC", "%s host status = 0x%02X\n", cmd.name, hdr.host_status);
    }
    if (hdr.driver_status != 0) {
        COM_LOG("Dev_ExecMMC", "%s driver status = 0x%02x\n", cmd.name, hdr.driver_status);
    }
}
} // namespace

int Dev_ExecMMC(MmcCmd *pCmd, int fd, int verbose)
{
    if (pCmd == nullptr) {
        return -1;
    }
    const bool details = verbose == 1;
    const uint8_t opcode = pCmd->hdr.cmdp != nullptr ? pCmd->hdr.cmdp[0] : 0;

    int version = 0;
    if (ioctl(fd, SG_GET_VERSION_NUM, &version) < 0) {
        COM_LOG_FAILED_CALL(__func__, "ioctl() error : %s\n");
        return -1;
    }
    if (version < kMinSgVersion) {
        COM_LOG(__func__, "\"%s\"(%02Xh) ver. too old(%d)\n", pCmd->name, opcode, version);
        return -2;
    }
    if (ioctl(fd, SG_IO, &pCmd->hdr) < 0) {
        COM_LOG_FAILED_CALL(__func__, "%s (%02Xh) SG_IO ioctl error : %s\n", pCmd->name, opcode);
        return -3;
    }

    int result = 0;
    if ((pCmd->hdr.info & SG_INFO_OK_MASK) != SG_INFO_OK) {
        if (details) {
            reportFailure(*pCmd, opcode);
        }
        COM_LOG(__func__, "(%s) Fail\n", pCmd->name);
        result = -4;
        // A command that failed without any sense data counts as done: the
        // sense buffer was zeroed before the first issue.
        const SenseCodes sense = senseOf(pCmd->hdr);
        if (sense.key == 0 && sense.asc == 0 && sense.ascq == 0) {
            printf("Special case(sense, asc, ascq) = (0, 0, 0).\n");
            result = 0;
        }
    }
    if (result == 0 && details) {
        COM_LOG(__func__, "(%s) Success\n\n", pCmd->name);
        dumpReply(pCmd->hdr);
    }
    return result;
}

namespace dev {

void MmcRequest::prepare(const char *pName, const char *title, std::initializer_list<uint8_t> bytes,
                         uint32_t replyLength)
{
    memset(this, 0, sizeof *this);
    snprintf(cmd.name, sizeof cmd.name, "(%s) %s", pName != nullptr ? pName : "", title);
    std::copy_n(bytes.begin(), std::min(bytes.size(), sizeof block), block);

    sg_io_hdr_t &hdr = cmd.hdr;
    hdr.interface_id = 'S';
    hdr.dxfer_direction = replyLength != 0 ? SG_DXFER_FROM_DEV : SG_DXFER_NONE;
    hdr.cmd_len = static_cast<unsigned char>(std::min(bytes.size(), sizeof block));
    hdr.mx_sb_len = kMmcSenseSize;
    hdr.dxfer_len = replyLength;
    hdr.dxferp = replyLength != 0 ? reply : nullptr;
    hdr.cmdp = block;
    hdr.sbp = sense;
    hdr.timeout = kMmcTimeoutMs;
}

int MmcRequest::issue(int fd, int verbose)
{
    memset(reply, 0, sizeof reply);
    return Dev_ExecMMC(&cmd, fd, verbose);
}

bool MmcRequest::readTwoStep(int fd, const ReplyLength &length)
{
    if (issue(fd, 0) != 0) {
        return false;
    }
    const uint32_t announced = be::get(reply + length.fieldOffset, length.fieldWidth);
    const uint32_t whole = std::min(announced + length.uncounted, length.limit);
    be::put16(block + length.allocOffset, whole);
    cmd.hdr.dxfer_len = whole;
    return issue(fd, 0) == 0;
}

} // namespace dev
