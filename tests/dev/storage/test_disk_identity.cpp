// Identify data and SMART values from recorded /proc/ide texts, and the ID
// file on a directory that the mount table names as a disk's mount point.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "DEV.h"
#include "fake_scsi.h"
#include "test_support.h"

namespace {

class DiskIdentity : public testing::Test {
protected:
    void SetUp() override { fake::redirect("/proc/ide", DVR_TEST_DATA_DIR "/storage/proc_ide"); }
    fake::TempDir dir;
};

// The cases of identity.cases, each call's results and log as one line.
TEST_F(DiskIdentity, RecordedTexts)
{
    std::ifstream cases(DVR_TEST_DATA_DIR "/storage/identity.cases");
    std::string line;
    while (std::getline(cases, line)) {
        std::vector<std::string> f;
        for (std::istringstream in(line);
             f.size() < 7 && std::getline(in, f.emplace_back(), '|');) {
        }
        if (line[0] == '#' || f.size() < 6) {
            continue;
        }
        std::string got;
        const std::string log = fake::logOf([&] {
            if (f[0] == "identify") {
                char sn[DEV_SN_SIZE] = "-", fw[DEV_FW_REV_SIZE] = "-", md[DEV_ATA_MODEL_SIZE] = "-";
                got = std::to_string(Dev_GetDevIdentify(f[1].c_str(), sn, fw, md)) + "|" + sn +
                      "|" + fw + "|" + md;
            } else {
                SmartValue smart{static_cast<uint8_t>(std::stoi(f[2])), 99};
                got = f[2] + "|" + std::to_string(Dev_GetSmartValue(f[1].c_str(), &smart)) + "|";
                got += std::to_string(smart.value);
            }
        });
        EXPECT_EQ(f[0] + "|" + f[1] + "|" + got + "|" + log, line + (log.empty() ? "" : "\n"));
    }
}

TEST_F(DiskIdentity, OneItemAloneBadArgumentsAndShortStreams)
{
    char fw[DEV_FW_REV_SIZE] = "-";
    EXPECT_EQ(Dev_GetDevIdentify("hda", nullptr, fw, nullptr), 0); // the others untouched
    EXPECT_STREQ(fw, "05.01C05");
    // 16 bytes: the slot at byte 15 has its raw byte beyond the stream.
    dir.write("ide/hdx/smart_values", "0000 0000 0000 0000 0000 0000 0000 00c2\n");
    dir.write("file", "");
    SmartValue smart{0xC2, 0};
    EXPECT_EQ(fake::logOf([&] {
                  EXPECT_EQ(Dev_GetDevIdentify(nullptr, nullptr, nullptr, nullptr), -1);
                  EXPECT_EQ(Dev_GetSmartValue(nullptr, nullptr), -1);
                  fake::redirect("/proc/ide", dir.file("ide"));
                  EXPECT_EQ(Dev_GetSmartValue("hdx", &smart), -1);
                  fake::redirect("/proc/ide", dir.file("file")); // under a plain file
                  EXPECT_EQ(Dev_GetSmartValue("hda", &smart), -1);
              }),
              "disk_identity.cpp,N:Dev_GetDevIdentify(): Invalid input : (pDevPath, pSN, pFwRev, "
              "pModel) = ((nil), (nil), (nil), (nil))\n"
              "disk_identity.cpp,N:Dev_GetSmartValue(): Invalid Input : (pDev, pSmart) = ((null), "
              "(nil))\n"
              "disk_identity.cpp,N: open(/proc/ide/hda/smart_values) error : Not a directory\n");
}

TEST_F(DiskIdentity, IdFileMadeOnFirstQuestionOnlyForIdeDisks)
{
    const std::string hdb = dir.file("hdb"), sda = dir.file("sda");
    fake::redirect("/proc/mounts",
                   dir.write("mounts", "/dev/hdb3 " + hdb + " ext3 rw 0 0\n/dev/sda1 " + sda +
                                           " ext3 rw 0 0\n"));
    dir.write("hdb/.keep", "");
    dir.write("sda/.keep", "");
    char id[DEV_ID_SIZE] = "-";
    EXPECT_EQ(Dev_GetIDViaDev(id, "/dev/hdb"), 0); // made from hdb for /dev/hdb3
    EXPECT_EQ(fake::readFile(hdb + "/ID"), "S1234567            ");
    dir.write("hdb/ID", "kept\nsecond line\n");
    EXPECT_EQ(Dev_GetIDViaMount(id, hdb.c_str()), 0);
    EXPECT_STREQ(id, "kept\n");
    dir.write("hdb/ID", "");
    EXPECT_EQ(Dev_GetIDViaMount(id, hdb.c_str()), -1);
    EXPECT_EQ(Dev_GetIDViaMount(id, sda.c_str()), -1); // not an IDE disk: no file made
    EXPECT_FALSE(std::ifstream(sda + "/ID").good());
    EXPECT_EQ(Dev_GetIDViaDev(id, "/dev/hdz"), -1);
    EXPECT_STREQ(id, "kept\n");
}

} // namespace
