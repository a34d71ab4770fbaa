// Device numbers to node names over the whole major table, and the boot
// signature check on real image files.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "DEV.h"
#include "fake_scsi.h"
#include "test_support.h"

namespace {

// Each case line of device_numbers.txt, and its log, as one line.
TEST(DeviceNumbers, TableOfNames)
{
    std::ifstream cases(DVR_TEST_DATA_DIR "/storage/device_numbers.txt");
    std::string line, first, result;
    int number = 0, rows = 0;
    while (std::getline(cases, line)) {
        if (!(std::istringstream(line) >> first >> number >> result) || first[0] == '#') {
            continue;
        }
        char name[DEV_NODE_NAME_SIZE] = "-";
        std::string got = first + " " + std::to_string(number) + " ";
        const std::string log = fake::logOf([&] {
            if (first == "letters") {
                name[0] = '\0';
                Dev_AppendDiskLetters(number, name, 0);
            } else {
                got += std::to_string(Dev_ConvertMajorMinor(std::stoi(first), number, name)) + " ";
            }
        });
        for (char c : log) { // the case line writes a line end as \n
            got += c == '\n' ? std::string("\\n") : std::string(1, c);
        }
        EXPECT_EQ(got + name, line);
        ++rows;
    }
    EXPECT_EQ(rows, 51);
}

class PartitionCheck : public testing::Test {
protected:
    std::string image(const std::string &name, size_t size, bool signature)
    {
        std::string bytes(size, '\0');
        if (signature) {
            bytes[510] = '\x55';
            bytes[511] = '\xAA';
        }
        return dir.write(name, bytes);
    }
    fake::TempDir dir;
};

TEST_F(PartitionCheck, Signatures)
{
    const std::string mbr = image("mbr", 4 << 20, false);
    if (system(("echo 'start=2048, type=83' | sfdisk -q " + mbr + " >/dev/null 2>&1").c_str()) !=
        0) {
        GTEST_SKIP() << "sfdisk is missing";
    }
    const std::string boot = image("boot", 512, true), blank = image("blank", 1 << 20, false);
    const std::string shortFile = image("short", 511, true), missing = dir.file("missing");
    const std::string log = fake::logOf([&] {
        EXPECT_EQ(Dev_CheckPartition(mbr.c_str()), 0);
        EXPECT_EQ(Dev_CheckPartition(boot.c_str()), 0);
        EXPECT_EQ(Dev_CheckPartition(blank.c_str()), 1);
        EXPECT_EQ(Dev_CheckPartition(shortFile.c_str()), 2);
        EXPECT_EQ(Dev_CheckPartition(missing.c_str()), -1);
        EXPECT_EQ(Dev_CheckPartition(dir.path().c_str()), 2);
        EXPECT_EQ(Dev_CheckPartition((dir.path() + "/blank/x").c_str()), -1);
    });
    EXPECT_EQ(log, fake::logLines("partition_check.cpp,N:Dev_CheckPartition(): ",
                                  "read(" + shortFile + ") error : Success\n|read(" + dir.path() +
                                      ") error : Is a directory\n|open(" + dir.path() +
                                      "/blank/x) failed : Not a directory\n"));
}

} // namespace
