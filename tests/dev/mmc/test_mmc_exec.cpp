// The MMC executor against the fake drive: driver version, SG_IO failures,
// the outcome of failed commands, the sense and reply dumps, and the block
// and header of every command.
#include <gtest/gtest.h>

#include <cerrno>

#include "DEV.h"
#include "fake_scsi.h"
#include "mmc_request.h"

namespace {

using fake::logOf;
using fake::Sense;

const std::string kAt = "mmc_exec.cpp,N:Dev_ExecMMC(): ";
const std::string kFail = kAt + "((sr0) READ DISC INFORMATION) Fail\n";
const std::string kSuccess = kAt + "((sr0) READ DISC INFORMATION) Success\n\n";
const std::string kSpecial = "Special case(sense, asc, ascq) = (0, 0, 0).\n";

// A command filled as the library fills them: by default a READ DISC
// INFORMATION asking for 34 bytes.
std::string run(const fake::OpenDrive &open, int verbose, int expect,
                std::initializer_list<uint8_t> block = {0x51, 0, 0, 0, 0, 0, 0, 0, 34, 0},
                uint32_t length = 34)
{
    static dev::MmcRequest r;
    r.prepare("sr0", "READ DISC INFORMATION", block, length);
    return logOf([&] { EXPECT_EQ(Dev_ExecMMC(&r.cmd, open.fd, verbose), expect); });
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
        {30536, SG_IO, -3,
         kAt + "(sr0) READ DISC INFORMATION (51h) SG_IO ioctl error : Input/output error\n"},
    };
    for (const Case &c : cases) {
        fake::OpenDrive open(fake::media::kCdRBlank);
        open.node->sgVersion = c.version;
        open.node->failures[c.failing] = EIO;
        EXPECT_EQ(run(open, 0, c.result), c.log);
        EXPECT_EQ(open.drive->issued.size(), c.result == 0 ? 1u : 0u) << c.version;
    }
}

TEST(MmcExec, FailedCommandOutcomes)
{
    struct Case {
        std::optional<Sense> sense;
        int verbose, result;
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
         kAt +
             "(sr0) READ DISC INFORMATION (51h) sense data :\n"
             " 0x70 0x00 0x02 0x00 0x00 0x00 0x00 0x0A 0x00 0x00\n"
             " 0x00 0x00 0x3A 0x00 0x00 0x00 0x00 0x00\n"
             "Sense Key = 0x02 \nAdditional Sense Code = 0x3A \nAdditional Sense Code Qualifier= "
             "0x00\n" +
             kAt + "(sr0) READ DISC INFORMATION scsi status = 0x02\n" + kAt +
             "(sr0) READ DISC INFORMATION driver status = 0x08\n" + kFail},
    };
    fake::OpenDrive open(fake::media::kCdRBlank);
    for (const Case &c : cases) {
        open.drive->failNext(0x51, 1, c.sense);
        EXPECT_EQ(run(open, c.verbose, c.result, {0x51, 0, 0, 0, 0, 0, 0, 0, 4, 0}, 4), c.log);
    }
}

TEST(MmcExec, ReplyDumpRowsAndCharacters)
{
    fake::OpenDrive open(fake::media::kCdRBlank);
    // A blank CD-R's disc information: the ATIP times in the second row.
    EXPECT_EQ(run(open, 1, 0),
              kSuccess +
                  "0000h  00 20 00 01 01 01 01 00 00 00 00 00 00 00 00 00 |. ..............|\n"
                  "0010h  00 61 1A 42 00 4F 3B 4A 00 00 00 00 00 00 00 00 |.a.B.O;J........|\n"
                  "0020h  00 00 " +
                  std::string(42, ' ') + "|..|\n\n");

    // Bytes from 0x20 on print as themselves, 0x7F and above included.
    open.drive->vendor = "AB\x7F\xC3";
    EXPECT_NE(run(open, 1, 0, {0x12, 0, 0, 0, 16, 0}, 16).find("|.\x80..[...AB\x7F\xC3    |\n"),
              std::string::npos);
}

