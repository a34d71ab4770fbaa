// Disc and track status against the fake drive: the two-step reads, the
// fields taken from the replies, and the capacities worked out of them.
#include <gtest/gtest.h>

#include "DEV.h"
#include "fake_scsi.h"

namespace {

using fake::logOf;
using fake::Medium;
using fake::Sense;
namespace media = fake::media;
using Bytes = std::vector<uint8_t>;

TEST(DiscStatus, DiscInformationByFamily)
{
    struct Case {
        const Medium *medium;
        DiscInfo before;
        const char *log;
        int appendable, lastTrack, sessions;
    };
    const Case cases[] = {
        {&media::kDvdRwSequential, fake::discInfo(3, 3, 1),
         "This disc is DVD-RW  \n|Last Track in Last Session is 2\n|It is an incomplete disc\n", 1,
         2, 0},
        {&media::kDvdPlusR, fake::discInfo(4, 2),
         "This disc is DVD+R  \n|Last Track in Last Session is 2\n|It is an incomplete disc\n", 1,
         2, 0},
        {&media::kDvdRam, fake::discInfo(3, 3, 5),
         "This disc is DVD-RW DL\n|Last Track in Last Session is 1\n|The disc is only random "
         "access writable\n",
         3, 1, 0},
        {&media::kCdRFinalized, fake::discInfo(1, 2),
         "Total session number = 1.\n|It is a finalized disc\n", 2, 0, 1},
        {&media::kCdROneTrack, fake::discInfo(1, 2),
         "Total session number = 2.\n|It is an incomplete disc\n", 1, 0, 2},
        {&media::kBdR, fake::discInfo(7, 2),
         "This disc is BD-R\n|Last Track in Last Session is 1\n|It is an empty disc\n", 0, 1, 0},
        {&media::kDvdPlusRwFormatted, fake::discInfo(7, 3),
         "This disc is BD-RE\n|Last Track in Last Session is 1\n|It is a finalized disc\n", 2, 1,
         0},
        {&media::kDvdRom, fake::discInfo(2, 1), nullptr, 9, 0, 0},
    };
    for (const Case &c : cases) {
        fake::OpenDrive open(*c.medium);
        DiscInfo info = c.before;
        info.appendable = 9;
        const std::string expect =
            c.log ? fake::logLines("disc_status.cpp,N:Dev_ReadDiscInfo(): ", c.log) : "";
        EXPECT_EQ(logOf([&] { EXPECT_EQ(Dev_ReadDiscInfo("sr0", open.fd, &info), 1); }), expect)
            << c.medium->name;
        EXPECT_EQ(std::tuple(info.appendable, info.last_track, info.total_session),
                  std::tuple(c.appendable, c.lastTrack, c.sessions))
            << c.medium->name;
    }
}

// Numbers apart in the reply, and a length past the limit of 255.
TEST(DiscStatus, DiscInformationFieldsAndLimit)
{
    fake::OpenDrive open(media::kDvdR);
    Bytes reply = {0x01, 0x2C, 0, 0, 0x04, 0, 0x02, 0, 0, 0x03, 0, 0x01}; // 300 bytes
    reply.resize(300);
    open.drive->answerWith(0x51, reply);
    for (int type1 : {3, 1}) {
        open.drive->issued.clear();
        DiscInfo info = fake::discInfo(type1, 2);
        logOf([&] { EXPECT_EQ(Dev_ReadDiscInfo(nullptr, open.fd, &info), 1); });
        EXPECT_EQ(type1 == 3 ? info.last_track : info.total_session, type1 == 3 ? 0x0102 : 0x0304);
        const auto &issued = open.drive->issued;
        ASSERT_EQ(issued.size(), 2u);
        EXPECT_EQ(issued[1].cdb, (Bytes{0x51, 0, 0, 0, 0, 0, 0, 0x00, 0xFF, 0}));
        EXPECT_EQ(issued[1].hdr.dxfer_len, 255u);
    }
}

// Either issue of a two-step read failing leaves the record as it was.
TEST(DiscStatus, FailedIssueChangesNothing)
{
    using Op = int (*)(const char *, int, DiscInfo *);
    const std::pair<uint8_t, Op> ops[] = {
        {0x51, Dev_ReadDiscInfo}, {0x52, Dev_ReadTrackInfo}, {0x23, Dev_ReadFormatCapacity}};
    for (const auto &[opcode, op] : ops) {
        for (int after : {0, 1}) {
            fake::OpenDrive open(media::kDvdPlusRwFormatted);
            open.drive->failNext(opcode, 1, Sense{0x03, 0x11, 0x00}, after);
            DiscInfo info = fake::discInfo(4, 3, 0, 7, 1);
            const DiscInfo before = info;
            logOf([&] { EXPECT_EQ(op("sr0", open.fd, &info), 0); });
            EXPECT_EQ(memcmp(&info, &before, sizeof info), 0) << int(opcode) << " " << after;
            EXPECT_EQ(open.drive->issued.size(), static_cast<size_t>(after + 1));
        }
    }
}

TEST(DiscStatus, TrackInformationAndUsedCapacity)
{
    struct Case {
        Medium medium;
        DiscInfo before;
        uint32_t free, size;
        uint64_t used;
    };
    Medium hundredThousandFree = media::kDvdR80mm;
    hundredThousandFree.tracks[1].free = 100000;
    const Case cases[] = {
        {media::kDvdPlusR, fake::discInfo(4, 2, 0, 1, 2, 4590208), 1977104, 1977104, 636000},
        {hundredThousandFree, fake::discInfo(3, 2, 0, 1, 2, 4595776), 100000, 600987, 4395776},
        {media::kDvdRwRestricted, fake::discInfo(3, 3, 2, 2, 1, 4595776), 0, 2297888, 4595776},
        {media::kDvdR, fake::discInfo(3, 2, 0, 0, 1, 4595776), 2298496, 2298496, 0},
        {media::kDvdRam, fake::discInfo(5, 4, 0, 3, 1, 4473408), 0, 2236704,
         77}, // not a family with tracks
        {media::kBdR, fake::discInfo(7, 2, 0, 3, 1, 1), 12219392, 12219392, 0},
        {media::kCdRw, fake::discInfo(1, 3, 0, 1, 1, 100), 334950, 334950,
         100 - 2 * 334950ull}, // no guard
    };
    for (const Case &c : cases) {
        fake::OpenDrive open(c.medium);
        DiscInfo info = c.before;
        info.used_capacity = 77;
        logOf([&] { EXPECT_EQ(Dev_ReadTrackInfo("sr0", open.fd, &info), 1); });
        EXPECT_EQ(std::tuple(info.free_blocks, info.track_size, info.used_capacity),
                  std::tuple(c.free, c.size, c.used))
            << c.medium.name;
    }
}

TEST(DiscStatus, TrackInformationBlockAndLog)
{
    fake::OpenDrive open(media::kDvdPlusR);
    DiscInfo info = fake::discInfo(4, 2, 0, 0, 0x01020302);
    Bytes reply = {0, 46,   0, 0, 0, 0,    0, 0x01, 0, 0, 0, 0x10, 0, 0,
                   0, 0x20, 0, 0, 0, 0x30, 0, 0,    0, 0, 0, 0,    0, 0x40};
    reply.resize(48);
    // Without a valid next writable address, no line for it and the rest alike.
    for (const uint8_t valid : {0, 1}) {
        reply[7] = valid;
        open.drive->answerWith(0x52, reply);
        open.drive->issued.clear();
        EXPECT_EQ(
            logOf([&] { EXPECT_EQ(Dev_ReadTrackInfo("sr0", open.fd, &info), 1); }),
            "Read Track Information [#16909058].\n" +
                fake::logLines(
                    "disc_status.cpp,N:Dev_ReadTrackInfo(): ",
                    std::string("Track Start Address   = 16 * 2KB\n|") +
                        (valid ? "Next Writable Address = 32 * 2KB\n|" : "") +
                        "FreeBlocks            = 48 * 2KB\n|TrackSize             = 64 * 2KB\n"));
    }
    EXPECT_EQ(open.drive->issued.at(0).cdb,
              (Bytes{0x52, 0x01, 0x01, 0x02, 0x03, 0x02, 0, 0, 0x24, 0}));
}

// The capacity lists as the drive encodes them: the first descriptor's type
// in bits 1 and 0, the others' format type in bits 7 to 2. The log: the
// list's length, its dump, and the descriptor type line if the list has room
// for it.
TEST(DiscStatus, FormatCapacityRules)
{
    struct Case {
        const char *what;
        std::vector<fake::Capacity> list;
        DiscInfo before;
        uint64_t total;
        const char *typeLine, *dump = nullptr;
    };
    const fake::Capacity current = {2295104, 2, 2048};
    const Case cases[] = {
        {"type 0 at 64 bits",
         {current, {2295104, 0x00, 2048}},
         fake::discInfo(2, 1),
         4590208,
         "Formatted disc"},
        {"DVD+RW: the later 26h stands",
         {current, {1000, 0x00, 2048}, {2295104, 0x26, 0}},
         fake::discInfo(4, 3),
         4590208,
         "Formatted disc"},
        {"26h of a DVD+R passed over",
         {current, {2295104, 0x26, 0}},
         fake::discInfo(4, 2),
         5,
         "Formatted disc"},
        {"10h of a DVD-RW",
         {{7, 1, 2048}, {2297888, 0x10, 16}},
         fake::discInfo(3, 3),
         4595776,
         "Unformatted Media"},
        {"10h of a DVD+RW passed over",
         {current, {2297888, 0x10, 16}},
         fake::discInfo(4, 3),
         5,
         "Formatted disc"},
        {"BD: twice the current blocks",
         {{12219392, 3, 2048}, {11826176, 0x00, 0x3000}},
         fake::discInfo(7, 2),
         24438784,
         "No Media Present/ Unknown capacity media"},
        {"reserved type",
         {{1, 0, 2048}, {3, 0x00, 1024}},
         fake::discInfo(2, 1),
         3,
         "Reserved descriptor type"},
        {"no descriptor walked", {current}, fake::discInfo(4, 3), 5, nullptr},
        {"DVD+RW", media::kDvdPlusRwFormatted.capacities, fake::discInfo(4, 3), 4590208,
         "Formatted disc",
         "00 23 05 40 02 00 08 00  00 23 05 40 98 00 00 00  |.#.@.....#.@\x98...|\n"},
        {"DVD-RAM: no characters for a last row that isn't full", media::kDvdRam.capacities,
         fake::discInfo(5, 4), 4473408, "Formatted disc",
         "00 22 21 20 02 00 08 00  00 22 21 20 00 00 08 00  |.\"! .....\"! ....|\n00 23 05 40 04 "
         "00 00 00  "},
    };
    for (const Case &c : cases) {
        Medium medium = media::kDvdRom;
        medium.capacities = c.list;
        fake::OpenDrive open(medium);
        DiscInfo info = c.before;
        info.total_capacity = 5;
        const std::string log =
            logOf([&] { EXPECT_EQ(Dev_ReadFormatCapacity(nullptr, open.fd, &info), 1); });
        EXPECT_EQ(info.total_capacity, c.total) << c.what;
        const std::string tail =
            c.typeLine != nullptr ? std::string("\n") + c.typeLine + "\n\n" : " \n\n";
        EXPECT_TRUE(log.ends_with(tail)) << c.what << ": " << log;
        if (c.dump != nullptr) {
            EXPECT_EQ(log,
                      "disc_status.cpp,N:Dev_ReadFormatCapacity(): ((null)) : reply_buf_len = " +
                          std::to_string(8 * c.list.size()) + "\n" + c.dump + tail);
        }
    }
    // A list of 15 bytes has no current capacity: no type line, and a BD's
    // format type 0 finds no current blocks.
    fake::OpenDrive open(media::kBdR);
    Bytes reply = {0, 0, 0, 15, 0, 0, 1, 0, 0x02, 0, 0, 0, 0, 0, 9};
    reply.resize(19);
    open.drive->answerWith(0x23, reply);
    DiscInfo info = fake::discInfo(7, 2, 0, 0, 0, 5);
    EXPECT_TRUE(logOf([&] {
                    EXPECT_EQ(Dev_ReadFormatCapacity("sr0", open.fd, &info), 1);
                }).ends_with("00 \n\n"));
    EXPECT_EQ(info.total_capacity, 0u);
}

TEST(DiscStatus, CapacityAndPreRecordedInformation)
{
    for (const auto &[medium, capacity, preRecorded] :
         {std::tuple(&media::kDvdR, 1, 1), std::tuple(&media::kCdRom, 1, 0),
          std::tuple(&media::kNone, 0, 0)}) {
        fake::OpenDrive open(*medium);
        logOf([&] {
            EXPECT_EQ(Dev_ReadCapacity("sr0", open.fd), capacity) << medium->name;
            EXPECT_EQ(Dev_ReadPreRecordedInfo("sr0", open.fd), preRecorded) << medium->name;
        });
        EXPECT_EQ(open.drive->opcodes(), (Bytes{0x25, 0xAD}));
    }
}

TEST(DiscStatus, NullPointersSendNothing)
{
    fake::OpenDrive open(media::kCdRFinalized);
    using Op = int (*)(const char *, int, DiscInfo *);
    for (Op op : {Dev_GetConfiguration, Dev_ReadDiscInfo, Dev_ReadTrackInfo, Dev_ReadFormatCapacity,
                  Dev_ReadCdATIP, Dev_ReadCdToc, Dev_GetCdInfo}) {
        EXPECT_EQ(op("sr0", open.fd, nullptr), 0);
    }
    EXPECT_EQ(Dev_ExecMMC(nullptr, open.fd, 1), -1);
    EXPECT_EQ(Dev_BuildSgMap(nullptr), 0);
    EXPECT_EQ(logOf([] { Dev_ShowDiscInfo(nullptr); }), "");
    EXPECT_TRUE(open.drive->issued.empty());
}

} // namespace
