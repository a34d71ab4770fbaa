// The SCSI generic map over fake nodes: naming, addresses, readiness, and
// the conversions between block and generic nodes.
#include <gtest/gtest.h>

#include <cerrno>
#include <scsi/scsi.h>

#include "DEV.h"
#include "fake_scsi.h"
#include "test_support.h"

namespace {

using fake::addScsiNode;
using fake::MmcDrive;
namespace media = fake::media;
using fake::logOf;

class ScsiMap : public testing::Test {
protected:
    void SetUp() override
    {
        fake::hideScsiNodes();
        fake::clock::enable(); // not-ready drives cost three tries of a second
    }
    std::shared_ptr<MmcDrive> loaded = std::make_shared<MmcDrive>(media::kDvdRom);
    std::shared_ptr<MmcDrive> empty = std::make_shared<MmcDrive>(media::kNone);
};

TEST_F(ScsiMap, NodeNames)
{
    const std::tuple<int, int, const char *> cases[] = {{0, 1, "/dev/sg0"}, {31, 1, "/dev/sg31"}, {0, 0, "/dev/sga"},
                                                        {25, 0, "/dev/sgz"}, {26, 0, "/dev/sgxx"}, {-1, 0, "/dev/sgxx"}};
    for (const auto &[k, numeric, expect] : cases) {
        char name[SG_NAME_SIZE] = {};
        const std::string log = logOf([&] { Dev_MakeDevName(name, k, numeric); });
        EXPECT_STREQ(name, expect);
        EXPECT_EQ(log, std::string(expect).ends_with("xx")
                           ? "scsi_map.cpp,N:Dev_MakeDevName(): k = " + std::to_string(k) + ", out of range\n"
                           : "");
    }
}

TEST_F(ScsiMap, NumericMapWithAddressesAndReadiness)
{
    addScsiNode("/dev/sg0", {0, 0, 0, 0});
    addScsiNode("/dev/sg1", {1, 0, 2, 0}, empty);
    addScsiNode("/dev/sg3", {2, 1, 5, 3}, loaded);
    SgMapEntry map[SG_MAP_SIZE];
    memset(map, 0x55, sizeof map);
    logOf([&] { EXPECT_EQ(Dev_BuildSgMap(map), 2); });
    EXPECT_EQ(fake::clock::sleptNs(), 3'000'000'000LL);

    struct Expect {
        int k;
        int ready, bus, channel, id, lun;
    };
    for (const Expect e : {Expect{0, 1, 0, 0, 0, 0}, Expect{1, 0, 1, 0, 2, 0}, Expect{2, 0, -1, -1, -1, -1},
                           Expect{3, 1, 2, 1, 5, 3}, Expect{31, 0, -1, -1, -1, -1}}) {
        const SgMapEntry &m = map[e.k];
        EXPECT_EQ(m.name, "/dev/sg" + std::to_string(e.k));
        EXPECT_EQ(std::vector<int>({m.ready, m.bus, m.channel, m.id, m.lun}),
                  std::vector<int>({e.ready, e.bus, e.channel, e.id, e.lun}))
            << e.k;
    }
}

TEST_F(ScsiMap, FirstNodeDecidesTheNaming)
{
    struct Case {
        const char *first;
        int firstErrno; // 0: the node is there
        const char *other;
        const char *expectAt2;
        int ready;
    };
    const Case cases[] = {
        {nullptr, 0, "/dev/sgc", "/dev/sgc", 1},   // no /dev/sg0: letters
        {nullptr, 0, nullptr, "/dev/sgc", 0},      // nothing at all: letters, empty map
        {"/dev/sg0", EACCES, "/dev/sg2", "/dev/sg2", 1}, // sg0 there but closed to us: digits
    };
    for (const Case &c : cases) {
        fake::reset();
        fake::hideScsiNodes();
        fake::clock::enable();
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
        const bool letters = c.expectAt2[7] == 'c';
        EXPECT_STREQ(map[31].name, letters ? "/dev/sgxx" : "/dev/sg31");
        EXPECT_EQ(log.find("k = 26, out of range") != std::string::npos, letters);
    }
}

TEST_F(ScsiMap, AddressRequestFailures)
{
    addScsiNode("/dev/sg0", {0, 0, 0, 0})->failIoctl(SCSI_IOCTL_GET_BUS_NUMBER, EINVAL);
    addScsiNode("/dev/sg1", {4, 0, 0, 0})->failIoctl(SCSI_IOCTL_GET_IDLUN, ENOTTY);
    SgMapEntry map[SG_MAP_SIZE];
    EXPECT_EQ(logOf([&] { EXPECT_EQ(Dev_BuildSgMap(map), 0); }),
              "scsi_map.cpp,N:Dev_BuildSgMap(): get bus no on /dev/sg0 failed : Invalid argument\n"
              "scsi_map.cpp,N:Dev_BuildSgMap(): get IDLUN on /dev/sg1 failed : Inappropriate ioctl for device\n");
    EXPECT_EQ(std::vector<int>({map[0].bus, map[0].channel, map[0].id, map[0].lun}), std::vector<int>(4, -1));
    EXPECT_EQ(std::vector<int>({map[1].bus, map[1].channel, map[1].id, map[1].lun}),
              std::vector<int>({4, -1, -1, -1}));
}

TEST_F(ScsiMap, BlockNodeToGenericNode)
{
    addScsiNode("/dev/sg0", {0, 0, 0, 0});
    addScsiNode("/dev/sg1", {1, 0, 0, 0}, empty);
    addScsiNode("/dev/sda", {0, 0, 0, 0});
    addScsiNode("/dev/sr0", {1, 0, 0, 0}, empty);
    addScsiNode("/dev/sdb", {0, 0, 1, 0});
    struct Case {
        const char *sd;
        int result;
        const char *sg;
        const char *log;
    };
    const Case cases[] = {
        {"/dev/sda", 0, "/dev/sg0", ""},
        {"/dev/sr0", 1, "/dev/sg1", "scsi_map.cpp,N:Dev_SdToSg(): (/dev/sg1, /dev/sr0) : device not ready!\n"},
        {"/dev/sdb", -1, "kept", ""},
        {"/dev/sdq", -1, "kept", "scsi_map.cpp,N:Dev_SdToSg(): open(/dev/sdq) failed : No such file or directory\n"},
    };
    for (const Case &c : cases) {
        char sg[SG_NAME_SIZE] = "kept";
        std::string log = logOf([&] { EXPECT_EQ(Dev_SdToSg(sg, c.sd), c.result) << c.sd; });
        EXPECT_STREQ(sg, c.sg);
        // Only the map's own readiness tries are logged besides.
        const size_t tries = log.find("scsi_map.cpp");
        EXPECT_EQ(tries == std::string::npos ? "" : log.substr(tries), c.log);
    }
    EXPECT_EQ(logOf([] { EXPECT_EQ(Dev_SdToSg(nullptr, "/dev/sda"), -1); }),
              "scsi_map.cpp,N:Dev_SdToSg(): ((null), /dev/sda) : Null ptr\n");
}

TEST_F(ScsiMap, GenericNodeToBlockNode)
{
    addScsiNode("/dev/sg0", {0, 0, 0, 0});
    addScsiNode("/dev/sg1", {0, 0, 1, 0});
    addScsiNode("/dev/sg2", {2, 0, 0, 0}, empty);
    addScsiNode("/dev/sg3", {5, 0, 0, 0}, loaded);
    addScsiNode("/dev/sda", {0, 0, 0, 0});
    addScsiNode("/dev/sdb", {0, 0, 1, 0});
    addScsiNode("/dev/sr0", {2, 0, 0, 0}, empty);
    addScsiNode("/dev/scd1", {2, 0, 0, 0}, empty); // a drive's two optical names: the first in table order
    addScsiNode("/dev/sdc", {9, 0, 0, 0})->failIoctl(SCSI_IOCTL_GET_IDLUN, EIO);
    struct Case {
        const char *sg;
        int result;
        const char *sd;
        bool pastSdc; // the walk met the node whose address can't be read
    };
    for (const Case &c : {Case{"/dev/sg0", 0, "/dev/sda", false}, Case{"/dev/sg1", 0, "/dev/sdb", false},
                          Case{"/dev/sg2", 1, "/dev/scd1", true}, Case{"/dev/sg3", -1, "kept", true}}) {
        char sd[SG_NAME_SIZE] = "kept";
        const std::string log = logOf([&] { EXPECT_EQ(Dev_SgToSd(sd, c.sg), c.result) << c.sg; });
        EXPECT_STREQ(sd, c.sd);
        EXPECT_EQ(log.find("Dev_SgToSd(): get IDLUN on /dev/sdc failed : Input/output error\n") != std::string::npos,
                  c.pastSdc)
            << log;
    }
    char sd[SG_NAME_SIZE];
    EXPECT_EQ(logOf([&] { EXPECT_EQ(Dev_SgToSd(sd, "/dev/sg9"), -1); }),
              "scsi_map.cpp,N:Dev_SgToSd(): open(/dev/sg9) fail : No such file or directory\n");
    EXPECT_EQ(logOf([&] { EXPECT_EQ(Dev_SgToSd(sd, nullptr), -1); }).rfind("scsi_map.cpp,N:Dev_SgToSd(): ((null), ", 0),
              0u);
}

} // namespace
