// Making and clearing directory trees on real temporary directories, with
// links, dangling links, "lost+found" and a read-only directory.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <functional>
#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "COMMON.h"
#include "test_support.h"

namespace {

using fake::captureStdout;
using fake::withoutLineNumbers;

bool exists(const std::string &path)
{
    struct stat st {};
    return lstat(path.c_str(), &st) == 0;
}

// Runs fn in a child without root's rights (as nobody), so that directory
// permissions hold; gives fn's result and what the child printed.
std::pair<int, std::string> asNobody(const std::function<int()> &fn)
{
    int out[2];
    if (pipe(out) != 0) {
        return {-99, ""};
    }
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(out[1], STDOUT_FILENO);
        close(out[0]);
        close(out[1]);
        if (setgroups(0, nullptr) != 0 || setgid(65534) != 0 || setuid(65534) != 0) {
            // Not root: the permissions hold as they are.
        }
        const int rc = fn();
        fflush(stdout);
        _exit(rc & 0xFF);
    }
    close(out[1]);
    std::string text;
    char buf[256];
    for (ssize_t n; (n = read(out[0], buf, sizeof buf)) > 0;) {
        text.append(buf, static_cast<size_t>(n));
    }
    close(out[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    return {static_cast<int8_t>(WEXITSTATUS(status)), withoutLineNumbers(text)};
}

TEST(Mkdir, MakesParentsAndLeavesWhatIsThere)
{
    fake::TempDir tmp;
    const std::string deep = tmp.file("a/b/c");
    EXPECT_EQ(COM_Mkdir(deep.c_str(), 0750), 0);
    struct stat st {};
    ASSERT_EQ(stat(deep.c_str(), &st), 0);
    EXPECT_TRUE(S_ISDIR(st.st_mode));
    for (const std::string &again : {deep, deep + "/", tmp.path()}) {
        EXPECT_EQ(withoutLineNumbers(captureStdout([&] { EXPECT_EQ(COM_Mkdir(again.c_str(), 0755), 0); })), "");
    }
}

TEST(Mkdir, StopsAtTheFirstPrefixThatFailsAndKeepsErrno)
{
    fake::TempDir tmp;
    const std::string file = tmp.write("plain", "x");
    int rc = 0;
    const std::string log = captureStdout([&] { rc = COM_Mkdir((file + "/d/e").c_str(), 0755); });
    EXPECT_EQ(rc, -1);
    EXPECT_EQ(errno, ENOTDIR);
    // "plain/" gives EEXIST, passed over like any existing prefix.
    EXPECT_EQ(withoutLineNumbers(log), "dir_tree.cpp,N:COM_Mkdir(): mkdir(" + file + "/d/) error : Not a directory\n");

    const std::string longPath = "/" + std::string(300, 'x') + "/y";
    captureStdout([&] { EXPECT_EQ(COM_Mkdir(longPath.c_str(), 0755), -1); });
    EXPECT_EQ(errno, ENAMETOOLONG);
}

TEST(Mkdir, FixedPathsFollowRedirection)
{
    fake::TempDir tmp;
    fake::redirect("/var/run", tmp.path());
    EXPECT_EQ(COM_Mkdir("/var/run/app/sub", 0775), 0);
    EXPECT_TRUE(exists(tmp.file("app/sub")));
}

class RemoveTree : public testing::Test {
protected:
    void SetUp() override
    {
        tmp.write("top/a", "1");
        tmp.write("top/b", "2");
        tmp.write("top/lost+found/keep", "k");
        tmp.write("top/sub/c", "3");
        tmp.write("top/sub/lost+found/keep", "k");
        tmp.write("top/empty/d", "4");
        tmp.write("outside/target", "t");
        symlink(tmp.file("outside/target").c_str(), tmp.file("top/link").c_str());
    }
    std::string top() const { return tmp.file("top"); }
    fake::TempDir tmp;
};

TEST_F(RemoveTree, NonRecursiveRemovesFilesOnly)
{
    for (int flag : {0, 2}) { // recursion only with exactly 1
        SetUp();
        EXPECT_EQ(COM_RemoveFileInDir(flag, top().c_str()), 3) << flag; // a, b, link
    }
    EXPECT_FALSE(exists(tmp.file("top/a")));
    EXPECT_FALSE(exists(tmp.file("top/link")));
    EXPECT_TRUE(exists(tmp.file("outside/target"))); // the link went, not its target
    EXPECT_TRUE(exists(tmp.file("top/sub/c")));
    EXPECT_TRUE(exists(tmp.file("top/lost+found/keep")));
}

TEST_F(RemoveTree, RecursiveKeepsLostAndFoundAtEveryLevel)
{
    std::string log;
    int rc = 0;
    log = captureStdout([&] { rc = COM_RemoveDirAndFile(1, top().c_str()); });
    // a, b, link, sub/c, empty/d, empty: 6; sub and top keep a lost+found.
    EXPECT_EQ(rc, 6);
    EXPECT_EQ(withoutLineNumbers(log),
              "dir_tree.cpp,N:_COM_RemoveFileInDir_(): rmdir(" + top() + "/sub) error : Directory not empty\n"
              "dir_tree.cpp,N:_COM_RemoveFileInDir_(): rmdir(" + top() + ") error : Directory not empty\n");
    EXPECT_TRUE(exists(tmp.file("top/sub/lost+found/keep")));
    EXPECT_TRUE(exists(tmp.file("top/lost+found/keep")));
    EXPECT_FALSE(exists(tmp.file("top/empty")));
    EXPECT_TRUE(exists(tmp.file("outside/target")));
}

TEST_F(RemoveTree, DanglingLinkFailsAndStaysWhileTheRestGoes)
{
    unlink(tmp.file("outside/target").c_str());
    int rc = 0;
    const std::string log = captureStdout([&] { rc = COM_RemoveFileInDir(0, top().c_str()); });
    EXPECT_EQ(rc, -1);
    EXPECT_EQ(withoutLineNumbers(log), "dir_tree.cpp,N:_COM_RemoveFileInDir_(): stat(" + top() +
                                           "/link) error : No such file or directory\n");
    EXPECT_TRUE(exists(tmp.file("top/link")));
    EXPECT_FALSE(exists(tmp.file("top/a")));
}

TEST_F(RemoveTree, LinkToADirectoryIsClearedThrough)
{
    tmp.write("holder/x", "x");
    const std::string in = tmp.file("holder/in");
    symlink(tmp.file("top/sub").c_str(), in.c_str());
    int rc = 0;
    const std::string log = captureStdout([&] { rc = COM_RemoveFileInDir(1, tmp.file("holder").c_str()); });
    EXPECT_EQ(rc, 2); // x, and c through the link
    EXPECT_EQ(withoutLineNumbers(log), "dir_tree.cpp,N:_COM_RemoveFileInDir_(): rmdir(" + in + ") error : Not a directory\n");
    EXPECT_FALSE(exists(tmp.file("top/sub/c")));
    EXPECT_TRUE(exists(in));
}

TEST(RemoveDir, RefusedOrUnreadablePathsGiveZero)
{
    struct Case {
        const char *path;
        const char *log;
    };
    const Case cases[] = {
        {"/", "opendir(/) error : Invalid argument\n"},
        {"///", "opendir(///) error : Invalid argument\n"},
        {nullptr, "opendir((null)) error : Invalid argument\n"},
        {"/nonexistent-dvr", "opendir(/nonexistent-dvr) error : No such file or directory\n"},
    };
    for (const Case &c : cases) {
        int rc = -5;
        const std::string log = captureStdout([&] { rc = COM_RemoveDirAndFile(1, c.path); });
        EXPECT_EQ(rc, 0);
        EXPECT_EQ(withoutLineNumbers(log), std::string("dir_tree.cpp,N:_COM_RemoveFileInDir_(): ") + c.log);
    }
}

TEST(RemoveDir, ReadOnlyDirectoryReportsEachFileAndFails)
{
    fake::TempDir tmp;
    chmod(tmp.path().c_str(), 0755);
    const std::string ro = tmp.file("ro");
    tmp.write("ro/f", "1");
    chmod(ro.c_str(), 0555);
    const auto [rc, log] = asNobody([&] { return COM_RemoveDirAndFile(1, ro.c_str()); });
    EXPECT_EQ(rc, -1);
    EXPECT_EQ(log, "dir_tree.cpp,N:_COM_RemoveFileInDir_(): unlink(" + ro + "/f) error : Permission denied\n"
                   "dir_tree.cpp,N:_COM_RemoveFileInDir_(): rmdir(" + ro + ") error : Permission denied\n");
    EXPECT_TRUE(exists(ro + "/f"));
    // An unreadable directory is not opened at all.
    chmod(ro.c_str(), 0);
    const auto [rc2, log2] = asNobody([&] { return COM_RemoveFileInDir(1, ro.c_str()); });
    EXPECT_EQ(rc2, 0);
    EXPECT_EQ(log2, "dir_tree.cpp,N:_COM_RemoveFileInDir_(): opendir(" + ro + ") error : Permission denied\n");
}

} // namespace
