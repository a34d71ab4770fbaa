// Moving, copying and appending real files, with failing reads and writes
// (a directory as source, /dev/full as destination).
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "COMMON.h"
#include "test_support.h"

namespace {

using fake::captureStdout;
using fake::readFile;
using fake::withoutLineNumbers;

// Bytes of every value, in a length that ends inside a block.
std::string pattern(size_t length)
{
    std::string s(length, '\0');
    for (size_t i = 0; i < length; ++i) {
        s[i] = static_cast<char>(i * 7 + i / 256);
    }
    return s;
}

bool exists(const std::string &path)
{
    return access(path.c_str(), F_OK) == 0;
}

TEST(RenameFile, MovesTheBytesAndRemovesTheSource)
{
    fake::TempDir tmp;
    for (size_t length : {0u, 512u, 1500u}) {
        const std::string content = pattern(length);
        const std::string src = tmp.write("src", content);
        const std::string dst = tmp.write("dst", "older and longer than nothing");
        EXPECT_EQ(COM_RenameFile(src.c_str(), dst.c_str()), 0) << length;
        EXPECT_EQ(readFile(dst), content);
        EXPECT_FALSE(exists(src));
    }
    // A fresh destination gets mode 0664 (less the process's mask).
    const mode_t mask = umask(0);
    const std::string src = tmp.write("again", "x");
    EXPECT_EQ(COM_RenameFile(src.c_str(), tmp.file("fresh").c_str()), 0);
    umask(mask);
    struct stat st {};
    ASSERT_EQ(stat(tmp.file("fresh").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0664u);
}

TEST(RenameFile, FailuresKeepTheSource)
{
    fake::TempDir tmp;
    const std::string src = tmp.write("src", pattern(2000));
    const std::string dir = tmp.file("dir");
    mkdir(dir.c_str(), 0755);
    struct Case {
        std::string from, to, log;
    };
    const Case cases[] = {
        {tmp.file("none"), tmp.file("d1"), "open(" + tmp.file("none") + ") failed : No such file or directory\n"},
        {src, tmp.file("no/d2"), "open(" + tmp.file("no/d2") + ") failed : No such file or directory\n"},
        {src, "/dev/full", "write() failed : No space left on device"},
        {dir, tmp.file("d3"), "read(" + dir + ") failed : Is a directory\n"},
    };
    for (const Case &c : cases) {
        int rc = 0;
        const std::string log = captureStdout([&] { rc = COM_RenameFile(c.from.c_str(), c.to.c_str()); });
        EXPECT_EQ(rc, -1) << c.to;
        EXPECT_EQ(withoutLineNumbers(log), "file_copy.cpp,N:COM_RenameFile(): " + c.log);
    }
    EXPECT_EQ(readFile(src), pattern(2000));
    EXPECT_TRUE(exists(dir));
    EXPECT_EQ(readFile(tmp.file("d3")), ""); // the destination keeps what it got
}

TEST(RenameFile, OntoItselfOrAHardLinkOfItKeepsTheFile)
{
    fake::TempDir tmp;
    const std::string src = tmp.write("src", "precious");
    link(src.c_str(), tmp.file("hard").c_str());
    for (const std::string &dst : {src, tmp.file("hard")}) {
        EXPECT_EQ(COM_RenameFile(src.c_str(), dst.c_str()), 0);
        EXPECT_EQ(readFile(src), "precious");
        EXPECT_EQ(COM_CopyFile(dst.c_str(), src.c_str()), 0);
        EXPECT_EQ(readFile(src), "precious");
    }
}

TEST(CopyFile, CopiesWholeAndReportsEachFailure)
{
    fake::TempDir tmp;
    const std::string src = tmp.write("src", pattern(20000));
    const std::string dst = tmp.write("dst", pattern(30000));
    EXPECT_EQ(COM_CopyFile(dst.c_str(), src.c_str()), 0);
    EXPECT_EQ(readFile(dst), pattern(20000));
    EXPECT_TRUE(exists(src));

    struct Case {
        std::string to, from, log;
    };
    const Case cases[] = {
        {dst, tmp.file("none"), "COM_CopyFile(): stat(" + tmp.file("none") + ") failed : No such file or directory\n"},
        {dst, tmp.path(), "COM_CopyFile(): [" + tmp.path() + "] is a folder\n"},
        {tmp.file("no/d"), src, "COM_CopyFile(): open(pDst : " + tmp.file("no/d") + ") failed : No such file or directory\n"},
        {"/dev/full", src, " write(/dev/full) failed : No space left on device\n"},
    };
    for (const Case &c : cases) {
        int rc = 0;
        const std::string log = captureStdout([&] { rc = COM_CopyFile(c.to.c_str(), c.from.c_str()); });
        EXPECT_EQ(rc, -1) << c.log;
        EXPECT_EQ(withoutLineNumbers(log), "file_copy.cpp,N:" + c.log);
    }
}

TEST(File2FileAppend, CountsAppendedBytes)
{
    fake::TempDir tmp;
    const std::string src = tmp.write("src", pattern(150000)); // two blocks
    EXPECT_EQ(COM_File2FileAppend(tmp.file("dst").c_str(), src.c_str()), 150000);
    EXPECT_EQ(COM_File2FileAppend(tmp.file("dst").c_str(), src.c_str()), 150000);
    EXPECT_EQ(readFile(tmp.file("dst")), pattern(150000) + pattern(150000));

    const std::string empty = tmp.write("empty", "");
    EXPECT_EQ(withoutLineNumbers(captureStdout([&] {
                  EXPECT_EQ(COM_File2FileAppend(tmp.file("fromEmpty").c_str(), empty.c_str()), -1);
              })),
              "");
    EXPECT_TRUE(exists(tmp.file("fromEmpty")));
    EXPECT_EQ(COM_File2FileAppend(nullptr, src.c_str()), -1);

    // Both opens are tried, each failure reported.
    int rc = 0;
    const std::string log = captureStdout([&] { rc = COM_File2FileAppend(tmp.file("no/d").c_str(), tmp.file("none").c_str()); });
    EXPECT_EQ(rc, -1);
    EXPECT_EQ(withoutLineNumbers(log),
              "file_copy.cpp,N:COM_File2FileAppend(): open(" + tmp.file("no/d") + ") error:No such file or directory\n"
              "file_copy.cpp,N:COM_File2FileAppend(): open(" + tmp.file("none") + ") error:No such file or directory\n");
}

TEST(File2FileAppend, FailedBlocksAreReportedAndNotCounted)
{
    fake::TempDir tmp;
    const std::string src = tmp.write("src", pattern(10));
    int rc = 0;
    const std::string log = captureStdout([&] { rc = COM_File2FileAppend("/dev/full", src.c_str()); });
    EXPECT_EQ(rc, -1);
    EXPECT_EQ(withoutLineNumbers(log), "file_copy.cpp,N: failed to write 10 bytes from [" + src + "] to [/dev/full]\n");

    // A file appended to itself doubles once instead of growing without end.
    EXPECT_EQ(COM_File2FileAppend(src.c_str(), src.c_str()), 10);
    EXPECT_EQ(readFile(src), pattern(10) + pattern(10));
}

} // namespace
