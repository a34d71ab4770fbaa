// The disc overview and the DVD/BD readings over every medium of the fake
// drive, against the hand-worked table tests/data/disc/expected.txt; the
// trial mounts, and (run by tests/peers/test_storage.sh) a real one.
#include <gtest/gtest.h>

#include <sstream>
#include <sys/stat.h>

#include "DEV.h"
#include "fake_scsi.h"
#include "test_support.h"

namespace {

using fake::logOf;
using Bytes = std::vector<uint8_t>;

// "a*b/c-d*e": products and quotients left to right, then one difference.
uint64_t kb(const std::string &text)
{
    auto term = [](const std::string &t) {
        std::istringstream in(t);
        uint64_t v = 0, n = 0;
        char op = 0;
        for (in >> v; in >> op >> n;) {
            v = op == '*' ? v * n : v / n;
        }
        return v;
    };
    const size_t minus = text.find('-');
    return term(text.substr(0, minus)) -
           (minus == std::string::npos ? 0 : term(text.substr(minus + 1)));
}

DevRecord record(const char *dev = "/dev/scd0")
{
    DevRecord r{};
    snprintf(r.dev, sizeof r.dev, "%s", dev);
    snprintf(r.sg, sizeof r.sg, "/dev/sg0");
    r.cdrom = 1;
    return r;
}

class Disc : public testing::Test {
protected:
    void SetUp() override
    {
        fake::clock::enable();
        fake::redirect("/var", var.path());
    }
    fake::TempDir var;
};

TEST_F(Disc, EveryMediumOfTheTable)
{
    std::istringstream lines(fake::readFile(DVR_TEST_DATA_DIR "/disc/expected.txt"));
    for (std::string line, cell; std::getline(lines, line);) {
        std::vector<std::string> c;
        for (std::istringstream cells(line); line[0] != '#' && std::getline(cells, cell, '|');) {
            c.push_back(cell);
        }
        if (c.size() != 8) {
            continue;
        }
        const std::string name = c[0].substr(0, c[0].find_last_not_of(' ') + 1);
        std::istringstream numbers(c[1] + c[2] + c[3] + c[4] + c[5] + c[6]);
        std::string road, total, used;
        int result = 0, ready = 0, got = 0;
        DiscInfo e{};
        numbers >> road >> result >> ready >> e.type1 >> e.type2 >> e.type3 >> e.appendable >>
            e.last_track >> e.free_blocks >> e.track_size >> total >> used;
        e.total_capacity = kb(total);
        e.used_capacity = kb(used);
        Bytes opcodes;
        std::istringstream ops(c[7]);
        for (unsigned op = 0; ops >> std::hex >> op;) {
            opcodes.push_back(static_cast<uint8_t>(op));
        }

        fake::OpenDrive open(fake::media::byName(name));
        DevRecord r = record();
        memset(&r.info, 0xAA, sizeof r.info);
        DiscInfo &d = r.info.disc;
        d = fake::discInfo(e.type1, e.type2, e.type3, road == "toc" ? e.appendable : 0, 0,
                           road == "toc" ? e.total_capacity : 0);
        auto read = road == "dvd" ? Dev_GetDvdInfo : road == "bd" ? Dev_GetBDInfo : Dev_ReadDvdRToc;
        logOf([&] { got = road == "disc" ? Dev_GetDiscInfo(&r) : read(r.dev, open.fd, &d); });
        EXPECT_EQ(got, result) << name << " " << road;
        EXPECT_EQ(r.ready, road == "disc" ? ready : 0) << name;
        EXPECT_EQ(logOf([&] { Dev_ShowDiscInfo(&d); }), logOf([&] { Dev_ShowDiscInfo(&e); }))
            << name << " " << road;
        EXPECT_EQ(open.drive->opcodes(), opcodes) << name << " " << road;
    }
}

// Block bytes 1 and 7 by family, the length asked again in bytes 8 and 9; the
// table of contents as printed.
TEST_F(Disc, CommandBlocksAndTableOfContents)
{
    for (const auto &[name, info, family] :
         {std::tuple{"DVD-R blank", fake::discInfo(3, 2), 0x0010},
          {"DVD+R blank", fake::discInfo(4, 2), 0x0000},
          {"BD-R blank", fake::discInfo(7, 2), 0x0110}}) {
        fake::OpenDrive open(fake::media::byName(name));
        DiscInfo d = info;
        logOf([&] { Dev_ReadDvdStruct(nullptr, open.fd, &d); });
        const Bytes first = {0xAD, uint8_t(family >> 8), 0, 0, 0, 0,
                             0,    uint8_t(family),      0, 4, 0, 0};
        EXPECT_EQ(open.drive->issued.at(0).cdb, first) << name;
        if (open.drive->issued.size() == 2) { // 4 + 2048 bytes asked the second time
            EXPECT_EQ(open.drive->issued.at(1).cdb[8] << 8 | open.drive->issued.at(1).cdb[9], 2052);
        }
    }
    fake::OpenDrive open(fake::media::kDvdPlusR);
    DiscInfo d = fake::discInfo(4, 2, 0, 1);
    EXPECT_EQ(logOf([&] { Dev_ReadDvdRToc("sr", open.fd, &d); }),
              " Track#1  :             14@0\n Track#AA :             14@300000\n"
              "dvd_info.cpp,N:Dev_ReadDvdRToc(): Used capacity = 585 MB.\n");
}

// The refusals of the overview and of the trial mounts, and a trial mount
// whose mount fails: the mount point stays, a second call goes on past it.
TEST_F(Disc, RefusalsAndFailedMounts)
{
    const std::pair<int (*)(DevRecord *), std::string> calls[] = {
        {Dev_GetDiscInfo, "Dev_GetDiscInfo"},
        {Dev_GetDvdPlusRwInfo, "Dev_GetDvdPlusRwInfo"},
        {Dev_GetDvdMinusRwInfo, "Dev_GetDvdMinusRwInfo"},
        {Dev_GetBDReInfo, "Dev_GetBDReInfo"}};
    const char *leaves[] = {"", "dvd_plus_rw", "dvd_minus_rw", "bd_re"};
    for (size_t i = 0; i < 4; ++i) {
        const auto &[call, func] = calls[i];
        const std::string at = "disc_overview.cpp,N:" + func + "(): ";
        EXPECT_EQ(logOf([&] { EXPECT_EQ(call(nullptr), 1); }), at + "Get Null ptr\n");
        DevRecord r = record("/dev/sda");
        r.cdrom = 0;
        EXPECT_EQ(logOf([&] { EXPECT_EQ(call(&r), 2); }), at + "/dev/sda is HDD type\n");
        r = record("/dev/nodisc");
        struct stat st {};
        for (int pass = 0; i > 0 && pass < 2; ++pass) {
            r.info.disc.used_capacity = 77;
            const std::string log = logOf([&] { EXPECT_EQ(call(&r), -2); });
            EXPECT_EQ(log.rfind(at + "Dev_Mount(/dev/nodisc, /var/" + leaves[i] + ") error : ", 0),
                      0u)
                << log;
            EXPECT_EQ(stat(var.file(leaves[i]).c_str(), &st), 0);
            EXPECT_EQ(r.info.disc.used_capacity, 77u);
        }
    }
    fake::hideScsiNodes();
    DevRecord r = record();
    EXPECT_EQ(logOf([&] { EXPECT_EQ(Dev_GetDiscInfo(&r), -1); }),
              "disc_overview.cpp,N:Dev_GetDiscInfo(): open(/dev/scd0//dev/sg0) fail : No such file "
              "or directory\n");
    fake::redirect("/var", var.write("file", "")); // no directory under a file
    EXPECT_NE(logOf([&] {
                  EXPECT_EQ(Dev_GetBDReInfo(&r), -1);
              }).find("Dev_GetBDReInfo(): COM_Mkdir(/var/bd_re) error : Not a directory\n"),
              std::string::npos);
}

// In the namespace of tests/peers/test_storage.sh /dev/scd0 holds ext2, which
// stands in for the disc's file system: the used space is its whole size.
TEST(DiscPeer, UsedSpaceFromTheFileSystem)
{
    const char *kb = getenv("DVR_DISC_PEER_KB");
    if (kb == nullptr) {
        GTEST_SKIP() << "run by tests/peers/test_storage.sh";
    }
    const FsEntry saved = gFsArray[DEV_FS_ISO9660];
    gFsArray[DEV_FS_ISO9660].name = "ext2";
    char dev[DEV_MPT_SIZE];
    for (const char *name :
         {"DVD+RW formatted", "DVD-RW restricted overwrite", "DVD-RW restricted incomplete"}) {
        fake::OpenDrive open(fake::media::byName(name));
        DevRecord r = record();
        const std::string log = logOf([&] { EXPECT_EQ(Dev_GetDiscInfo(&r), 0); });
        EXPECT_EQ(r.info.disc.used_capacity, strtoull(kb, nullptr, 10)) << name;
        EXPECT_NE(log.find("): (/dev/scd0) : used_capacity = " + std::string(kb) + "\n"),
                  std::string::npos);
        EXPECT_EQ(
            Dev_GetDevViaMount(dev, name[3] == '+' ? "/var/dvd_plus_rw" : "/var/dvd_minus_rw"), -1);
    }
    DevRecord bd = record();
    logOf([&] { EXPECT_EQ(Dev_GetBDReInfo(&bd), 0); });
    EXPECT_EQ(bd.info.disc.used_capacity, strtoull(kb, nullptr, 10));
    gFsArray[DEV_FS_ISO9660] = saved;
}

} // namespace
