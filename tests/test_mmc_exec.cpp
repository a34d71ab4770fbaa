// The MMC executor against the fake drive: driver version, SG_IO failures,
// the outcome of failed commands, and the sense and reply dumps.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

#include "DEV.h"
#include "fake_scsi.h"
#include "test_support.h"

namespace {

using fake::logOf;
using fake::Sense;

// A READ DISC INFORMATION asking for length bytes, filled as a caller would.
struct Command {
    MmcCmd cmd{};
    uint8_t block[10] = {0x51, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    uint8_t sense[64] = {};
    uint8_t reply[256] = {};

    explicit Command(uint8_t length = 34)
    {
        strcpy(cmd.name, "(sr0) READ DISC INFORMATION");
        block[8] = length;
        cmd.hdr = {'S', SG_DXFER_FROM_DEV, 10, 64, 0, length, reply, block, sense, 20000, 0, 0, nullptr,
                   0, 0, 0, 0, 0, 0, 0, 0, 0};
    }
};

const std::string kAt = "mmc_exec.cpp,N:Dev_ExecMMC(): ";
const std::string kFail = kAt + "((sr0) READ DISC INFORMATION) Fail\n";
const std::string kSuccess = kAt + "((sr0) READ DISC INFORMATION) Success\n\n";
const std::string kSpecial = "Special case(sense, asc, ascq) = (0, 0, 0).\n";

std::string run(const fake::OpenDrive &open, Command &c, int verbose, int expect)
{
    return logOf([&] { EXPECT_EQ(Dev_ExecMMC(&c.cmd, open.fd, verbose), expect); });
}

TEST(MmcExec, DriverVersionAndIoctlFailures)
{
    struct Case {
        int version;
        unsigned long failing;
        int result;
        std::string log;
    };
    const Case cases[] = {
        {30000, 0, 0, ""},
        {29999, 0, -2, kAt + "\"(sr0) READ DISC INFORMATION\"(51h) ver. too old(29999)\n"},
        {30536, SG_GET_VERSION_NUM, -1, kAt + "ioctl() error : Input/output error\n"},
        {30536, SG_IO, -3, kAt + "(sr0) READ DISC INFORMATION (51h) SG_IO ioctl error : Input/output error\n"},
    };
    for (const Case &c : cases) {
        fake::OpenDrive open(fake::media::kCdRBlank);
        open.node->sgVersion = c.version;
        if (c.failing != 0) {
            open.node->failIoctl(c.failing, EIO);
        }
        Command cmd;
        EXPECT_EQ(run(open, cmd, 0, c.result), c.log);
        EXPECT_EQ(open.drive->issued().size(), c.result == 0 ? 1u : 0u) << c.version;
    }
}

TEST(MmcExec, FailedCommandOutcomes)
{
    struct Case {
        std::optional<Sense> sense;
        int verbose;
        int result;
        std::string log;
    };
    const Case cases[] = {
        {Sense{0x02, 0x3A, 0x00}, 0, -4, kFail},
        {std::nullopt, 0, 0, kFail + kSpecial},
        {std::nullopt, 2, 0, kFail + kSpecial},
        {Sense{0x00, 0x04, 0x00}, 0, -4, kFail},
        {Sense{0x00, 0x00, 0x01}, 2, -4, kFail},
        {Sense{0xF0, 0x00, 0x00}, 0, 0, kFail + kSpecial}, // only the low four bits are the key
        // Without sense data: no sense dump, the host status, and a success
        // after all, with the (zeroed) reply dumped.
        {std::nullopt, 1, 0,
         kAt + "(sr0) READ DISC INFORMATION host status = 0x07\n" + kFail + kSpecial + kSuccess +
             "0000h  00 00 00 00 " + std::string(36, ' ') + "|....|\n\n"},
        {Sense{0x02, 0x3A, 0x00}, 1, -4,
         kAt + "(sr0) READ DISC INFORMATION (51h) sense data :\n"
               " 0x70 0x00 0x02 0x00 0x00 0x00 0x00 0x0A 0x00 0x00\n"
               " 0x00 0x00 0x3A 0x00 0x00 0x00 0x00 0x00\n"
               "Sense Key = 0x02 \nAdditional Sense Code = 0x3A \nAdditional Sense Code Qualifier= 0x00\n" +
             kAt + "(sr0) READ DISC INFORMATION scsi status = 0x02\n" + kAt +
             "(sr0) READ DISC INFORMATION driver status = 0x08\n" + kFail},
    };
    fake::OpenDrive open(fake::media::kCdRBlank);
    for (const Case &c : cases) {
        open.drive->failNext(0x51, 1, c.sense);
        Command cmd(4);
        EXPECT_EQ(run(open, cmd, c.verbose, c.result), c.log);
    }
}

TEST(MmcExec, ReplyDumpRowsAndCharacters)
{
    fake::OpenDrive open(fake::media::kCdRBlank);
    Command eight(8);
    EXPECT_EQ(run(open, eight, 1, 0), kSuccess + "0000h  00 20 00 01 01 01 01 00 " + std::string(24, ' ') +
                                          "|. ......|\n\n");

    // A blank CD-R's disc information: the ATIP times in the second row.
    Command whole(34);
    EXPECT_EQ(run(open, whole, 1, 0), kSuccess +
                                          "0000h  00 20 00 01 01 01 01 00 00 00 00 00 00 00 00 00 |. ..............|\n"
                                          "0010h  00 61 1A 42 00 4F 3B 4A 00 00 00 00 00 00 00 00 |.a.B.O;J........|\n"
                                          "0020h  00 00 " + std::string(42, ' ') + "|..|\n\n");

    // Bytes from 0x20 on print as themselves, 0x7F and above included.
    open.drive->vendor = "AB\x7F\xC3";
    Command inquiry;
    inquiry.block[0] = 0x12;
    inquiry.block[4] = 16;
    inquiry.cmd.hdr.dxfer_len = 16;
    EXPECT_NE(run(open, inquiry, 1, 0).find("|.\x80..[...AB\x7F\xC3    |\n"), std::string::npos);
}

TEST(DiscInfoRecord, ShowsEveryField)
{
    DiscInfo info = {DISC_TYPE1_DVD_MINUS, DISC_TYPE2_RW, DISC_TYPE3_RESTRICTED_OVERWRITE, 2, 0,
                     DISC_STATUS_INCOMPLETE, -150, 56250, 3, 2, 4000000000u, 7, 8343424ull << 12, 5000000000ull};
    const std::string at = "disc_info.cpp,N:Dev_ShowDiscInfo(): ";
    EXPECT_EQ(logOf([&] { Dev_ShowDiscInfo(&info); }),
              at + "(type1, type2, type3) = (3, 3, 2)\n" + at + "(sub_type, reseved_flag, appendable) = (2, 0, 1)\n" +
                  at + "(last_lead_in, next_lead_in) = (-150, 56250)\n" + at +
                  "(last_track, total_session) = (3, 2)\n" + at + "(free_blocks, track_size) = (4000000000, 7)\n" +
                  at + "(total_capacity(KB), used_capacity(KB)) = (34174664704, 5000000000)\n");
    info = {};
    const std::string zero = logOf([&] { Dev_ShowDiscInfo(&info); });
    size_t zeros = 0;
    for (size_t at = 0; (at = zero.find(" = (0, 0", at)) != std::string::npos; ++at) {
        ++zeros;
    }
    EXPECT_EQ(zeros, 6u) << zero;
}

} // namespace
