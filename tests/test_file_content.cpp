// Whole reads and writes of small files, the one-line files under /etc
// (through root redirection), identity files.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include "COMMON.h"
#include "test_support.h"

namespace {

using fake::captureStdout;
using fake::readFile;
using fake::withoutLineNumbers;

TEST(ReadDataFromFile, ResultTellsAllSomeOrNone)
{
    fake::TempDir tmp;
    const std::string file = tmp.write("f", "abcdef");
    const std::string empty = tmp.write("e", "");
    struct Case {
        std::string path;
        int len;
        int result;
        std::string read;
    };
    const Case cases[] = {
        {file, 6, 0, "abcdef"}, {file, 4, 0, "abcd"}, {file, 10, 1, "abcdef"},
        {empty, 4, 0, ""},      {file, 0, 0, ""},     {tmp.path(), 4, -1, ""},
    };
    for (const Case &c : cases) {
        char buf[16] = {};
        captureStdout([&] { EXPECT_EQ(COM_ReadDataFromFile(c.path.c_str(), buf, c.len), c.result) << c.len; });
        EXPECT_EQ(std::string(buf), c.read);
    }
    char buf[4];
    const std::string log = captureStdout([&] { EXPECT_EQ(COM_ReadDataFromFile(tmp.file("none").c_str(), buf, 4), -1); });
    EXPECT_EQ(withoutLineNumbers(log), "file_content.cpp,N: open(" + tmp.file("none") + ") fail : No such file or directory\n");
}

TEST(SaveDataIntoFile, WritesAllOrReports)
{
    fake::TempDir tmp;
    const std::string file = tmp.write("f", "a much longer old content");
    EXPECT_EQ(COM_SaveDataIntoFile(file.c_str(), "\x01\x00\x02", 3), 0);
    EXPECT_EQ(readFile(file), std::string("\x01\x00\x02", 3));
    int rc = 0;
    std::string log = captureStdout([&] { rc = COM_SaveDataIntoFile("/dev/full", "abcd", 4); });
    EXPECT_EQ(rc, -1);
    EXPECT_EQ(withoutLineNumbers(log),
              "file_content.cpp,N:COM_SaveDataIntoFile(): write(/dev/full) size failed - -1/4 - No space left on device\n");
    log = captureStdout([&] { rc = COM_SaveDataIntoFile(tmp.file("no/f").c_str(), "abcd", 4); });
    EXPECT_EQ(rc, -1);
    EXPECT_EQ(withoutLineNumbers(log), "file_content.cpp,N:COM_SaveDataIntoFile(): open(" + tmp.file("no/f") +
                                           ") fail : No such file or directory\n");
}

class FileContent : public testing::Test {
protected:
    void SetUp() override { fake::redirect("/etc", tmp.path()); }
    // Reads /etc/<name> into a cleared buffer of len bytes (of 64).
    std::string get(const char *name, int len, int expected)
    {
        char buf[64] = {};
        const std::string path = std::string("/etc/") + name;
        log = withoutLineNumbers(captureStdout([&] { EXPECT_EQ(COM_GetFileContent(path.c_str(), buf, len), expected) << name; }));
        return buf;
    }
    fake::TempDir tmp;
    std::string log;
};

TEST_F(FileContent, FirstLineOfEachBlock)
{
    tmp.write("Model", "DVR-4000\r\nsecond line\n");
    tmp.write("Proj", "abcdef");
    tmp.write("Note", "\nafter an empty line");
    tmp.write("Empty", "");
    // A second 256-byte block adds its own first line.
    tmp.write("Long", "first\n" + std::string(250, 'x') + "second\nrest");
    struct Case {
        const char *name;
        int len;
        int result;
        const char *text;
    };
    const Case cases[] = {
        {"Model", 64, 0, "DVR-4000"}, {"Proj", 4, 0, "abc"},       {"Proj", 1, 0, ""},
        {"Note", 64, 0, ""},          {"Long", 64, 0, "firstsecond"}, {"Empty", 64, -1, "unknown"},
        {"Missing", 64, -1, "unknown"}, {"Missing", 3, -1, "un"},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(get(c.name, c.len, c.result), c.text) << c.name << " " << c.len;
        EXPECT_EQ(log, "") << c.name;
    }
}

TEST_F(FileContent, BadInputAndUnreadableFilesLeaveUnknown)
{
    char buf[16] = "kept";
    int rc = 0;
    captureStdout([&] { rc = COM_GetFileContent("/etc/Model", buf, 0); });
    EXPECT_EQ(rc, -1);
    EXPECT_STREQ(buf, "kept"); // nothing fits in no room
    char expected[128];
    snprintf(expected, sizeof expected, "file_content.cpp,N:COM_GetFileContent(): input error : (pFileName, pBuf, len) = (%p, %p, %d)\n",
             static_cast<const void *>(nullptr), static_cast<void *>(buf), 16);
    EXPECT_EQ(withoutLineNumbers(captureStdout([&] { rc = COM_GetFileContent(nullptr, buf, 16); })), expected);
    EXPECT_STREQ(buf, "unknown");

    mkdir(tmp.file("Dir").c_str(), 0755);
    EXPECT_EQ(get("Dir", 64, -1), "unknown");
    EXPECT_EQ(log, "file_content.cpp,N:COM_GetFileContent(): read(/etc/Dir) error : Is a directory\n");
}

TEST_F(FileContent, SetAndAppend)
{
    const std::string file = tmp.file("Port");
    EXPECT_EQ(COM_SetFileContent("/etc/Port", "8080"), 0);
    EXPECT_EQ(COM_AppendFileContent("/etc/Port", "\n9090"), 0);
    EXPECT_EQ(readFile(file), "8080\n9090");
    EXPECT_EQ(get("Port", 64, 0), "8080");
    EXPECT_EQ(COM_AppendFileContent("/etc/Port", ""), -1);
    EXPECT_EQ(readFile(file), "8080\n9090");
    EXPECT_EQ(COM_SetFileContent("/etc/Port", ""), -1); // truncated all the same
    EXPECT_EQ(readFile(file), "");

    const char *path = "/etc/Port";
    std::string log = withoutLineNumbers(captureStdout([&] { COM_SetFileContent(path, nullptr); }));
    char expected[160];
    snprintf(expected, sizeof expected, "file_content.cpp,N:COM_SetFileContent(): input error : (pFileName, pBuf) = (%p, %p)\n",
             static_cast<const void *>(path), static_cast<const void *>(nullptr));
    EXPECT_EQ(log, expected);
    log = withoutLineNumbers(captureStdout([] { COM_AppendFileContent("/etc/no/Port", "x"); }));
    EXPECT_EQ(log, "file_content.cpp,N:COM_AppendFileContent(): open(/etc/no/Port) error : No such file or directory\n");
}

TEST(SaveID, WritesTheIdentityFile)
{
    fake::TempDir tmp;
    EXPECT_EQ(COM_SaveID(tmp.path().c_str(), "WD-123456"), 0);
    EXPECT_EQ(readFile(tmp.file("ID")), "WD-123456");
    EXPECT_EQ(COM_SaveID(tmp.path().c_str(), ""), -1);
    EXPECT_EQ(readFile(tmp.file("ID")), "");
    EXPECT_EQ(access(tmp.file("ID").c_str(), F_OK), 0);
    const std::string log = captureStdout([&] { EXPECT_EQ(COM_SaveID(tmp.file("none").c_str(), "x"), -1); });
    captureStdout([] { EXPECT_EQ(COM_SaveID(std::string(90, 'd').c_str(), "x"), -1); }); // past the 80-byte path
    EXPECT_EQ(withoutLineNumbers(log), "file_content.cpp,N:COM_SaveID(): fopen(" + tmp.file("none") +
                                           "/ID) error : No such file or directory\n");
}

TEST(InvertBytes, ComplementsEachByte)
{
    unsigned char bytes[] = {0x00, 0xFF, 0x5A, 0x81};
    EXPECT_EQ(COM_InvertBytes(bytes, 3), 0);
    EXPECT_EQ(std::vector<unsigned char>(bytes, bytes + 4), (std::vector<unsigned char>{0xFF, 0x00, 0xA5, 0x81}));
    EXPECT_EQ(COM_InvertBytes(bytes, -1), 0);
    EXPECT_EQ(COM_InvertBytes(nullptr, 4), -1);
    setenv("PWD", "/mnt/disk1", 1);
    EXPECT_STREQ(COM_GetPwd(), "/mnt/disk1");
}

} // namespace
