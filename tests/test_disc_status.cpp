// Disc and track status against the fake drive: the two-step reads, the
// fields taken from the replies, and the capacities worked out of them.
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

DiscInfo typed(int type1, int type2, int type3 = 0)
{
    DiscInfo info{};
    info.type1 = type1;
    info.type2 = type2;
    info.type3 = type3;
    return info;
}

struct DiscInfoCase {
    const Medium *medium;
    DiscInfo before;
    const char *log;
    int appendable, lastTrack, sessions;
};

TEST(DiscStatus, DiscInformationByFamily)
{
    const std::string at = "disc_status.cpp,N:Dev_ReadDiscInfo(): ";
    const DiscInfoCase cases[] = {
        {&media::kDvdRwSequential, typed(3, 3, 1), "This disc is DVD-RW  \n|Last Track in Last Session is 2\n|It is an incomplete disc\n", 1, 2, 0},
        {&media::kDvdPlusR, typed(4, 2), "This disc is DVD+R  \n|Last Track in Last Session is 2\n|It is an incomplete disc\n", 1, 2, 0},
        {&media::kDvdRam, typed(3, 3, 5), "This disc is DVD-RW DL\n|Last Track in Last Session is 1\n|The disc is only random access writable\n", 3, 1, 0},
        {&media::kCdRFinalized, typed(1, 2), "Total session number = 1.\n|It is a finalized disc\n", 2, 0, 1},
        {&media::kCdROneTrack, typed(1, 2), "Total session number = 2.\n|It is an incomplete disc\n", 1, 0, 2},
        {&media::kBdR, typed(7, 2), "This disc is BD-R\n|Last Track in Last Session is 1\n|It is an empty disc\n", 0, 1, 0},
        {&media::kDvdPlusRwFormatted, typed(7, 3), "This disc is BD-RE\n|Last Track in Last Session is 1\n|It is a finalized disc\n", 2, 1, 0},
        {&media::kDvdRom, typed(2, 1), "", 9, 0, 0},
    };
    for (const DiscInfoCase &c : cases) {
        fake::OpenDrive open(*c.medium);
        DiscInfo info = c.before;
        info.appendable = 9;
        std::string expect;
        for (std::string_view rest = c.log; !rest.empty();) {
            const size_t bar = std::min(rest.find('|'), rest.size());
            expect += at + std::string(rest.substr(0, bar));
            rest.remove_prefix(std::min(bar + 1, rest.size()));
        }
        EXPECT_EQ(logOf([&] { EXPECT_EQ(Dev_ReadDiscInfo("sr0", open.fd, &info), 1); }), expect) << c.medium->name;
        EXPECT_EQ(info.appendable, c.appendable) << c.medium->name;
        EXPECT_EQ(info.last_track, c.lastTrack) << c.medium->name;
        EXPECT_EQ(info.total_session, c.sessions) << c.medium->name;
        EXPECT_EQ(open.drive->issued().at(1).cdb, (Bytes{0x51, 0, 0, 0, 0, 0, 0, 0, 0x22, 0}));
    }
}

// Numbers apart in the reply, and a length past the limit of 255.
TEST(DiscStatus, DiscInformationFieldsAndLimit)
{
    fake::OpenDrive open(media::kDvdR);
    Bytes reply(300);
    reply[0] = 0x01;
    reply[1] = 0x2C; // 300
    reply[4] = 0x04;
    reply[9] = 0x03;
    reply[6] = 0x02;
    reply[11] = 0x01;
    open.drive->answerWith(0x51, reply);
    for (int type1 : {3, 1}) {
        open.drive->clearIssued();
        DiscInfo info = typed(type1, 2);
        logOf([&] { EXPECT_EQ(Dev_ReadDiscInfo(nullptr, open.fd, &info), 1); });
        EXPECT_EQ(type1 == 3 ? info.last_track : info.total_session, type1 == 3 ? 0x0102 : 0x0304);
        const auto issued = open.drive->issued();
        ASSERT_EQ(issued.size(), 2u);
        EXPECT_EQ(issued[0].hdr.dxfer_len, 34u);
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
            DiscInfo info = typed(4, 3);
            info.last_track = 1;
            info.appendable = 7;
            const DiscInfo before = info;
            logOf([&] { EXPECT_EQ(op("sr0", open.fd, &info), 0); });
            EXPECT_EQ(memcmp(&info, &before, sizeof info), 0) << int(opcode) << " " << after;
            EXPECT_EQ(open.drive->issued().size(), static_cast<size_t>(after + 1));
        }
    }
}

struct TrackCase {
    Medium medium;
    DiscInfo before;
    uint32_t free, size;
    uint64_t used;
};

