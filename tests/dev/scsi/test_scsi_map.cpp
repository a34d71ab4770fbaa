// The SCSI generic map over fake nodes: naming, addresses, readiness, and
// the conversions between block and generic nodes.
#include <gtest/gtest.h>

#include <cerrno>
#include <scsi/scsi.h>

#include "DEV.h"
#include "fake_scsi.h"

namespace {

using fake::addScsiNode;
using fake::logOf;
using fake::MmcDrive;

class ScsiMap : public testing::Test {
protected:
    void SetUp() override
    {
        fake::hideScsiNodes();
        fake::clock::enable(); // not-ready drives cost three tries of a second
    }
    std::shared_ptr<MmcDrive> loaded = std::make_shared<MmcDrive>(fake::media::kDvdRom);
    std::shared_ptr<MmcDrive> empty = std::make_shared<MmcDrive>(fake::media::kNone);
};

TEST_F(ScsiMap, NodeNamesOutOfRange)
{
    for (const int k : {26, -1}) {
        char name[SG_NAME_SIZE] = {};
        EXPECT_EQ(logOf([&] { Dev_MakeDevName(name, k, 0); }),
                  "scsi_map.cpp,N:Dev_MakeDevName(): k = " + std::to_string(k) +
                      ", out of range\n");
        EXPECT_STREQ(name, "/dev/sgxx");
    }
}

// Nodes that can't be opened are passed over in silence; a failed address
// request is reported and leaves what it couldn't read at -1.
TEST_F(ScsiMap, NumericMapWithAddressesAndReadiness)
{
    addScsiNode("/dev/sg0", {0, 0, 0, 0});
    addScsiNode("/dev/sg1", {1, 0, 2, 0}, empty);
    addScsiNode("/dev/sg3", {2, 1, 5, 3}, loaded);
    addScsiNode("/dev/sg4", {6, 0, 0, 0})->failures[SCSI_IOCTL_GET_BUS_NUMBER] = EINVAL;
    addScsiNode("/dev/sg5", {4, 0, 0, 0}, loaded)->failures[SCSI_IOCTL_GET_IDLUN] = ENOTTY;
    SgMapEntry map[SG_MAP_SIZE];
    memset(map, 0x55, sizeof map);
    const std::string notReady =
        "mmc_exec.cpp,N:Dev_ExecMMC(): ((/dev/sg1) TEST UNIT READY) Fail\n";
    EXPECT_EQ(
        logOf([&] { EXPECT_EQ(Dev_BuildSgMap(map), 2); }),
        notReady + notReady + notReady +
            "scsi_map.cpp,N:Dev_BuildSgMap(): get bus no on /dev/sg4 failed : Invalid argument\n"
            "scsi_map.cpp,N:Dev_BuildSgMap(): get IDLUN on /dev/sg5 failed : Inappropriate ioctl "
            "for device\n");
    EXPECT_EQ(fake::clock::sleptNs(), 3'000'000'000LL);
    // Node number, ready, then the address.
    const std::vector<int> expect[] = {
        {0, 1, 0, 0, 0, 0},     {1, 0, 1, 0, 2, 0},    {2, 0, -1, -1, -1, -1}, {3, 1, 2, 1, 5, 3},
        {4, 0, -1, -1, -1, -1}, {5, 0, 4, -1, -1, -1}, {31, 0, -1, -1, -1, -1}};
    for (const std::vector<int> &e : expect) {
        const SgMapEntry &m = map[e[0]];
        EXPECT_EQ(m.name, "/dev/sg" + std::to_string(e[0]));
        EXPECT_EQ(std::vector<int>({e[0], m.ready, m.bus, m.channel, m.id, m.lun}), e);
    }
}

TEST_F(ScsiMap, FirstNodeDecidesTheNaming)
{
    struct Case {
        const char *first;
        int firstErrno;
        const char *other, *expectAt2;
        int ready;
    };
    const Case cases[] = {
        {nullptr, 0, "/dev/sgc", "/dev/sgc", 1},         // no /dev/sg0: letters
        {nullptr, 0, nullptr, "/dev/sgc", 0},            // nothing at all: letters, empty map
        {"/dev/sg0", EACCES, "/dev/sg2", "/dev/sg2", 1}, // sg0 there but closed to us: digits
    };
    for (const Case &c : cases) {
        fake::reset();
        SetUp();
        if (c.first != nullptr) {
            addScsiNode(c.first, {0, 0, 0, 0})->openErrno = c.firstErrno;
        }
        if (c.other != nullptr) {
            addScsiNode(c.other, {3, 0, 1, 0}, loaded);
        }
        SgMapEntry map[SG_MAP_SIZE];
        const std::string log = logOf([&] { EXPECT_EQ(Dev_BuildSgMap(map), c.ready); });
        EXPECT_STREQ(map[2].name, c.expectAt2);
        EXPECT_EQ(map[2].bus, c.ready == 1 ? 3 : -1);
        // Letters run from /dev/sga to /dev/sgz; the six numbers past them
        // have a name of no node and say so on every build.
        const bool letters = c.expectAt2[7] == 'c';
        EXPECT_STREQ(map[25].name, letters ? "/dev/sgz" : "/dev/sg25");
        EXPECT_STREQ(map[31].name, letters ? "/dev/sgxx" : "/dev/sg31");
        std::string outOfRange;
        for (int k = 26; letters && k < SG_MAP_SIZE; ++k) {
            outOfRange +=
                "scsi_map.cpp,N:Dev_MakeDevName(): k = " + std::to_string(k) + ", out of range\n";
        }
        EXPECT_EQ(log, outOfRange);
    }
}

// One set of nodes for both ways: a disk and a drive with block nodes, a
// drive without one, a block node without a generic one, and a block node
// whose address can't be read.
TEST_F(ScsiMap, BlockAndGenericNodes)
{
    addScsiNode("/dev/sg0", {0, 0, 0, 0});
    addScsiNode("/dev/sg1", {0, 0, 1, 0});
    addScsiNode("/dev/sg2", {2, 0, 0, 0}, empty);
    addScsiNode("/dev/sg3", {5, 0, 0, 0}, loaded);
    addScsiNode("/dev/sda", {0, 0, 0, 0});
    addScsiNode("/dev/sdb", {0, 0, 1, 0});
    addScsiNode("/dev/sdd", {0, 0, 2, 0});
    addScsiNode("/dev/sr0", {2, 0, 0, 0}, empty);
    addScsiNode("/dev/scd1", {2, 0, 0, 0},
                empty); // a drive's two optical names: the first in table order
    addScsiNode("/dev/sdc", {9, 0, 0, 0})->failures[SCSI_IOCTL_GET_IDLUN] = EIO;
    const std::string at = "scsi_map.cpp,N:Dev_SdToSg(): ";
    const std::tuple<const char *, int, const char *, std::string> toGeneric[] = {
        {"/dev/sda", 0, "/dev/sg0", ""},
        {"/dev/sr0", 1, "/dev/sg2", at + "(/dev/sg2, /dev/sr0) : device not ready!\n"},
        {"/dev/sdd", -1, "kept", ""},
        {"/dev/sdc", -1, "kept", at + "get IDLUN on /dev/sdc failed : Input/output error\n"},
        {"/dev/sdq", -1, "kept", at + "open(/dev/sdq) failed : No such file or directory\n"},
        {nullptr, -1, "kept", at + "(kept, (null)) : Null ptr\n"},
    };
    for (const auto &[sd, result, expect, message] : toGeneric) {
        char sg[SG_NAME_SIZE] = "kept";
        const std::string log = logOf([&] { EXPECT_EQ(Dev_SdToSg(sg, sd), result) << sd; });
        EXPECT_STREQ(sg, expect);
        // Only the map's own readiness tries are logged besides.
        EXPECT_EQ(log.substr(std::min(log.find("scsi_map.cpp"), log.size())), message);
    }
    EXPECT_EQ(logOf([] { EXPECT_EQ(Dev_SdToSg(nullptr, "/dev/sda"), -1); }),
              at + "((null), /dev/sda) : Null ptr\n");

    const std::string sgAt = "scsi_map.cpp,N:Dev_SgToSd(): ";
    const std::string sdcFailed = sgAt + "get IDLUN on /dev/sdc failed : Input/output error\n";
    const std::tuple<const char *, int, const char *, std::string> toBlock[] = {
        {"/dev/sg0", 0, "/dev/sda", ""},
        {"/dev/sg1", 0, "/dev/sdb", ""},
        {"/dev/sg2", 1, "/dev/scd1",
         sdcFailed}, // the walk met the node whose address can't be read
        {"/dev/sg3", -1, "kept", sdcFailed},
        {"/dev/sg9", -1, "kept", sgAt + "open(/dev/sg9) fail : No such file or directory\n"},
        {nullptr, -1, "kept", sgAt + "((null), kept) : Null ptr\n"},
    };
    for (const auto &[sg, result, expect, message] : toBlock) {
        char sd[SG_NAME_SIZE] = "kept";
        const std::string log = logOf([&] { EXPECT_EQ(Dev_SgToSd(sd, sg), result) << sg; });
        EXPECT_STREQ(sd, expect);
        EXPECT_EQ(log.substr(std::min(log.find("scsi_map.cpp"), log.size())), message);
    }
}

} // namespace
