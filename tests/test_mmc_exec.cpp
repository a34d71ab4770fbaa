// The MMC executor against the fake drive: driver version, SG_IO failures,
// the outcome of failed commands, and the sense and reply dumps.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <scsi/sg.h>

#include "DEV.h"
#include "fake_scsi.h"
#include "test_support.h"

namespace {

using fake::Sense;

// A READ DISC INFORMATION asking for length bytes, filled as a caller would.
struct Command {
    MmcCmd cmd{};
    uint8_t block[10] = {0x51, 0, 0, 0, 0, 0, 0, 0, 0x22, 0};
    uint8_t sense[64] = {};
    uint8_t reply[256] = {};

    explicit Command(uint32_t length = 34)
    {
        strcpy(cmd.name, "(sr0) READ DISC INFORMATION");
        block[8] = static_cast<uint8_t>(length);
        cmd.hdr.interface_id = 'S';
        cmd.hdr.dxfer_direction = SG_DXFER_FROM_DEV;
        cmd.hdr.cmd_len = 10;
        cmd.hdr.mx_sb_len = 64;
        cmd.hdr.dxfer_len = length;
        cmd.hdr.dxferp = reply;
        cmd.hdr.cmdp = block;
        cmd.hdr.sbp = sense;
        cmd.hdr.timeout = 20000;
    }
};

class MmcExec : public testing::Test {
protected:
    fake::OpenDrive open{fake::media::kCdRBlank};

