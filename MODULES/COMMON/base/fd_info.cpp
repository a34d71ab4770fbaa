// What a descriptor stands for, from the process's /proc entry.
#include "fd_io.h"

#include <cstdio>
#include <sys/stat.h>
#include <unistd.h>

namespace {
constexpr size_t kProcPathSize = 80;
static_assert(COM_FD_INFO_SIZE == 128);

struct TypeName {
    mode_t type;
    const char *name;
};
constexpr TypeName kTypeNames[] = {
    {S_IFDIR, "Dir"},  {S_IFREG, "RegularfFile"}, {S_IFBLK, "BlockDev"},
    {S_IFIFO, "FIFO"}, {S_IFCHR, "CharDev"},      {S_IFSOCK, "Socket"},
};

void showType(int fd, const struct stat &st)
{
    const int pid = getpid();
    for (const TypeName &t : kTypeNames) {
        if ((st.st_mode & S_IFMT) != t.type) {
            continue;
        }
        COM_LOG(nullptr, "(pid, fd, type) = (%d, %d, [%s])\n", pid, fd, t.name);
        if (t.type == S_IFREG) {
            COM_LOG(nullptr, "(size, cur_off) = (%lld, %lld)\n", static_cast<long long>(st.st_size),
                    static_cast<long long>(lseek(fd, 0, SEEK_CUR)));
        }
    }
}
} // namespace

int COM_GetFdInfo(int fd, char *pOut, int verbose)
{
    if (fd < 0) {
        return -1;
    }
    char procPath[kProcPathSize];
    snprintf(procPath, sizeof procPath, "/proc/%d/fd/%d", getpid(), fd);
    char text[COM_FD_INFO_SIZE] = {};
    int result = 0;
    struct stat st {};
    if (readlink(procPath, text, sizeof text - 1) < 0) {
        COM_LOG_FAILED_CALL(__func__, "readlink(%s) fail : %s\n", procPath);
        result = -1;
    } else if (stat(text, &st) != 0) {
        // Pipes and sockets land here too: their text is no path.
        COM_LOG_FAILED_CALL(__func__, "stat(%s) fail : %s\n", text);
        result = -1;
    } else if (verbose != 0) {
        COM_LOG(nullptr, "[%s] => [%s]\n", procPath, text);
        showType(fd, st);
    }
    if (pOut != nullptr) {
        memcpy(pOut, text, strlen(text) + 1);
    }
    return result;
}
