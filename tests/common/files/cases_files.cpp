// Operations of the file case files (tests/cases/files): the file utilities,
// item replacement, and the plain file steps any case may use to set up.
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <sys/fsuid.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "case_runner.h"

namespace {
using cases::Args;
using cases::q;
using cases::rc;
namespace fs = std::filesystem;

// Bytes of every value, in lengths that end inside a block.
std::string pattern(size_t length)
{
    std::string s(length, '\0');
    for (size_t i = 0; i < length; ++i) {
        s[i] = static_cast<char>(i * 7 + i / 256);
    }
    return s;
}

std::string replaceItems(Args &a)
{
    COM_ITEM_LIST list{};
    const std::string flags = a.str(1);
    list.findOnly = flags.find('f') != std::string::npos;
    list.anywhere = flags.find('a') != std::string::npos;
    list.appendMissing = flags.find('+') != std::string::npos;
    std::vector<COM_ITEM> items;
    for (size_t i = 2; i + 2 < a.size(); i += 3) {
        COM_ITEM item{static_cast<int>(a.n(i)), {}, {}};
        snprintf(item.key, sizeof item.key, "%s", a.s(i + 1));
        snprintf(item.value, sizeof item.value, "%s", a.s(i + 2));
        items.push_back(item);
    }
    list.count = static_cast<int>(items.size());
    list.items = items.data();
    std::string matched = " matched:";
    const int result = COM_ReplaceItemsInFile(a.s(0), &list);
    for (const COM_ITEM &item : items) {
        matched += item.keyLen == 0 ? '1' : '0';
    }
    return rc(result) + matched;
}

// Runs a call with the file rights of nobody, so that modes hold for root too.
cases::Op asNobody(int (*fn)(int, const char *))
{
    return [fn](Args &a) {
        setfsgid(65534);
        setfsuid(65534);
        const int result = fn(a.n(0), a.s(1));
        setfsuid(0);
        setfsgid(0);
        return rc(result);
    };
}

std::string fdInfo(Args &a)
{
    const std::string what = a.str(0);
    int fds[2] = {-1, -1};
    if (what == "pipe") {
        (void)!pipe(fds);
    } else if (what != "none") {
        const std::string how = a.str(1);
        fds[0] = open(a.s(0), how == "dir"    ? O_RDONLY | O_DIRECTORY
                              : how == "rw"   ? O_RDWR
                              : how == "rwnb" ? O_RDWR | O_NONBLOCK
                                              : O_RDONLY);
        lseek(fds[0], 120, SEEK_SET);
    }
    char out[COM_FD_INFO_SIZE] = "";
    const int result = COM_GetFdInfo(fds[0] < 0 ? 1000 : fds[0], out, 1);
    // The process and descriptor numbers vary: shown as PID and FD.
    const std::string pid = std::to_string(getpid()), fd = std::to_string(fds[0]);
    a.sub("/proc/" + pid + "/", "/proc/PID/");
    a.sub("/fd/" + fd + "]", "/fd/FD]");
    a.sub("(" + pid + ", " + fd + ", ", "(PID, FD, ");
    for (const int open : fds) {
        if (open >= 0) {
            close(open);
        }
    }
    if (what == "pipe") {
        a.sub(out, "pipe:[N]");
    }
    return rc(result) + " " + q(out);
}

rlim_t savedLimit = RLIM_INFINITY;

const cases::Register ops({
    // Set-up and inspection steps.
    {"put", cases::step([](Args &a) { a.tmp->write(a.str(0), a.str(1)); })},
    {"fill", cases::step([](Args &a) { a.tmp->write(a.str(0), pattern(a.n(1))); })},
    {"same",
     [](Args &a) {
         const std::string one = pattern(a.n(1));
         std::string all = one;
         for (long i = 1; i < a.n(2); ++i) {
             all += one;
         }
         return std::string(fake::readFile(a.str(0)) == all ? "same" : "differs");
     }},
    {"cmp",
     [](Args &a) {
         return std::string(fake::readFile(a.str(0)) == fake::readFile(a.str(1)) ? "same"
                                                                                 : "differs");
     }},
    {"cat", [](Args &a) { return q(fake::readFile(a.str(0))); }},
    {"ls",
     [](Args &a) {
         std::vector<std::string> names;
         std::error_code ec;
         for (const auto &e : fs::recursive_directory_iterator(a.str(0), ec)) {
             const char *mark = e.is_symlink() ? "@" : e.is_directory() ? "/" : "";
             names.push_back(e.path().string().substr(a.str(0).size() + 1) + mark);
         }
         std::sort(names.begin(), names.end());
         return names.empty() ? "(empty)" : cases::join(names);
     }},
    {"readlink", [](Args &a) { return q(fs::read_symlink(a.str(0)).string()); }},
    {"mkdir", [](Args &a) { return rc(mkdir(a.s(0), 0755)); }},
    {"chmod", [](Args &a) { return rc(chmod(a.s(0), a.n(1))); }},
    {"symlink", [](Args &a) { return rc(symlink(a.s(0), a.s(1))); }},
    {"link", [](Args &a) { return rc(link(a.s(0), a.s(1))); }},
    {"mkfifo", [](Args &a) { return rc(mkfifo(a.s(0), 0600)); }},
    {"redirect", cases::step([](Args &a) { fake::redirect(a.str(0), a.str(1)); })},
    {"errno", [](Args &) { return std::string(strerror(errno)); }},
    // A file size limit (SIGXFSZ ignored); "off" lifts it.
    {"fsizelimit",
     [](Args &a) {
         struct rlimit r {};
         getrlimit(RLIMIT_FSIZE, &r);
         const bool off = a.str(0) == "off";
         if (!off) {
             savedLimit = r.rlim_cur;
         }
         r.rlim_cur = off ? savedLimit : a.n(0);
         signal(SIGXFSZ, off ? SIG_DFL : SIG_IGN);
         return rc(setrlimit(RLIMIT_FSIZE, &r));
     }},
    // The file utilities.
    {"Mkdir", [](Args &a) { return rc(COM_Mkdir(a.s(0), a.n(1))); }},
    // A relative name made from inside a directory, with errno clear before.
    {"MkdirIn",
     [](Args &a) {
         const fs::path back = fs::current_path();
         fs::current_path(a.str(0));
         errno = 0;
         const int result = COM_Mkdir(a.s(1), 0755);
         fs::current_path(back);
         return rc(result);
     }},
    {"RemoveDirAndFile", [](Args &a) { return rc(COM_RemoveDirAndFile(a.n(0), a.s(1))); }},
    {"RemoveFileInDir", [](Args &a) { return rc(COM_RemoveFileInDir(a.n(0), a.s(1))); }},
    {"RemoveDirAndFileAsNobody", asNobody(COM_RemoveDirAndFile)},
    {"RemoveFileInDirAsNobody", asNobody(COM_RemoveFileInDir)},
    {"RemoveRealFile", [](Args &a) { return rc(COM_RemoveRealFile(a.s(0))); }},
    {"CreateSymbolLink", [](Args &a) { return rc(COM_CreateSymbolLink(a.n(0), a.s(1), a.s(2))); }},
    {"RelocateAndLink", [](Args &a) { return rc(COM_RelocateAndLink(a.s(0), a.s(1))); }},
    {"MakeNode", [](Args &a) { return rc(COM_MakeNode(a.s(0), a.n(1), a.n(2))); }},
    {"RenameFile", [](Args &a) { return rc(COM_RenameFile(a.s(0), a.s(1))); }},
    {"CopyFile", [](Args &a) { return rc(COM_CopyFile(a.s(0), a.s(1))); }},
    {"File2FileAppend", [](Args &a) { return rc(COM_File2FileAppend(a.s(0), a.s(1))); }},
    {"ReadDataFromFile",
     [](Args &a) {
         char buf[16] = {};
         const int result = COM_ReadDataFromFile(a.s(0), buf, a.n(1));
         return rc(result) + " " + q(std::string(buf, std::max(0L, std::min(16L, a.n(1)))));
     }},
    {"SaveDataIntoFile",
     [](Args &a) { return rc(COM_SaveDataIntoFile(a.s(0), a.s(1), a.str(1).size())); }},
    {"GetFileContent",
     [](Args &a) {
         char buf[64] = {};
         a.alias(buf, "buf");
         a.alias(nullptr, "(nil)");
         const int result = COM_GetFileContent(a.s(0), buf, a.n(1));
         return rc(result) + " " + q(buf);
     }},
    {"SetFileContent", [](Args &a) { return rc(COM_SetFileContent(a.s(0), a.s(1))); }},
    {"AppendFileContent", [](Args &a) { return rc(COM_AppendFileContent(a.s(0), a.s(1))); }},
    {"SaveID", [](Args &a) { return rc(COM_SaveID(a.s(0), a.s(1))); }},
    {"GetFdInfo", fdInfo},
    // path, flags (f: find only, a: anywhere, +: append missing, -: none), then
    // keyLen key value for each item; the result and which items matched.
    {"ReplaceItems", replaceItems},
});

} // namespace