    std::string run(Command &c, int verbose, int expect)
    {
        return fake::withoutLineNumbers(
            fake::captureStdout([&] { EXPECT_EQ(Dev_ExecMMC(&c.cmd, open.fd, verbose), expect); }));
    }
};

TEST_F(MmcExec, DriverVersionAndIoctlFailures)
{
    struct Case {
        int version;
        unsigned long failing;
        int result;
        const char *log;
    };
    const Case cases[] = {
        {30000, 0, 0, ""},
        {29999, 0, -2, "mmc_exec.cpp,N:Dev_ExecMMC(): \"(sr0) READ DISC INFORMATION\"(51h) ver. too old(29999)\n"},
        {30536, SG_GET_VERSION_NUM, -1, "mmc_exec.cpp,N:Dev_ExecMMC(): ioctl() error : Input/output error\n"},
        {30536, SG_IO, -3,
         "mmc_exec.cpp,N:Dev_ExecMMC(): (sr0) READ DISC INFORMATION (51h) SG_IO ioctl error : Input/output error\n"},
    };
    for (const Case &c : cases) {
        fake::OpenDrive drive(fake::media::kCdRBlank);
        drive.node->sgVersion = c.version;
        if (c.failing != 0) {
            drive.node->failIoctl(c.failing, EIO);
        }
        Command cmd;
        const std::string log = fake::withoutLineNumbers(
            fake::captureStdout([&] { EXPECT_EQ(Dev_ExecMMC(&cmd.cmd, drive.fd, 0), c.result); }));
        EXPECT_EQ(log, c.log);
        EXPECT_EQ(drive.drive->issued().size(), c.result == 0 ? 1u : 0u) << c.version;
    }
}

TEST_F(MmcExec, FailedCommandOutcomes)
{
    const std::string fail = "mmc_exec.cpp,N:Dev_ExecMMC(): ((sr0) READ DISC INFORMATION) Fail\n";
    const std::string special = "Special case(sense, asc, ascq) = (0, 0, 0).\n";
    struct Case {
        std::optional<Sense> sense;
        int verbose;
        int result;
        std::string log;
    };
    const Case cases[] = {
        {Sense{0x02, 0x3A, 0x00}, 0, -4, fail},
        {std::nullopt, 0, 0, fail + special},
        {std::nullopt, 2, 0, fail + special},
        {Sense{0x00, 0x04, 0x00}, 0, -4, fail},
        {Sense{0x00, 0x00, 0x01}, 2, -4, fail},
        {Sense{0xF0, 0x00, 0x00}, 0, 0, fail + special}, // only the low four bits are the key
    };
    for (const Case &c : cases) {
        open.drive->failNext(0x51, 1, c.sense);
        Command cmd;
        EXPECT_EQ(run(cmd, c.verbose, c.result), c.log);
    }
}

TEST_F(MmcExec, VerboseFailureDumpsSenseAndStatus)
{
    open.drive->failNext(0x51, 1, Sense{0x02, 0x3A, 0x00});
    Command cmd;
    EXPECT_EQ(run(cmd, 1, -4),
              "mmc_exec.cpp,N:Dev_ExecMMC(): (sr0) READ DISC INFORMATION (51h) sense data :\n"
              " 0x70 0x00 0x02 0x00 0x00 0x00 0x00 0x0A 0x00 0x00\n"
              " 0x00 0x00 0x3A 0x00 0x00 0x00 0x00 0x00\n"
              "Sense Key = 0x02 \n"
              "Additional Sense Code = 0x3A \n"
              "Additional Sense Code Qualifier= 0x00\n"
              "mmc_exec.cpp,N:Dev_ExecMMC(): (sr0) READ DISC INFORMATION scsi status = 0x02\n"
              "mmc_exec.cpp,N:Dev_ExecMMC(): (sr0) READ DISC INFORMATION driver status = 0x08\n"
              "mmc_exec.cpp,N:Dev_ExecMMC(): ((sr0) READ DISC INFORMATION) Fail\n");
}

// No sense data: no sense dump, the host status, and a success after all,
// with the reply (all zero) dumped.
TEST_F(MmcExec, VerboseFailureWithoutSense)
{
    open.drive->failNext(0x51, 1, std::nullopt);
    Command cmd(4);
    EXPECT_EQ(run(cmd, 1, 0),
              "mmc_exec.cpp,N:Dev_ExecMMC(): (sr0) READ DISC INFORMATION host status = 0x07\n"
              "mmc_exec.cpp,N:Dev_ExecMMC(): ((sr0) READ DISC INFORMATION) Fail\n"
              "Special case(sense, asc, ascq) = (0, 0, 0).\n"
              "mmc_exec.cpp,N:Dev_ExecMMC(): ((sr0) READ DISC INFORMATION) Success\n\n"
              "0000h  00 00 00 00 " + std::string(36, ' ') + "|....|\n\n");
}

TEST_F(MmcExec, ReplyDumpRowsAndCharacters)
{
    const std::string success = "mmc_exec.cpp,N:Dev_ExecMMC(): ((sr0) READ DISC INFORMATION) Success\n\n";
    Command eight(8);
    EXPECT_EQ(run(eight, 1, 0), success + "0000h  00 20 00 01 01 01 01 00 " + std::string(24, ' ') +
                                    "|. ......|\n\n");

    // A blank CD-R's disc information: 34 bytes, the ATIP times in the third
    // and fourth words of the second row.
    Command whole(34);
    EXPECT_EQ(run(whole, 1, 0), success +
                                    "0000h  00 20 00 01 01 01 01 00 00 00 00 00 00 00 00 00 |. ..............|\n"
                                    "0010h  00 61 1A 42 00 4F 3B 4A 00 00 00 00 00 00 00 00 |.a.B.O;J........|\n"
                                    "0020h  00 00 " + std::string(42, ' ') + "|..|\n\n");

    // Bytes from 0x20 on print as themselves, 0x7F and above included.
    open.drive->vendor = "AB\x7F\xC3";
    Command inquiry(16);
    inquiry.block[0] = 0x12;
    inquiry.block[3] = 0;
    inquiry.block[4] = 16;
    const std::string dump = run(inquiry, 1, 0);
    EXPECT_NE(dump.find("|.\x80..[...AB\x7F\xC3    |\n"), std::string::npos) << dump;
}

TEST(DiscInfoRecord, ShowsEveryField)
{
    DiscInfo info{};
    std::string log = fake::withoutLineNumbers(fake::captureStdout([&] { Dev_ShowDiscInfo(&info); }));
    EXPECT_EQ(log, "disc_info.cpp,N:Dev_ShowDiscInfo(): (type1, type2, type3) = (0, 0, 0)\n"
                   "disc_info.cpp,N:Dev_ShowDiscInfo(): (sub_type, reseved_flag, appendable) = (0, 0, 0)\n"
                   "disc_info.cpp,N:Dev_ShowDiscInfo(): (last_lead_in, next_lead_in) = (0, 0)\n"
                   "disc_info.cpp,N:Dev_ShowDiscInfo(): (last_track, total_session) = (0, 0)\n"
                   "disc_info.cpp,N:Dev_ShowDiscInfo(): (free_blocks, track_size) = (0, 0)\n"
                   "disc_info.cpp,N:Dev_ShowDiscInfo(): (total_capacity(KB), used_capacity(KB)) = (0, 0)\n");
    info = {DISC_TYPE1_DVD_MINUS, DISC_TYPE2_RW, DISC_TYPE3_RESTRICTED_OVERWRITE, 2, 0,
            DISC_STATUS_INCOMPLETE, -150, 56250, 3, 2, 4000000000u, 7, 8343424ull << 12, 5000000000ull};
    log = fake::withoutLineNumbers(fake::captureStdout([&] { Dev_ShowDiscInfo(&info); }));
    EXPECT_NE(log.find("(type1, type2, type3) = (3, 3, 2)\n"), std::string::npos);
    EXPECT_NE(log.find("(sub_type, reseved_flag, appendable) = (2, 0, 1)\n"), std::string::npos);
    EXPECT_NE(log.find("(last_lead_in, next_lead_in) = (-150, 56250)\n"), std::string::npos);
    EXPECT_NE(log.find("(last_track, total_session) = (3, 2)\n"), std::string::npos);
    EXPECT_NE(log.find("(free_blocks, track_size) = (4000000000, 7)\n"), std::string::npos);
    EXPECT_NE(log.find("used_capacity(KB)) = (34174664704, 5000000000)\n"), std::string::npos);
}

} // namespace
