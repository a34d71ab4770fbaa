// Identify data and SMART values from recorded /proc/ide texts, and the ID
// file on a directory that the mount table names as a disk's mount point.
#include <gtest/gtest.h>

#include <fstream>

#include "DEV.h"
#include "fake_scsi.h"
#include "test_support.h"

namespace {

const std::string kProcIde = DVR_TEST_DATA_DIR "/storage/proc_ide";
const std::string kPad22(22, ' ');

std::string pointer(const void *p)
{
    char text[32];
    snprintf(text, sizeof text, "%p", p);
    return text;
}

class DiskIdentity : public testing::Test {
protected:
    void SetUp() override { fake::redirect("/proc/ide", kProcIde); }
    fake::TempDir dir;
};

TEST_F(DiskIdentity, IdentifyTexts)
{
    struct Case {
        const char *dev;
        int result;
        std::string sn, fw, model, log;
    } cases[] = {
        {"hda", 0, "     WD-WMAM9ABCD123", "05.01C05", "WDC WD800JB-00JJC0" + kPad22, ""},
        {"/dev/hdb", 0, "S1234567" + std::string(12, ' '), "V-1.0   ",
         "AB1234  V-1.0" + std::string(27, ' '), ""},
        {"/dev/hdd", -1, "-", "-", "-",
         "disk_identity.cpp,N:Dev_GetDevIdentify(): count error : (count, size, limit) = (93, "
         "187, 94)\n"},
        {"/dev/hdf", -1, "-", "-", "-", ""},
        {"/dev/sda", -1, "-", "-", "-", ""},
    };
    for (const Case &c : cases) {
        char sn[DEV_SN_SIZE] = "-", fw[DEV_FW_REV_SIZE] = "-", model[DEV_ATA_MODEL_SIZE] = "-";
        const std::string log =
            fake::logOf([&] { EXPECT_EQ(Dev_GetDevIdentify(c.dev, sn, fw, model), c.result); });
        EXPECT_EQ(sn, c.sn) << c.dev;
        EXPECT_EQ(fw, c.fw) << c.dev;
        EXPECT_EQ(model, c.model) << c.dev;
        EXPECT_EQ(log, c.log) << c.dev;
    }
    // One item alone; the others stay untouched.
    char fw[DEV_FW_REV_SIZE] = "-";
    EXPECT_EQ(Dev_GetDevIdentify("hda", nullptr, fw, nullptr), 0);
    EXPECT_STREQ(fw, "05.01C05");
    const char *hda = "hda";
    EXPECT_EQ(
        fake::logOf([&] { EXPECT_EQ(Dev_GetDevIdentify(hda, nullptr, nullptr, nullptr), -1); }),
        "disk_identity.cpp,N:Dev_GetDevIdentify(): Invalid input : (pDevPath, pSN, pFwRev, "
        "pModel) = (" +
            pointer(hda) + ", (nil), (nil), (nil))\n");
}

TEST_F(DiskIdentity, SmartValues)
{
    struct Case {
        const char *dev;
        uint8_t attribute;
        int result, value;
    } cases[] = {
        {"hda", 0xC2, 0, 45},       {"/dev/hdb", 0xC2, 0, 38}, // temperature in slot 8, slot 0
        {"hde", 0xC2, 0, 50},                                  // behind slots of number 0
        {"hda", 0x09, 0, 6},        {"hdd", 0xC2, -1, 99},     // no such attribute
        {"/dev/hdc", 0xC2, -1, 99}, {"sda", 0xC2, -1, 99},     // no smart_values
    };
    for (const Case &c : cases) {
        SmartValue smart{c.attribute, 99};
        EXPECT_EQ(fake::logOf([&] { EXPECT_EQ(Dev_GetSmartValue(c.dev, &smart), c.result); }), "");
        EXPECT_EQ(smart.value, c.value) << c.dev;
    }
    SmartValue smart{0xC2, 0};
    fake::redirect("/proc/ide", dir.write("file", "")); // under a plain file
    EXPECT_EQ(
        fake::logOf([&] {
            EXPECT_EQ(Dev_GetSmartValue("hda", &smart), -1);
            EXPECT_EQ(Dev_GetSmartValue(nullptr, &smart), -1);
        }),
        "disk_identity.cpp,N: open(/proc/ide/hda/smart_values) error : Not a directory\n"
        "disk_identity.cpp,N:Dev_GetSmartValue(): Invalid Input : (pDev, pSmart) = ((null), " +
            pointer(&smart) + ")\n");
}

TEST_F(DiskIdentity, IdFileMadeOnFirstQuestion)
{
    const std::string hdb = dir.file("hdb"), sda = dir.file("sda");
    fake::redirect("/proc/mounts",
                   dir.write("mounts", "/dev/hdb3 " + hdb + " ext3 rw 0 0\n/dev/sda1 " + sda +
                                           " ext3 rw 0 0\n"));
    dir.write("hdb/.keep", "");
    dir.write("sda/.keep", "");
    char id[DEV_ID_SIZE] = "-";
    EXPECT_EQ(Dev_GetIDViaDev(id, "/dev/hdb"), 0);
    EXPECT_STREQ(id, "S1234567            ");
    EXPECT_EQ(fake::readFile(hdb + "/ID"), "S1234567            ");
    dir.write("hdb/ID", "kept\nsecond line\n"); // an existing file is read as it is
    EXPECT_EQ(Dev_GetIDViaMount(id, hdb.c_str()), 0);
    EXPECT_STREQ(id, "kept\n");
    dir.write("hdb/ID", "");
    EXPECT_EQ(Dev_GetIDViaMount(id, hdb.c_str()), -1);

    EXPECT_EQ(Dev_GetIDViaMount(id, sda.c_str()), -1); // not an IDE disk: no file made
    EXPECT_FALSE(std::ifstream(sda + "/ID").good());
    EXPECT_EQ(Dev_SaveIDViaMount(sda.c_str()), -1);
    EXPECT_EQ(Dev_GetIDViaDev(id, "/dev/hdz"), -1);
    EXPECT_STREQ(id, "kept\n");
}

} // namespace