// Every command goes out in the same header: only block, length and
// direction differ. A two-step read asks again for what the first reply
// announced, its length field and the bytes that field leaves out.
TEST(MmcExec, EveryCommandBlockAndHeader)
{
    fake::OpenDrive open(fake::media::kCdROneTrack);
    DiscInfo info = fake::discInfo(1, 2, 0, 0, 1);
    char model[DEV_INQUIRY_MODEL_SIZE];
    logOf([&] {
        Dev_TestUnitReady("sr0", open.fd);
        Dev_ReadBufferCapacity("sr0", open.fd);
        Dev_Inquiry("sr0", open.fd, model);
        Dev_GetConfiguration("sr0", open.fd, &info);
        Dev_ReadDiscInfo("sr0", open.fd, &info);
        Dev_ReadTrackInfo("sr0", open.fd, &info);
        Dev_ReadFormatCapacity("sr0", open.fd, &info);
        Dev_ReadCapacity("sr0", open.fd);
        Dev_ReadPreRecordedInfo("sr0", open.fd);
        Dev_ReadCdATIP("sr0", open.fd, &info);
        Dev_ReadCdToc("sr0", open.fd, &info);
    });
    using Bytes = std::vector<uint8_t>;
    const std::pair<Bytes, unsigned> expect[] = {
        {{0x00, 0, 0, 0, 0, 0}, 0},
        {{0x5C, 0, 0, 0, 0, 0, 0, 0, 0x0C, 0}, 12},
        {{0x12, 0, 0, 0, 0x60, 0}, 96},
        {{0x46, 0x01, 0, 0, 0, 0, 0, 0, 0x08, 0}, 8},
        {{0x51, 0, 0, 0, 0, 0, 0, 0, 0x22, 0}, 34},
        {{0x51, 0, 0, 0, 0, 0, 0, 0, 0x22, 0}, 34},
        {{0x52, 0x01, 0, 0, 0, 0x01, 0, 0, 0x24, 0}, 36},
        {{0x52, 0x01, 0, 0, 0, 0x01, 0, 0, 0x30, 0}, 48},
        {{0x23, 0, 0, 0, 0, 0, 0, 0, 0xFC, 0}, 252},
        {{0x23, 0, 0, 0, 0, 0, 0, 0, 0x0C, 0}, 12},
        {{0x25, 0, 0, 0, 0, 0, 0, 0, 0, 0}, 8},
        {{0xAD, 0, 0, 0, 0, 0, 0, 0x0E, 0, 0x04, 0, 0}, 4},
        {{0x43, 0x02, 0x04, 0, 0, 0, 0, 0, 0x04, 0}, 4},
        {{0x43, 0x02, 0x04, 0, 0, 0, 0, 0, 0x1C, 0}, 28},
        {{0x43, 0x02, 0x00, 0, 0, 0, 0x01, 0, 0x04, 0}, 4},
        {{0x43, 0x02, 0x00, 0, 0, 0, 0x01, 0, 0x14, 0}, 20},
    };
    const auto &issued = open.drive->issued;
    ASSERT_EQ(issued.size(), std::size(expect));
    for (size_t i = 0; i < issued.size(); ++i) {
        const sg_io_hdr_t &h = issued[i].hdr;
        const auto &[cdb, length] = expect[i];
        EXPECT_EQ(issued[i].cdb, cdb) << i;
        EXPECT_EQ(std::tuple(h.dxfer_len, h.dxfer_direction, h.dxferp == nullptr),
                  std::tuple(length, length == 0 ? SG_DXFER_NONE : SG_DXFER_FROM_DEV, length == 0))
            << i;
        EXPECT_EQ(std::tuple(h.interface_id, h.mx_sb_len, h.timeout, h.usr_ptr, h.sbp != nullptr),
                  std::tuple('S', 64, 20000u, nullptr, true));
        EXPECT_EQ(h.iovec_count | h.flags | static_cast<unsigned>(h.pack_id), 0u);
    }
}

TEST(DiscInfoRecord, ShowsEveryField)
{
    DiscInfo info = {DISC_TYPE1_DVD_MINUS,
                     DISC_TYPE2_RW,
                     DISC_TYPE3_RESTRICTED_OVERWRITE,
                     2,
                     0,
                     DISC_STATUS_INCOMPLETE,
                     -150,
                     56250,
                     3,
                     2,
                     4000000000u,
                     7,
                     8343424ull << 12,
                     5000000000ull};
    EXPECT_EQ(
        logOf([&] { Dev_ShowDiscInfo(&info); }),
        fake::logLines(
            "disc_info.cpp,N:Dev_ShowDiscInfo(): ",
            "(type1, type2, type3) = (3, 3, 2)\n|(sub_type, reseved_flag, appendable) = (2, 0, 1)\n"
            "|(last_lead_in, next_lead_in) = (-150, 56250)\n|(last_track, total_session) = (3, 2)\n"
            "|(free_blocks, track_size) = (4000000000, 7)\n"
            "|(total_capacity(KB), used_capacity(KB)) = (34174664704, 5000000000)\n"));
}

} // namespace