TEST(DiscStatus, TrackInformationAndUsedCapacity)
{
    auto with = [](DiscInfo d, int appendable, int lastTrack, uint64_t total) {
        d.appendable = appendable;
        d.last_track = lastTrack;
        d.total_capacity = total;
        d.used_capacity = 77;
        return d;
    };
    Medium hundredThousandFree = media::kDvdR80mm;
    hundredThousandFree.tracks[1].freeBlocks = 100000;
    const TrackCase cases[] = {
        {media::kDvdPlusR, with(typed(4, 2), 1, 2, 4590208), 1977104, 1977104, 636000},
        {hundredThousandFree, with(typed(3, 2), 1, 2, 4595776), 100000, 600987, 4395776},
        {media::kDvdRwRestricted, with(typed(3, 3, 2), 2, 1, 4595776), 0, 2297888, 4595776},
        {media::kDvdR, with(typed(3, 2), 0, 1, 4595776), 2298496, 2298496, 0},
        {media::kDvdRam, with(typed(5, 4), 3, 1, 4473408), 0, 2236704, 77},
        {media::kBdR, with(typed(7, 2), 3, 1, 1), 12219392, 12219392, 0},
        {media::kCdRw, with(typed(1, 3), 1, 1, 100), 334950, 334950, 100 - 2 * 334950ull},
    };
    for (const TrackCase &c : cases) {
        fake::OpenDrive open(c.medium);
        DiscInfo info = c.before;
        logOf([&] { EXPECT_EQ(Dev_ReadTrackInfo("sr0", open.fd, &info), 1); });
        EXPECT_EQ(info.free_blocks, c.free) << c.medium.name;
        EXPECT_EQ(info.track_size, c.size) << c.medium.name;
        EXPECT_EQ(info.used_capacity, c.used) << c.medium.name;
    }
}

TEST(DiscStatus, TrackInformationBlockAndLog)
{
    fake::OpenDrive open(media::kDvdPlusR);
    DiscInfo info = typed(4, 2);
    info.last_track = 0x01020302;
    open.drive->answerWith(0x52, [] {
        Bytes r(48);
        r[1] = 46;
        r[7] = 0x01;
        r[11] = 0x10;
        r[15] = 0x20;
        r[19] = 0x30;
        r[27] = 0x40;
        return r;
    }());
    const std::string at = "disc_status.cpp,N:Dev_ReadTrackInfo(): ";
    EXPECT_EQ(logOf([&] { EXPECT_EQ(Dev_ReadTrackInfo("sr0", open.fd, &info), 1); }),
              "Read Track Information [#16909058].\n" + at + "Track Start Address   = 16 * 2KB\n" + at +
                  "Next Writable Address = 32 * 2KB\n" + at + "FreeBlocks            = 48 * 2KB\n" + at +
                  "TrackSize             = 64 * 2KB\n");
    const auto issued = open.drive->issued();
    ASSERT_EQ(issued.size(), 2u);
    EXPECT_EQ(issued[0].cdb, (Bytes{0x52, 0x01, 0x01, 0x02, 0x03, 0x02, 0, 0, 0x24, 0}));
    EXPECT_EQ(issued[1].cdb, (Bytes{0x52, 0x01, 0x01, 0x02, 0x03, 0x02, 0, 0, 0x30, 0}));

    // No valid next writable address: no line for it.
    open.drive->answerWith(0x52, Bytes{0, 46});
    EXPECT_EQ(logOf([&] { Dev_ReadTrackInfo("sr0", open.fd, &info); }).find("Next Writable"), std::string::npos);
}

struct CapacityCase {
    const char *what;
    Bytes list; // descriptors, 8 bytes each
    DiscInfo before;
    uint64_t total;
    const char *typeLine;
};

Bytes descriptor(uint32_t blocks, uint8_t typeByte, uint32_t param)
{
    return {static_cast<uint8_t>(blocks >> 24), static_cast<uint8_t>(blocks >> 16), static_cast<uint8_t>(blocks >> 8),
            static_cast<uint8_t>(blocks), typeByte, static_cast<uint8_t>(param >> 16), static_cast<uint8_t>(param >> 8),
            static_cast<uint8_t>(param)};
}

Bytes join(std::initializer_list<Bytes> parts)
{
    Bytes out;
    for (const Bytes &p : parts) {
        out.insert(out.end(), p.begin(), p.end());
    }
    return out;
}

