// The file utilities on real temporary directories: trees with links,
// dangling links, "lost+found" and read-only directories; moves and copies
// with failing reads and writes (a directory as source, /dev/full as
// destination); the one-line files of /etc through root redirection.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <sys/fsuid.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "COMMON.h"
#include "test_support.h"

namespace {

using fake::readFile;
const std::string kNoEnt = "No such file or directory\n";
const std::string kRemove = "dir_tree.cpp,N:_COM_RemoveFileInDir_(): ";

// A call's result and its log, without line numbers.
using Outcome = std::pair<int, std::string>;
Outcome run(const std::function<int()> &fn)
{
    Outcome o{};
    o.second = fake::withoutLineNumbers(fake::captureStdout([&] { o.first = fn(); }));
    return o;
}
void check(const std::vector<std::pair<std::function<int()>, Outcome>> &cases)
{
    for (const auto &[fn, want] : cases) {
        EXPECT_EQ(run(fn), want);
    }
}

bool exists(const std::string &path)
{
    struct stat st {};
    return lstat(path.c_str(), &st) == 0;
}
std::string linkText(const std::string &path)
{
    return std::filesystem::read_symlink(path).string();
}

// Bytes of every value, in lengths that end inside a block.
std::string pattern(size_t length)
{
    std::string s(length, '\0');
    for (size_t i = 0; i < length; ++i) {
        s[i] = static_cast<char>(i * 7 + i / 256);
    }
    return s;
}

// Runs fn with the file rights of nobody (the thread's file system ids), so
// that directory permissions hold for root too.
Outcome asNobody(const std::function<int()> &fn)
{
    setfsgid(65534);
    setfsuid(65534);
    const Outcome o = run(fn);
    setfsuid(0);
    setfsgid(0);
    return o;
}

TEST(FileUtils, FailuresAreReportedExactly)
{
    fake::TempDir tmp;
    const std::string t = tmp.path();
    const std::string file = tmp.write("plain", pattern(2000));
    symlink((t + "/gone").c_str(), (t + "/dangling").c_str());
    const std::string copy = "file_copy.cpp,N:COM_CopyFile(): ",
                      move = "file_copy.cpp,N:COM_RenameFile(): ";
    const std::string append = "file_copy.cpp,N:COM_File2FileAppend(): ",
                      save = "file_content.cpp,N:COM_SaveDataIntoFile(): ";
    check({
        // "plain/" gives EEXIST and is passed over like any existing prefix.
        {[&] { return COM_Mkdir((file + "/d/e").c_str(), 0755); },
         {-1, "dir_tree.cpp,N:COM_Mkdir(): mkdir(" + file + "/d/) error : Not a directory\n"}},
        {[&] { return COM_RemoveDirAndFile(1, "/"); },
         {0, kRemove + "opendir(/) error : Invalid argument\n"}},
        {[&] { return COM_RemoveFileInDir(1, "//"); },
         {0, kRemove + "opendir(//) error : Invalid argument\n"}},
        {[&] { return COM_RemoveFileInDir(1, nullptr); },
         {0, kRemove + "opendir((null)) error : Invalid argument\n"}},
        {[&] { return COM_RemoveFileInDir(1, (t + "/no").c_str()); },
         {0, kRemove + "opendir(" + t + "/no) error : " + kNoEnt}},
        {[&] { return COM_RemoveRealFile((t + "/dangling").c_str()); },
         {-1, "file_links.cpp,N:COM_RemoveRealFile(): stat(" + t + "/dangling) error : " + kNoEnt}},
        {[&] { return COM_CreateSymbolLink(0, (t + "/gone").c_str(), file.c_str()); },
         {-1, "file_links.cpp,N:COM_CreateSymbolLink(): symlink(" + t + "/gone, " + file +
                  ") fail : File exists\n"}},
        {[&] { return COM_MakeNode((file + "/n").c_str(), S_IFIFO | 0664, 0); },
         {-1, "file_links.cpp,N: stat(" + file + "/n) fail : Not a directory\n"}},
        {[&] { return COM_MakeNode((t + "/no/n").c_str(), S_IFIFO | 0664, 0); },
         {-1, "file_links.cpp,N: mknod(" + t + "/no/n) fail : " + kNoEnt}},
        {[&] { return COM_RenameFile((t + "/no").c_str(), "x"); },
         {-1, move + "open(" + t + "/no) failed : " + kNoEnt}},
        {[&] { return COM_RenameFile(file.c_str(), (t + "/no/d").c_str()); },
         {-1, move + "open(" + t + "/no/d) failed : " + kNoEnt}},
        {[&] { return COM_RenameFile(file.c_str(), "/dev/full"); },
         {-1, move + "write() failed : No space left on device"}},
        {[&] { return COM_RenameFile(t.c_str(), (t + "/d3").c_str()); },
         {-1, move + "read(" + t + ") failed : Is a directory\n"}},
        {[&] { return COM_CopyFile("x", (t + "/no").c_str()); },
         {-1, copy + "stat(" + t + "/no) failed : " + kNoEnt}},
        {[&] { return COM_CopyFile("x", t.c_str()); }, {-1, copy + "[" + t + "] is a folder\n"}},
        {[&] { return COM_CopyFile((t + "/no/d").c_str(), file.c_str()); },
         {-1, copy + "open(pDst : " + t + "/no/d) failed : " + kNoEnt}},
        {[&] { return COM_CopyFile("/dev/full", file.c_str()); },
         {-1, "file_copy.cpp,N: write(/dev/full) failed : No space left on device\n"}},
        {[&] { return COM_File2FileAppend((t + "/no/d").c_str(), (t + "/no").c_str()); },
         {-1, append + "open(" + t + "/no/d) error:" + kNoEnt + append + "open(" + t +
                  "/no) error:" + kNoEnt}},
        {[&] { return COM_File2FileAppend("/dev/full", file.c_str()); },
         {-1, "file_copy.cpp,N: failed to write 2000 bytes from [" + file + "] to [/dev/full]\n"}},
        {[&] { return COM_File2FileAppend(nullptr, file.c_str()); }, {-1, ""}},
        {[&] {
             char b[4];
             return COM_ReadDataFromFile((t + "/no").c_str(), b, 4);
         },
         {-1, "file_content.cpp,N: open(" + t + "/no) fail : " + kNoEnt}},
        {[&] { return COM_SaveDataIntoFile((t + "/no/f").c_str(), "abcd", 4); },
         {-1, save + "open(" + t + "/no/f) fail : " + kNoEnt}},
        {[&] { return COM_SaveDataIntoFile("/dev/full", "abcd", 4); },
         {-1, save + "write(/dev/full) size failed - -1/4 - No space left on device\n"}},
        {[&] { return COM_AppendFileContent((t + "/no/f").c_str(), "x"); },
         {-1,
          "file_content.cpp,N:COM_AppendFileContent(): open(" + t + "/no/f) error : " + kNoEnt}},
        {[&] { return COM_SaveID((t + "/no").c_str(), "x"); },
         {-1, "file_content.cpp,N:COM_SaveID(): fopen(" + t + "/no/ID) error : " + kNoEnt}},
        {[&] { return COM_GetFdInfo(1000, nullptr, 1); },
         {-1, "fd_info.cpp,N:COM_GetFdInfo(): readlink(/proc/" + std::to_string(getpid()) +
                  "/fd/1000) fail : " + kNoEnt}},
    });
    EXPECT_EQ(readFile(file), pattern(2000)); // every failed move kept its source
}

// Paths that don't fit the fixed buffers are refused whole, never cut: a cut
// path could name another file.
TEST(FileUtils, LongPathsAreRefusedAndNothingGoes)
{
    fake::TempDir tmp;
    const std::string level(60, 'l');
    const std::string deep =
        tmp.write(level + "/" + level + "/" + level + "/" + level + "/file", "x");
    const std::string link = tmp.file("link");
    symlink(deep.c_str(), link.c_str());
    const std::string tooLong = " : File name too long\n";
    check({
        {[&] {
             return COM_Mkdir(("/" + level + level + level + level + level + "/y").c_str(), 0755);
         },
         {-1, "dir_tree.cpp,N:COM_Mkdir(): mkdir(/" + level + level + level + level + level +
                  "/y) error" + tooLong}},
        {[&] { return COM_RemoveRealFile(link.c_str()); },
         {-1, "file_links.cpp,N:COM_RemoveRealFile(): realpath(" + link + ") failed" + tooLong}},
        {[&] { return COM_RelocateAndLink((deep + "2").c_str(), link.c_str()); },
         {-1, "file_links.cpp,N:COM_RelocateAndLink(): dirname(" + deep + "2) error" + tooLong}},
        {[&] { return COM_SaveID(std::string(90, 'd').c_str(), "x"); },
         {-1,
          "file_content.cpp,N:COM_SaveID(): fopen(" + std::string(79, 'd') + ") error" + tooLong}},
        {[&] { return COM_RemoveFileInDir(0, deep.substr(0, deep.size() - 5).c_str()); },
         {-1, kRemove + "stat(" + deep.substr(0, 259) + ") error" + tooLong}},
    });
    EXPECT_EQ(errno, ENAMETOOLONG);
    EXPECT_EQ(readFile(deep), "x");
    EXPECT_EQ(linkText(link), deep);
}

// One tree, cleared in turns: files only unless the recursive flag is exactly
// 1; "lost+found" kept at every level; a dangling link stays and fails the
// call; a link to a directory is cleared through.
TEST(FileUtils, TreesKeepLostFoundAndDanglingLinks)
{
    fake::TempDir tmp;
    const std::string top = tmp.file("top"), notEmpty = ") error : Directory not empty\n";
    const auto build = [&] {
        for (const char *f : {"top/a", "top/b", "top/lost+found/keep", "top/sub/c",
                              "top/sub/lost+found/keep", "top/empty/d", "outside/target"}) {
            tmp.write(f, "x");
        }
        symlink(tmp.file("outside/target").c_str(), (top + "/link").c_str());
    };
    build();
    EXPECT_EQ(COM_RemoveFileInDir(2, top.c_str()), 3); // a, b and the link
    EXPECT_TRUE(exists(tmp.file("outside/target")));
    EXPECT_TRUE(exists(top + "/sub/c"));
    build();
    unlink(tmp.file("outside/target").c_str());
    symlink((top + "/sub").c_str(), tmp.file("outside/in").c_str());
    check({{[&] { return COM_RemoveFileInDir(0, top.c_str()); },
            {-1, kRemove + "stat(" + top + "/link) error : " + kNoEnt}},
           {[&] { return COM_RemoveFileInDir(1, tmp.file("outside").c_str()); },
            {1, kRemove + "rmdir(" + tmp.file("outside/in") + ") error : Not a directory\n"}}});
    EXPECT_TRUE(exists(top + "/link"));
    EXPECT_FALSE(exists(top + "/a"));
    EXPECT_FALSE(exists(top + "/sub/c")); // after the second call only: the first left sub alone
    EXPECT_TRUE(exists(top + "/sub/lost+found/keep"));
    // a, b, link, sub/c, empty/d, empty: 6; sub and top keep their lost+found.
    build();
    check({{[&] { return COM_RemoveDirAndFile(1, top.c_str()); },
            {6,
             kRemove + "rmdir(" + top + "/sub" + notEmpty + kRemove + "rmdir(" + top + notEmpty}}});
    EXPECT_TRUE(exists(top + "/sub/lost+found/keep"));
    EXPECT_FALSE(exists(top + "/empty"));
}

TEST(FileUtils, ReadOnlyAndUnreadableDirectories)
{
    fake::TempDir tmp;
    chmod(tmp.path().c_str(), 0755);
    const std::string ro = tmp.write("ro/f", "1").substr(0, tmp.path().size() + 3);
    chmod(ro.c_str(), 0555);
    const std::string denied = ") error : Permission denied\n";
    EXPECT_EQ(
        asNobody([&] { return COM_RemoveDirAndFile(1, ro.c_str()); }),
        (Outcome{-1, kRemove + "unlink(" + ro + "/f" + denied + kRemove + "rmdir(" + ro + denied}));
    EXPECT_TRUE(exists(ro + "/f"));
    chmod(ro.c_str(), 0);
    EXPECT_EQ(asNobody([&] { return COM_RemoveFileInDir(1, ro.c_str()); }),
              (Outcome{0, kRemove + "opendir(" + ro + denied}));
}

TEST(FileUtils, LinksRelocationAndNodes)
{
    fake::TempDir tmp;
    fake::redirect("/var/run", tmp.path());
    EXPECT_EQ(COM_Mkdir("/var/run/app/sub/", 0750) + COM_Mkdir("/var/run/app/sub", 0750), 0);
    EXPECT_TRUE(exists(tmp.file("app/sub/.")));

    const std::string target = tmp.write("target", "t");
    symlink(target.c_str(), tmp.file("link").c_str());
    EXPECT_EQ(COM_RemoveRealFile(tmp.file("link").c_str()), 0); // the target goes, the link stays
    EXPECT_FALSE(exists(target));
    EXPECT_EQ(COM_CreateSymbolLink(1, (target + "2").c_str(), tmp.file("link").c_str()), 0);
    EXPECT_EQ(linkText(tmp.file("link")), target + "2");

    // Nothing at the link; a file at the link and no target (it moves); both (the target wins).
    EXPECT_EQ(COM_RelocateAndLink(tmp.file("store/a/one").c_str(), tmp.file("one").c_str()), 0);
    EXPECT_EQ(linkText(tmp.file("one")), tmp.file("store/a/one"));
    EXPECT_EQ(
        COM_RelocateAndLink(tmp.file("store/b/two").c_str(), tmp.write("two", "settings").c_str()),
        0);
    EXPECT_EQ(readFile(tmp.file("store/b/two")) + linkText(tmp.file("two")),
              "settings" + tmp.file("store/b/two"));
    EXPECT_EQ(COM_RelocateAndLink(tmp.write("store/three", "theirs").c_str(),
                                  tmp.write("three", "mine").c_str()),
              0);
    EXPECT_EQ(readFile(tmp.file("three")), "theirs");
    // A directory at the link, or a failed copy (the target can't be created), keeps what is there.
    mkdir(tmp.file("four").c_str(), 0755);
    EXPECT_EQ(COM_RelocateAndLink(tmp.file("store/four").c_str(), tmp.file("four").c_str()), -1);
    symlink(tmp.file("nodir/x").c_str(), tmp.file("dangling").c_str());
    EXPECT_EQ(run([&] {
                  return COM_RelocateAndLink(tmp.file("dangling").c_str(),
                                             tmp.write("five", "data").c_str());
              }).first,
              -1);
    EXPECT_EQ(readFile(tmp.file("five")), "data");

    EXPECT_EQ(COM_MakeNode("/var/run/fifo", S_IFIFO | 0664, 0), 0);
    EXPECT_EQ(COM_MakeNode("/var/run/fifo", 0x21B4, makedev(1, 3)), 0); // left as it is
    EXPECT_TRUE(std::filesystem::is_fifo(tmp.file("fifo")));
}

TEST(FileUtils, MovesAndCopies)
{
    fake::TempDir tmp;
    for (size_t length : {0u, 512u, 1500u, 20000u}) {
        const std::string src = tmp.write("src", pattern(length));
        EXPECT_EQ(COM_CopyFile(tmp.write("copy", pattern(30000)).c_str(), src.c_str()), 0);
        EXPECT_EQ(COM_RenameFile(src.c_str(), tmp.write("dst", "older").c_str()), 0) << length;
        EXPECT_EQ(readFile(tmp.file("dst")), pattern(length));
        EXPECT_EQ(readFile(tmp.file("copy")), pattern(length));
        EXPECT_FALSE(exists(src));
    }
    // Onto itself or a hard link of it, the file stays whole.
    const std::string src = tmp.write("self", "precious");
    link(src.c_str(), tmp.file("hard").c_str());
    for (const std::string &dst : {src, tmp.file("hard")}) {
        EXPECT_EQ(COM_RenameFile(src.c_str(), dst.c_str()) + COM_CopyFile(dst.c_str(), src.c_str()),
                  0);
        EXPECT_EQ(readFile(src), "precious");
    }
    // Appending creates the destination; an empty source gives -1; a file appended to itself
    // doubles once.
    const std::string big = tmp.write("big", pattern(150000));
    EXPECT_EQ(COM_File2FileAppend(tmp.file("sum").c_str(), big.c_str()), 150000);
    EXPECT_EQ(COM_File2FileAppend(tmp.file("sum").c_str(), big.c_str()), 150000);
    EXPECT_EQ(readFile(tmp.file("sum")), pattern(150000) + pattern(150000));
    EXPECT_EQ(COM_File2FileAppend(tmp.file("new").c_str(), tmp.write("empty", "").c_str()), -1);
    EXPECT_TRUE(exists(tmp.file("new")));
    EXPECT_EQ(COM_File2FileAppend(src.c_str(), src.c_str()), 8);
    EXPECT_EQ(readFile(src), "preciousprecious");
}

TEST(OneLineFiles, FirstLineOfEachBlockOrUnknown)
{
    fake::TempDir tmp;
    fake::redirect("/etc", tmp.path());
    tmp.write("Model", "DVR-4000\r\nsecond line\n");
    tmp.write("Proj", "abcdef");
    tmp.write("Note", "\nafter an empty line");
    tmp.write("Empty", "");
    tmp.write("Long", "first\n" + std::string(250, 'x') + "second\nrest"); // two 256-byte blocks
    mkdir(tmp.file("Dir").c_str(), 0755);
    const std::tuple<const char *, int, int, const char *, std::string> cases[] = {
        // name, length, result, text, log
        {"Model", 64, 0, "DVR-4000", ""},
        {"Proj", 4, 0, "abc", ""},
        {"Proj", 1, 0, "", ""},
        {"Note", 64, 0, "", ""},
        {"Long", 64, 0, "firstsecond", ""},
        {"Empty", 64, -1, "unknown", ""},
        {"Missing", 64, -1, "unknown", ""},
        {"Missing", 3, -1, "un", ""},
        {"Dir", 64, -1, "unknown",
         "file_content.cpp,N:COM_GetFileContent(): read(/etc/Dir) error : Is a directory\n"},
    };
    for (const auto &[name, len, rc, text, log] : cases) {
        char buf[64] = {};
        EXPECT_EQ(run([&] {
                      return COM_GetFileContent(("/etc/" + std::string(name)).c_str(), buf, len);
                  }),
                  (Outcome{rc, log}));
        EXPECT_STREQ(buf, text) << name << len;
    }
    char buf[8] = "kept";
    char expected[128];
    snprintf(expected, sizeof expected,
             "file_content.cpp,N:COM_GetFileContent(): input error : (pFileName, pBuf, len) = (%p, "
             "%p, %d)\n",
             static_cast<void *>(nullptr), static_cast<void *>(buf), 8);
    EXPECT_EQ(run([&] { return COM_GetFileContent(nullptr, buf, 8); }), (Outcome{-1, expected}));
    EXPECT_STREQ(buf, "unknown");
}

TEST(OneLineFiles, WholeReadsAndWrites)
{
    fake::TempDir tmp;
    fake::redirect("/etc", tmp.path());
    EXPECT_EQ(
        COM_SetFileContent("/etc/Port", "8080") + COM_AppendFileContent("/etc/Port", "\n9090"), 0);
    EXPECT_EQ(COM_AppendFileContent("/etc/Port", ""), -1);
    EXPECT_EQ(readFile(tmp.file("Port")), "8080\n9090");
    EXPECT_EQ(COM_SetFileContent("/etc/Port", ""), -1); // truncated all the same
    EXPECT_EQ(readFile(tmp.file("Port")), "");

    EXPECT_EQ(COM_SaveDataIntoFile("/etc/data", "\x01\x00\x02", 3), 0);
    EXPECT_EQ(readFile(tmp.file("data")), std::string("\x01\x00\x02", 3));
    for (const auto &[path, len, rc] : {std::tuple{"/etc/data", 3, 0},
                                        {"/etc/data", 2, 0},
                                        {"/etc/data", 8, 1},
                                        {"/etc/data", 0, 0},
                                        {"/etc/Port", 4, 0}}) {
        char buf[8] = {};
        EXPECT_EQ(COM_ReadDataFromFile(path, buf, len), rc)
            << path << len; // an empty file: the same as all
    }
    EXPECT_EQ(COM_SaveID("/etc", "WD-123456"), 0);
    EXPECT_EQ(readFile(tmp.file("ID")), "WD-123456");
    EXPECT_EQ(COM_SaveID("/etc", ""), -1);
    EXPECT_TRUE(exists(tmp.file("ID")));
}

TEST(FileUtils, FdInfoNamesTheFileAndItsType)
{
    fake::TempDir tmp;
    const std::string path = tmp.write("data", std::string(300, 'd')),
                      pid = std::to_string(getpid());
    mkfifo(tmp.file("fifo").c_str(), 0600);
    char out[COM_FD_INFO_SIZE];
    const std::tuple<std::string, int, std::string> kinds[] = {
        {path, O_RDONLY, "RegularfFile])\nfd_info.cpp,N: (size, cur_off) = (300, 120)\n"},
        {tmp.path(), O_RDONLY | O_DIRECTORY, "Dir])\n"},
        {"/dev/null", O_RDWR, "CharDev])\n"},
        {tmp.file("fifo"), O_RDWR | O_NONBLOCK, "FIFO])\n"}};
    for (const auto &[name, flags, type] : kinds) {
        const int fd = open(name.c_str(), flags);
        lseek(fd, 120, SEEK_SET);
        const std::string f = std::to_string(fd);
        EXPECT_EQ(run([&] { return COM_GetFdInfo(fd, out, 1); }),
                  (Outcome{0, "fd_info.cpp,N: [/proc/" + pid + "/fd/" + f + "] => [" + name +
                                  "]\nfd_info.cpp,N: (pid, fd, type) = (" + pid + ", " + f + ", [" +
                                  type}));
        EXPECT_EQ(out, name);
        close(fd);
    }
    int p[2];
    ASSERT_EQ(pipe(p), 0);
    const Outcome o = run([&] { return COM_GetFdInfo(p[0], out, 0); }); // a pipe's text is no path
    EXPECT_EQ(o, (Outcome{-1, "fd_info.cpp,N:COM_GetFdInfo(): stat(" + std::string(out) +
                                  ") fail : " + kNoEnt}));
    EXPECT_TRUE(std::string(out).starts_with("pipe:[")) << out;
    close(p[0]);
    close(p[1]);
}

} // namespace
