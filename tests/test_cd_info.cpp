// CD information against the fake drive: capacity from the ATIP, used space
// from the table of contents, and the order of the sequence.
#include <gtest/gtest.h>

#include "DEV.h"
#include "fake_scsi.h"
#include "test_support.h"

namespace {

using fake::logOf;
using fake::Medium;
using fake::Sense;
namespace media = fake::media;
using Bytes = std::vector<uint8_t>;

DiscInfo cdRecord()
{
    DiscInfo info{};
    info.type1 = DISC_TYPE1_CD;
    info.type2 = DISC_TYPE2_R;
    return info;
}

TEST(CdInfo, CapacityFromTheAtipLeadOut)
{
    struct Case {
        Medium medium;
        uint64_t total;
        int subType;
        const char *lines; // what is written straight to standard output
    };
    Medium subType3 = media::kCdRBlank;
    subType3.atip->subType = 3;
    Medium ultra = media::kCdRw;
    ultra.atip->subType = 2;
    Medium zero = media::kCdRBlank;
    zero.atip->leadOut = {0, 0, 0};
    const Case cases[] = {
        {media::kCdRBlank, 719698, 0, "Reference Speed = 2\nDisc Sub Type = Normal Speed\n"},
        {media::kCdRw, 670650, 1, "Reference Speed = 1\nDisc Sub Type = High   Speed\n"},
        {ultra, 670650, 2, "Disc Sub Type = Ultra  Speed\n"},
        {subType3, 719698, 3, "Disc Sub Type = Not Defined\n"},
        {zero, static_cast<uint64_t>(-300), 0, "Normal Speed\n"},
    };
    for (const Case &c : cases) {
        fake::OpenDrive open(c.medium);
        DiscInfo info = cdRecord();
        const std::string log = logOf([&] { EXPECT_EQ(Dev_ReadCdATIP("sr0", open.fd, &info), 1); });
        EXPECT_EQ(info.total_capacity, c.total) << c.medium.name;
        EXPECT_EQ(info.sub_type, c.subType) << c.medium.name;
        EXPECT_NE(log.find(c.lines), std::string::npos) << log;
    }

    fake::OpenDrive open(media::kCdRBlank);
    DiscInfo info = cdRecord();
    const std::string at = "cd_info.cpp,N:Dev_ReadCdATIP(): ";
    EXPECT_EQ(logOf([&] { Dev_ReadCdATIP("sr0", open.fd, &info); }),
              at + "Start Time of Lead-in 97:26:66\n" + at + "Start Time of Lead-out 79:59:74\n" + at +
                  "Disc Type : CD-R\nReference Speed = 2\nDisc Sub Type = Normal Speed\n" + at +
                  "Disc Space is 719998 KB\n");
    const auto issued = open.drive->issued();
    ASSERT_EQ(issued.size(), 2u);
    EXPECT_EQ(issued[0].cdb, (Bytes{0x43, 0x02, 0x04, 0, 0, 0, 0, 0, 0x04, 0}));
    EXPECT_EQ(issued[0].hdr.dxfer_len, 4u);
    EXPECT_EQ(issued[1].cdb, (Bytes{0x43, 0x02, 0x04, 0, 0, 0, 0, 0, 0x1C, 0}));
}

TEST(CdInfo, NextLeadInFromTheTableOfContents)
{
    struct Case {
        const Medium *medium;
        int lastTrack, lastLeadIn, nextLeadIn;
        const char *log;
    };
    const std::string at = "cd_info.cpp,N:Dev_ReadCdToc(): ";
    const Case cases[] = {
        {&media::kCdROneTrack, 1, 0, 56250,
         "Last track is 1\n|Last Lead-in at 00:02:00\n|Last Lead-out at 10:00:00\n|Next Lead-in at 12:32:00\n"},
        {&media::kCdRTwoTracks, 2, 22500, 51750,
         "Last track is 2\n|Last Lead-in at 05:02:00\n|Last Lead-out at 10:00:00\n|Next Lead-in at 11:32:00\n"},
    };
    for (const Case &c : cases) {
        fake::OpenDrive open(*c.medium);
        DiscInfo info = cdRecord();
        std::string expect = at + c.log;
        for (size_t bar; (bar = expect.find('|')) != std::string::npos;) {
            expect.replace(bar, 1, at);
        }
        EXPECT_EQ(logOf([&] { EXPECT_EQ(Dev_ReadCdToc("sr0", open.fd, &info), 1); }), expect);
        EXPECT_EQ(info.last_track, c.lastTrack);
        EXPECT_EQ(info.last_lead_in, c.lastLeadIn);
        EXPECT_EQ(info.next_lead_in, c.nextLeadIn);
        const auto issued = open.drive->issued();
        ASSERT_EQ(issued.size(), 2u);
        EXPECT_EQ(issued[0].cdb, (Bytes{0x43, 0x02, 0x00, 0, 0, 0, 0x01, 0, 0x04, 0}));
        EXPECT_EQ(issued[1].cdb[8], 4 + 8 * (c.lastTrack + 1));
    }
}

TEST(CdInfo, TableWithoutTracks)
{
    fake::OpenDrive open(media::kCdROneTrack);
    open.drive->answerWith(0x43, Bytes{0x00, 0x02, 0x01, 0x00});
    DiscInfo info = cdRecord();
    info.next_lead_in = 5;
    EXPECT_EQ(logOf([&] { EXPECT_EQ(Dev_ReadCdToc("sr0", open.fd, &info), 0); }),
              "cd_info.cpp,N:Dev_ReadCdToc(): Last track is 0\n");
    EXPECT_EQ(info.last_track, 0);
    EXPECT_EQ(info.next_lead_in, 5);
}

// Each step reads what the one before wrote; a failed ATIP or disc
// information read ends the sequence, a failed table of contents doesn't.
TEST(CdInfo, SequenceByDiscStatus)
{
    struct Case {
        const Medium *medium;
        uint8_t failing; // opcode failing its first issue after `after` of them
        int after;
        int result;
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
        DiscInfo info = cdRecord();
        const std::string log = logOf([&] { EXPECT_EQ(Dev_GetCdInfo("sr0", open.fd, &info), c.result); });
        EXPECT_EQ(info.total_capacity, c.total) << c.medium->name;
        EXPECT_EQ(info.used_capacity, c.used) << c.medium->name;
        EXPECT_EQ(info.last_track, c.lastTrack) << c.medium->name;
        EXPECT_EQ(open.drive->opcodes(), c.opcodes) << c.medium->name;
        const std::string error = c.error != nullptr ? std::string("cd_info.cpp,N:Dev_GetCdInfo(): (sr0) : Read CD ") +
                                                           c.error + " error\n"
                                                     : "Dev_GetCdInfo";
        EXPECT_EQ(log.find(error) != std::string::npos, c.error != nullptr) << log;
    }
}

} // namespace
