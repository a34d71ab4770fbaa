#include "COMMON.h"
#include "com_log.h"
#include "fd_io.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <unistd.h>

namespace {
constexpr const char *kProcDir = "/proc";
constexpr size_t kCmdlinePathSize = 80;
// The beginning of a command line that is compared: 79 bytes. A longer name
// never matches.
constexpr size_t kCmdlineSize = 80;
constexpr long kUsPerSecond = 1'000'000;
constexpr long kNsPerUs = 1'000;

bool skippedEntry(const char *name)
{
    return strcmp(name, ".") == 0 || strcmp(name, "..") == 0 || strcmp(name, "lost+found") == 0;
}

// Reads the beginning of the command line of a /proc entry; false for
// entries that have none. The arguments are separated by zero bytes, so a
// comparison as a string reaches the first argument only.
bool readCommandLine(const char *entry, char (&text)[kCmdlineSize])
{
    char path[kCmdlinePathSize];
    if (snprintf(path, sizeof path, "%s/%s/%s", kProcDir, entry, "cmdline") >=
        static_cast<int>(sizeof path)) {
        return false;
    }
    const fdio::UniqueFile file = fdio::openFile(path, "r");
    memset(text, 0, sizeof text);
    return file != nullptr && fgets(text, sizeof text, file.get()) != nullptr;
}

bool beginsWith(const char *text, const char *name)
{
    return strncmp(text, name, strlen(name)) == 0;
}

int sendSignal(pid_t pid, int sig)
{
    const int rc = kill(pid, sig);
    if (rc != 0) {
        COM_LOG_FAILED_CALL(nullptr, "kill(%d, %d) fail : %s\n", static_cast<int>(pid), sig);
    }
    return rc;
}
} // namespace

int COM_SavePid(const char *path)
{
    if (path == nullptr) {
        return -1;
    }
    fdio::UniqueFile file = fdio::openFile(path, "w");
    if (!file) {
        COM_LOG_FAILED_CALL(__func__, "open(%s) error : %s\n", path);
        return -1;
    }
    const bool written = fprintf(file.get(), "%d", static_cast<int>(getpid())) > 0;
    if (fdio::closeFile(file) != 0 || !written) {
        COM_LOG_FAILED_CALL(__func__, "write(%s) error : %s\n", path);
        return -1;
    }
    return 0;
}

int COM_KillPid(pid_t pid, uint32_t usec)
{
    if (pid < 1) {
        COM_LOG(__func__, "Invalid pid = %d\n", static_cast<int>(pid));
        return -1;
    }
    if (kill(pid, SIGTERM) != 0) {
        COM_LOG_FAILED_CALL(__func__, "kill(%d) failed : %s\n", static_cast<int>(pid));
        return -1;
    }
    if (usec != 0) {
        struct timespec left {};
        left.tv_sec = static_cast<time_t>(usec / kUsPerSecond);
        left.tv_nsec = static_cast<long>(usec % kUsPerSecond) * kNsPerUs;
        while (nanosleep(&left, &left) != 0 && errno == EINTR) {
        }
    }
    return 0;
}

int COM_KillProcess(const char *name, pid_t pid, int sig)
{
    if (name == nullptr) {
        return pid > 0 ? sendSignal(pid, sig) : -1;
    }
    const fdio::UniqueDir dir = fdio::openDir(kProcDir);
    if (!dir) {
        COM_LOG_FAILED_CALL(nullptr, "opendir(%s) error : %s\n", kProcDir);
        return -1;
    }
    char text[kCmdlineSize];
    while (const dirent *entry = readdir(dir.get())) {
        if (skippedEntry(entry->d_name) || !readCommandLine(entry->d_name, text) ||
            !beginsWith(text, name)) {
            continue;
        }
        // "self" and the like convert to 0: nothing is sent. An empty name
        // matches the first entry with a command line, which names no
        // process the caller meant: it is reported and nothing is sent.
        const int found = atoi(entry->d_name);
        COM_LOG(nullptr, "[pid:%d] - kill(%d[%s], %d)\n", static_cast<int>(getpid()), found, name,
                sig);
        return found > 0 && name[0] != '\0' ? sendSignal(found, sig) : -1;
    }
    return -1;
}

int COM_WatchDog(COM_WATCH_LIST *list)
{
    if (list == nullptr) {
        return -1;
    }
    const fdio::UniqueDir dir = fdio::openDir(kProcDir);
    if (!dir) {
        COM_LOG_FAILED_CALL(__func__, "opendir(%s) error : %s\n", kProcDir);
        return -1;
    }
    const int count = list->items != nullptr ? list->count : 0;
    for (int i = 0; i < count; ++i) {
        list->items[i].found = 0;
    }

    char text[kCmdlineSize];
    while (const dirent *entry = readdir(dir.get())) {
        if (skippedEntry(entry->d_name) || !readCommandLine(entry->d_name, text)) {
            continue;
        }
        for (int i = 0; i < count; ++i) {
            if (list->items[i].name != nullptr && beginsWith(text, list->items[i].name)) {
                ++list->items[i].found;
            }
        }
    }

    for (int i = 0; i < count; ++i) {
        const COM_WATCH_ITEM &item = list->items[i];
        if (item.found == 0) {
            COM_LOG(__func__, "[%d - %s] : not found\n", i,
                    item.name != nullptr ? item.name : "(null)");
            if (item.onMissing != nullptr) {
                item.onMissing();
            }
        }
    }
    return 0;
}
