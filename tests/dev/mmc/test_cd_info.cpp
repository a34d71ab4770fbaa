// CD information against the fake drive: capacity from the ATIP, used space
// from the table of contents, and the order of the sequence.
#include <gtest/gtest.h>

#include "DEV.h"
#include "fake_scsi.h"

namespace {

using fake::logOf;
using fake::Medium;
using fake::Sense;
namespace media = fake::media;
using Bytes = std::vector<uint8_t>;

TEST(CdInfo, CapacityFromTheAtipLeadOut)
{
    struct Case {
        Medium medium;
        const char *leadIn, *leadOut, *type, *speed, *subType;
        int kb;
        uint64_t total;
        int sub;
    };
    Medium ultra = media::kCdRw, subType3 = media::kCdRBlank, zero = media::kCdRBlank;
    ultra.atip->subType = 2;
    subType3.atip->subType = 3;
    zero.atip->leadOut = {0, 0, 0};
    const Case cases[] = {
        {media::kCdRBlank, "97:26:66", "79:59:74", "CD-R", "2", "Normal Speed", 719998, 719698, 0},
        {media::kCdRw, "97:20:10", "74:33:00", "CD-RW", "1", "High   Speed", 670950, 670650, 1},
        {ultra, "97:20:10", "74:33:00", "CD-RW", "1", "Ultra  Speed", 670950, 670650, 2},
        {subType3, "97:26:66", "79:59:74", "CD-R", "2", "Not Defined", 719998, 719698, 3},
        {zero, "97:26:66", "00:00:00", "CD-R", "2", "Normal Speed", 0, static_cast<uint64_t>(-300),
         0},
    };
    for (const Case &c : cases) {
        fake::OpenDrive open(c.medium);
        DiscInfo info = fake::discInfo(DISC_TYPE1_CD, DISC_TYPE2_R);
        EXPECT_EQ(logOf([&] { EXPECT_EQ(Dev_ReadCdATIP("sr0", open.fd, &info), 1); }),
                  fake::logLines("cd_info.cpp,N:Dev_ReadCdATIP(): ",
                                 std::string("Start Time of Lead-in ") + c.leadIn +
                                     "\n|Start Time of Lead-out " + c.leadOut +
                                     "\n|Disc Type : " + c.type + "\nReference Speed = " + c.speed +
                                     "\nDisc Sub Type = " + c.subType + "\n|Disc Space is " +
                                     std::to_string(c.kb) + " KB\n"));
        EXPECT_EQ(std::tuple(info.total_capacity, info.sub_type), std::tuple(c.total, c.sub))
            << c.medium.name;
    }
}

TEST(CdInfo, NextLeadInFromTheTableOfContents)
{
    struct Case {
        const Medium *medium;
        int lastTrack, lastLeadIn, nextLeadIn;
        const char *log;
    };
    const Case cases[] = {
        {&media::kCdROneTrack, 1, 0, 56250,
         "Last track is 1\n|Last Lead-in at 00:02:00\n|Last Lead-out at 10:00:00\n|Next Lead-in at "
         "12:32:00\n"},
        {&media::kCdRTwoTracks, 2, 22500, 51750,
         "Last track is 2\n|Last Lead-in at 05:02:00\n|Last Lead-out at 10:00:00\n|Next Lead-in at "
         "11:32:00\n"},
    };
    for (const Case &c : cases) {
        fake::OpenDrive open(*c.medium);
        DiscInfo info = fake::discInfo(DISC_TYPE1_CD, DISC_TYPE2_R);
        EXPECT_EQ(logOf([&] { EXPECT_EQ(Dev_ReadCdToc("sr0", open.fd, &info), 1); }),
                  fake::logLines("cd_info.cpp,N:Dev_ReadCdToc(): ", c.log));
        EXPECT_EQ(std::tuple(info.last_track, info.last_lead_in, info.next_lead_in),
                  std::tuple(c.lastTrack, c.lastLeadIn, c.nextLeadIn));
    }
    // A table without tracks: nothing to measure.
    fake::OpenDrive open(media::kCdROneTrack);
    open.drive->answerWith(0x43, Bytes{0x00, 0x02, 0x01, 0x00});
    DiscInfo info = fake::discInfo(DISC_TYPE1_CD, DISC_TYPE2_R);
    info.next_lead_in = 5;
    EXPECT_EQ(logOf([&] { EXPECT_EQ(Dev_ReadCdToc("sr0", open.fd, &info), 0); }),
              "cd_info.cpp,N:Dev_ReadCdToc(): Last track is 0\n");
    EXPECT_EQ(std::tuple(info.last_track, info.next_lead_in), std::tuple(0, 5));
}

// Each step reads what the one before wrote; a failed ATIP or disc
// information read ends the sequence, a failed table of contents doesn't.
TEST(CdInfo, SequenceByDiscStatus)
{
    // The opcode that fails its first issue after `after` of them.
    struct Case {
        const Medium *medium;
        uint8_t failing;
        int after, result;
        uint64_t total, used;
        int lastTrack;
        Bytes opcodes;
        const char *error;
    };
    const Bytes atipAndDisc = {0x43, 0x43, 0x51, 0x51};
    const Bytes withToc = {0x43, 0x43, 0x51, 0x51, 0x43, 0x43};
    const Case cases[] = {
        {&media::kCdRBlank, 0, 0, 1, 719698, 0, 0, atipAndDisc, nullptr},
        {&media::kCdROneTrack, 0, 0, 1, 719698, 112500, 1, withToc, nullptr},
        {&media::kCdRTwoTracks, 0, 0, 1, 719698, 103500, 2, withToc, nullptr},
        {&media::kCdRFinalized, 0, 0, 1, 719698, 719698, 0, atipAndDisc, nullptr},
        {&media::kCdRw, 0, 0, 1, 670650, 0, 0, atipAndDisc, nullptr},
        {&media::kCdRom, 0, 0, 0, 0, 0, 0, {0x43}, "ATIP"},
        {&media::kCdROneTrack, 0x51, 0, 0, 719698, 0, 0, {0x43, 0x43, 0x51}, "DISC INFORMATION"},
        {&media::kCdROneTrack, 0x43, 2, 1, 719698, 0, 0, {0x43, 0x43, 0x51, 0x51, 0x43}, "TOC"},
    };
    for (const Case &c : cases) {
        fake::OpenDrive open(*c.medium);
        open.drive->failNext(c.failing, 1, Sense{0x03, 0x02, 0x00}, c.after);
        DiscInfo info = fake::discInfo(DISC_TYPE1_CD, DISC_TYPE2_R);
        const std::string log =
            logOf([&] { EXPECT_EQ(Dev_GetCdInfo("sr0", open.fd, &info), c.result); });
        EXPECT_EQ(std::tuple(info.total_capacity, info.used_capacity, info.last_track),
                  std::tuple(c.total, c.used, c.lastTrack))
            << c.medium->name;
        EXPECT_EQ(open.drive->opcodes(), c.opcodes) << c.medium->name;
        const std::string error =
            c.error != nullptr ? std::string("cd_info.cpp,N:Dev_GetCdInfo(): (sr0) : Read CD ") +
                                     c.error + " error\n"
                               : "Dev_GetCdInfo";
        EXPECT_EQ(log.find(error) != std::string::npos, c.error != nullptr) << log;
    }
}

} // namespace
