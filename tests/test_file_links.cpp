// Links, relocation, device nodes and descriptor names on real files.
#include <gtest/gtest.h>

#include <climits>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "COMMON.h"
#include "test_support.h"

namespace {

using fake::captureStdout;
using fake::readFile;
using fake::withoutLineNumbers;

std::string linkText(const std::string &path)
{
    char buf[PATH_MAX] = {};
    return readlink(path.c_str(), buf, sizeof buf - 1) > 0 ? buf : "";
}

TEST(RemoveRealFile, TargetGoesAndTheLinkStaysDangling)
{
    fake::TempDir tmp;
    const std::string target = tmp.write("target", "t");
    const std::string link = tmp.file("link");
    symlink(target.c_str(), link.c_str());
    EXPECT_EQ(COM_RemoveRealFile(link.c_str()), 0);
    EXPECT_NE(access(target.c_str(), F_OK), 0);
    EXPECT_EQ(linkText(link), target);

    int rc = 0;
    const std::string log = captureStdout([&] { rc = COM_RemoveRealFile(link.c_str()); });
    EXPECT_EQ(rc, -1);
    EXPECT_EQ(withoutLineNumbers(log), "file_links.cpp,N:COM_RemoveRealFile(): stat(" + link +
                                           ") error : No such file or directory\n");

    const std::string plain = tmp.write("plain", "p");
    EXPECT_EQ(withoutLineNumbers(captureStdout([&] { EXPECT_EQ(COM_RemoveRealFile(plain.c_str()), 0); })), "");
    EXPECT_NE(access(plain.c_str(), F_OK), 0);
}

// Paths that don't fit the fixed buffers are refused whole, never cut: a
// cut path could name another file.
TEST(FixedBuffers, LongPathsAreRefusedAndNothingGoes)
{
    fake::TempDir tmp;
    const std::string level(60, 'l');
    const std::string deep = tmp.write(level + "/" + level + "/" + level + "/" + level + "/file", "x");
    ASSERT_GT(deep.size(), 256u);
    const std::string link = tmp.file("link");
    symlink(deep.c_str(), link.c_str());

    std::string log = captureStdout([&] { EXPECT_EQ(COM_RemoveRealFile(link.c_str()), -1); });
    EXPECT_EQ(withoutLineNumbers(log), "file_links.cpp,N:COM_RemoveRealFile(): realpath(" + link + ") failed : File name too long\n");
    log = captureStdout([&] { EXPECT_EQ(COM_RelocateAndLink((deep + "2").c_str(), link.c_str()), -1); });
    EXPECT_EQ(withoutLineNumbers(log), "file_links.cpp,N:COM_RelocateAndLink(): dirname(" + deep + "2) error : File name too long\n");
    const std::string dir = deep.substr(0, deep.size() - 5);
    log = captureStdout([&] { EXPECT_EQ(COM_RemoveFileInDir(0, dir.c_str()), -1); });
    EXPECT_NE(log.find(") error : File name too long\n"), std::string::npos) << log;
    EXPECT_EQ(readFile(deep), "x");
    EXPECT_EQ(linkText(link), deep);
}

TEST(CreateSymbolLink, ReplacesOnlyForAnExistingTargetOrByForce)
{
    fake::TempDir tmp;
    const std::string link = tmp.write("link", "old");
    const std::string missing = tmp.file("missing");
    int rc = 0;
    const std::string log = captureStdout([&] { rc = COM_CreateSymbolLink(0, missing.c_str(), link.c_str()); });
    EXPECT_EQ(rc, -1);
    EXPECT_EQ(withoutLineNumbers(log), "file_links.cpp,N:COM_CreateSymbolLink(): symlink(" + missing + ", " +
                                           link + ") fail : File exists\n");
    EXPECT_EQ(readFile(link), "old");

    EXPECT_EQ(COM_CreateSymbolLink(1, missing.c_str(), link.c_str()), 0);
    EXPECT_EQ(linkText(link), missing);
    const std::string target = tmp.write("target", "new");
    EXPECT_EQ(COM_CreateSymbolLink(0, target.c_str(), link.c_str()), 0);
    EXPECT_EQ(readFile(link), "new");
}

TEST(RelocateAndLink, EachStateOfLinkAndTarget)
{
    fake::TempDir tmp;
    // Nothing at the link: the target's directory is made, the link points there.
    const std::string target1 = tmp.file("store/a/one");
    EXPECT_EQ(COM_RelocateAndLink(target1.c_str(), tmp.file("one").c_str()), 0);
    EXPECT_EQ(linkText(tmp.file("one")), target1);
    struct stat st {};
    EXPECT_EQ(stat(tmp.file("store/a").c_str(), &st), 0);

    // A file at the link and no target: the file moves, then is linked.
    const std::string link2 = tmp.write("two", "settings");
    const std::string target2 = tmp.file("store/b/two");
    EXPECT_EQ(COM_RelocateAndLink(target2.c_str(), link2.c_str()), 0);
    EXPECT_EQ(linkText(link2), target2);
    EXPECT_EQ(readFile(target2), "settings");

    // Both there: the target wins.
    const std::string link3 = tmp.write("three", "mine");
    const std::string target3 = tmp.write("store/three", "theirs");
    EXPECT_EQ(COM_RelocateAndLink(target3.c_str(), link3.c_str()), 0);
    EXPECT_EQ(readFile(link3), "theirs");

    // A directory at the link can't be carried over; it stays.
    mkdir(tmp.file("four").c_str(), 0755);
    EXPECT_EQ(COM_RelocateAndLink(tmp.file("store/four").c_str(), tmp.file("four").c_str()), -1);
    EXPECT_EQ(lstat(tmp.file("four").c_str(), &st), 0);
    EXPECT_TRUE(S_ISDIR(st.st_mode));
}

TEST(RelocateAndLink, FailedCopyKeepsTheFile)
{
    fake::TempDir tmp;
    const std::string link = tmp.write("keep", "data");
    // The target is a dangling link into a missing directory: it can't be created.
    const std::string target = tmp.file("dangling");
    symlink(tmp.file("nodir/x").c_str(), target.c_str());
    int rc = 0;
    const std::string log = captureStdout([&] { rc = COM_RelocateAndLink(target.c_str(), link.c_str()); });
    EXPECT_EQ(rc, -1);
    EXPECT_EQ(withoutLineNumbers(log), "file_copy.cpp,N:COM_CopyFile(): open(pDst : " + target +
                                           ") failed : No such file or directory\n");
    EXPECT_EQ(linkText(link), "");
    EXPECT_EQ(readFile(link), "data");
}

TEST(MakeNode, CreatesOnceAndReportsFailures)
{
    fake::TempDir tmp;
    fake::redirect("/dev/dvr-test", tmp.path());
    EXPECT_EQ(COM_MakeNode("/dev/dvr-test/fifo", S_IFIFO | 0664, 0), 0);
    struct stat st {};
    ASSERT_EQ(stat(tmp.file("fifo").c_str(), &st), 0);
    EXPECT_TRUE(S_ISFIFO(st.st_mode));
    EXPECT_EQ(COM_MakeNode("/dev/dvr-test/fifo", S_IFCHR | 0664, makedev(1, 3)), 0); // left as it is
    if (COM_MakeNode("/dev/dvr-test/null", 0x21B4, 0x0103) == 0) { // needs the right to make nodes
        ASSERT_EQ(stat(tmp.file("null").c_str(), &st), 0);
        EXPECT_TRUE(S_ISCHR(st.st_mode));
        EXPECT_EQ(st.st_rdev, makedev(1, 3));
    }

    const std::string file = tmp.write("plain", "");
    struct Case {
        std::string path;
        std::string log;
    };
    const Case cases[] = {
        {file + "/n", "stat(" + file + "/n) fail : Not a directory\n"},
        {tmp.file("no/n"), "mknod(" + tmp.file("no/n") + ") fail : No such file or directory\n"},
    };
    for (const Case &c : cases) {
        int rc = 0;
        const std::string log = captureStdout([&] { rc = COM_MakeNode(c.path.c_str(), S_IFIFO | 0664, 0); });
        EXPECT_EQ(rc, -1);
        EXPECT_EQ(withoutLineNumbers(log), "file_links.cpp,N: " + c.log);
    }
}

class FdInfo : public testing::Test {
protected:
    std::string info(int fd, int verbose, int expected)
    {
        char out[COM_FD_INFO_SIZE];
        memset(out, 'z', sizeof out - 1);
        out[sizeof out - 1] = '\0';
        int rc = 0;
        log = withoutLineNumbers(captureStdout([&] { rc = COM_GetFdInfo(fd, out, verbose); }));
        EXPECT_EQ(rc, expected);
        return out;
    }
    std::string log;
    const std::string pid = std::to_string(getpid());
};

TEST_F(FdInfo, NamesTheFileAndShowsItsType)
{
    fake::TempDir tmp;
    const std::string path = tmp.write("data", std::string(300, 'd'));
    const int fd = open(path.c_str(), O_RDONLY);
    lseek(fd, 120, SEEK_SET);
    EXPECT_EQ(info(fd, 1, 0), path);
    const std::string proc = "/proc/" + pid + "/fd/" + std::to_string(fd);
    EXPECT_EQ(log, "fd_info.cpp,N: [" + proc + "] => [" + path + "]\n"
                   "fd_info.cpp,N: (pid, fd, type) = (" + pid + ", " + std::to_string(fd) + ", [RegularfFile])\n"
                   "fd_info.cpp,N: (size, cur_off) = (300, 120)\n");
    EXPECT_EQ(info(fd, 0, 0), path);
    EXPECT_EQ(log, "");
    close(fd);

    mkfifo(tmp.file("fifo").c_str(), 0600);
    struct Kind {
        std::string path;
        int flags;
        const char *type;
    };
    const Kind kinds[] = {{tmp.path(), O_RDONLY | O_DIRECTORY, "Dir"},
                          {"/dev/null", O_RDWR, "CharDev"},
                          {tmp.file("fifo"), O_RDWR | O_NONBLOCK, "FIFO"}};
    for (const Kind &k : kinds) {
        const int kfd = open(k.path.c_str(), k.flags);
        info(kfd, 1, 0);
        EXPECT_NE(log.find(", " + std::to_string(kfd) + ", [" + k.type + "])\n"), std::string::npos) << log;
        close(kfd);
    }
}

TEST_F(FdInfo, PipesClosedAndNegativeDescriptors)
{
    int p[2];
    ASSERT_EQ(pipe(p), 0);
    const std::string text = info(p[0], 1, -1);
    EXPECT_EQ(text.rfind("pipe:[", 0), 0u) << text;
    EXPECT_EQ(log, "fd_info.cpp,N:COM_GetFdInfo(): stat(" + text + ") fail : No such file or directory\n");
    close(p[0]);
    close(p[1]);

    const int closed = 1000;
    ASSERT_EQ(fcntl(closed, F_GETFD), -1);
    EXPECT_EQ(info(closed, 1, -1), ""); // not open: the buffer is emptied
    EXPECT_EQ(log, "fd_info.cpp,N:COM_GetFdInfo(): readlink(/proc/" + pid + "/fd/1000) fail : No such file or directory\n");
    EXPECT_EQ(info(-1, 1, -1), std::string(COM_FD_INFO_SIZE - 1, 'z')); // untouched
    EXPECT_EQ(log, "");
}

} // namespace