TEST(DiscStatus, FormatCapacityRules)
{
    const Bytes current = descriptor(2295104, 0x02, 2048);
    const CapacityCase cases[] = {
        {"type 0 at 64 bits", join({current, descriptor(2295104, 0x00, 2048)}), typed(2, 1), 4590208, "Formatted disc"},
        {"DVD+RW: the later 26h stands", join({current, descriptor(1000, 0x00, 2048), descriptor(2295104, 0x98, 0)}),
         typed(4, 3), 4590208, "Formatted disc"},
        {"26h of a DVD+R passed over", join({current, descriptor(2295104, 0x98, 0)}), typed(4, 2), 5, "Formatted disc"},
        {"10h of a DVD-RW", join({descriptor(7, 0x01, 2048), descriptor(2297888, 0x40, 16)}), typed(3, 3), 4595776,
         "Unformatted Media"},
        {"10h of a DVD+RW passed over", join({current, descriptor(2297888, 0x40, 16)}), typed(4, 3), 5, "Formatted disc"},
        {"BD: twice the current blocks", join({descriptor(12219392, 0x03, 2048), descriptor(11826176, 0x00, 0x3000)}),
         typed(7, 2), 24438784, "No Media Present/ Unknown capacity media"},
        {"reserved type", join({descriptor(1, 0x00, 2048), descriptor(3, 0x00, 1024)}), typed(2, 1), 3,
         "Reserved descriptor type"},
        {"no descriptor walked", current, typed(4, 3), 5, nullptr},
        {"BD with a short list: current counts 0", join({{0, 0, 0, 0, 0, 0, 0}, descriptor(9, 0x00, 0)}), typed(7, 2), 0,
         nullptr},
    };
    for (const CapacityCase &c : cases) {
        fake::OpenDrive open(media::kDvdRom);
        Bytes reply = {0, 0, 0, static_cast<uint8_t>(c.list.size())};
        reply.insert(reply.end(), c.list.begin(), c.list.end());
        open.drive->answerWith(0x23, reply);
        DiscInfo info = c.before;
        info.total_capacity = 5;
        const std::string log = logOf([&] { EXPECT_EQ(Dev_ReadFormatCapacity("sr0", open.fd, &info), 1); });
        EXPECT_EQ(info.total_capacity, c.total) << c.what;
        // The dump, then the descriptor type line if the list has room for it.
        EXPECT_TRUE(log.ends_with(c.typeLine != nullptr ? std::string("\n") + c.typeLine + "\n\n" : " \n\n"))
            << c.what << ": " << log;
        const auto issued = open.drive->issued();
        ASSERT_EQ(issued.size(), 2u);
        EXPECT_EQ(issued[0].cdb, (Bytes{0x23, 0, 0, 0, 0, 0, 0, 0, 0xFC, 0}));
        EXPECT_EQ(issued[1].cdb[7] << 8 | issued[1].cdb[8], static_cast<int>(c.list.size() + 4));
    }
}

TEST(DiscStatus, FormatCapacityDump)
{
    fake::OpenDrive open(media::kDvdPlusRwFormatted);
    DiscInfo info = typed(4, 3);
    EXPECT_EQ(logOf([&] { Dev_ReadFormatCapacity("sr0", open.fd, &info); }),
              "disc_status.cpp,N:Dev_ReadFormatCapacity(): (sr0) : reply_buf_len = 16\n"
              "00 23 05 40 02 00 08 00  00 23 05 40 98 00 00 00  |.#.@.....#.@\x98...|\n"
              "\n"
              "Formatted disc\n"
              "\n");
    EXPECT_EQ(info.total_capacity, 4590208u);

    // A last row that isn't full prints no characters.
    fake::OpenDrive ram(media::kDvdRam);
    const std::string log = logOf([&] { Dev_ReadFormatCapacity(nullptr, ram.fd, &info); });
    EXPECT_NE(log.find("((null)) : reply_buf_len = 24\n"), std::string::npos);
    EXPECT_NE(log.find("|\n00 23 05 40 04 00 00 00  \n"), std::string::npos) << log;
}

TEST(DiscStatus, CapacityAndPreRecordedInformation)
{
    struct Case {
        const Medium *medium;
        int capacity;
        int preRecorded;
    };
    for (const Case &c : {Case{&media::kDvdR, 1, 1}, Case{&media::kCdRom, 1, 0}, Case{&media::kNone, 0, 0}}) {
        fake::OpenDrive open(*c.medium);
        logOf([&] {
            EXPECT_EQ(Dev_ReadCapacity("sr0", open.fd), c.capacity) << c.medium->name;
            EXPECT_EQ(Dev_ReadPreRecordedInfo("sr0", open.fd), c.preRecorded) << c.medium->name;
        });
        const auto issued = open.drive->issued();
        ASSERT_EQ(issued.size(), 2u);
        EXPECT_EQ(issued[0].cdb, (Bytes{0x25, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
        EXPECT_EQ(issued[0].hdr.dxfer_len, 8u);
        EXPECT_EQ(issued[1].cdb, (Bytes{0xAD, 0, 0, 0, 0, 0, 0, 0x0E, 0, 0x04, 0, 0}));
        EXPECT_EQ(issued[1].hdr.dxfer_len, 4u);
    }
}

TEST(DiscStatus, NullPointersSendNothing)
{
    fake::OpenDrive open(media::kCdRFinalized);
    using Op = int (*)(const char *, int, DiscInfo *);
    for (Op op : {Dev_GetConfiguration, Dev_ReadDiscInfo, Dev_ReadTrackInfo, Dev_ReadFormatCapacity, Dev_ReadCdATIP,
                  Dev_ReadCdToc, Dev_GetCdInfo}) {
        EXPECT_EQ(op("sr0", open.fd, nullptr), 0);
    }
    EXPECT_EQ(Dev_ExecMMC(nullptr, open.fd, 1), -1);
    EXPECT_EQ(Dev_BuildSgMap(nullptr), 0);
    EXPECT_EQ(logOf([] { Dev_ShowDiscInfo(nullptr); }), "");
    EXPECT_TRUE(open.drive->issued().empty());
}

} // namespace
