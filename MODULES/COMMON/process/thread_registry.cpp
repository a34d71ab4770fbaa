#include "fd_io.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <pthread.h>
#include <unistd.h>

// Callers of other programs share the record by size.
static_assert(sizeof(COM_THREAD_RECORD) == 88);
static_assert(offsetof(COM_THREAD_RECORD, state) == 4);
static_assert(offsetof(COM_THREAD_RECORD, memUsage) == 8);
static_assert(offsetof(COM_THREAD_RECORD, name) == 12);

extern "C" {
COM_THREAD_RECORD *gThreadTable = nullptr;
pthread_mutex_t gThreadLock = PTHREAD_MUTEX_INITIALIZER;
pthread_t gThreadWatchdog;
struct timespec gThreadPeriod;
}

namespace {
constexpr const char *kPidDir = "/var/run";
constexpr mode_t kPidDirMode = 0775;
constexpr int kPathSize = 256;
constexpr int kStatLineSize = 256;
constexpr const char *kWatchdogName = "COM_ThreadWatchdog";

// The watchdog's streams are opened with glibc's "c" flag: neither the open
// nor the reads and writes are cancellation points. glibc can act on a
// cancellation after open() has returned a descriptor and before fopen()
// hands it out, and nothing could close that descriptor. The thread is then
// cancelled in its log lines, its test and its sleep. "e": close-on-exec.
constexpr const char *kReadNoCancel = "rce";
constexpr const char *kWriteNoCancel = "wce";

COM_THREAD_WATCHDOG gWatchdogArg;
// Set while a watchdog started here has not been joined: only then is there
// a thread to cancel.
bool gWatchdogRunning = false;

void unlockTable(void *)
{
    pthread_mutex_unlock(&gThreadLock);
}

int countRecords()
{
    int count = 0;
    while (gThreadTable != nullptr && gThreadTable[count].pid != 0) {
        ++count;
    }
    return count;
}

// The pid file is informative: a failure is logged and registration goes on.
// The file is named from the whole name given, not the record's cut copy; a
// path too long for its buffer is not cut (it would name another thread's
// file) and is reported as a failed open.
void writePidFile(const char *name, int pid)
{
    COM_Mkdir(kPidDir, kPidDirMode);
    char path[kPathSize];
    const int length = snprintf(path, sizeof path, "%s/%s.thread.pid", kPidDir, name);
    if (length < 0 || length >= kPathSize) {
        errno = ENAMETOOLONG;
        COM_LOG_FAILED_CALL("COM_LogThread", "fopen(%s) error : %s\n", path);
        return;
    }
    fdio::UniqueFile f = fdio::openFile(path, kWriteNoCancel);
    if (f == nullptr) {
        COM_LOG_FAILED_CALL("COM_LogThread", "fopen(%s) error : %s\n", path);
        return;
    }
    if (fprintf(f.get(), "%d", pid) < 0) {
        COM_LOG_FAILED_CALL("COM_LogThread", "[%s] fprintf() error : %s\n", name);
    }
}
} // namespace

int COM_LogThread(const char *name)
{
    COM_THREAD_RECORD pair[2];
    memset(pair, 0, sizeof pair);
    pair[0].pid = getpid();
    const char *given = name != nullptr ? name : "";
    snprintf(pair[0].name, sizeof pair[0].name, "%s", given);
    writePidFile(given, pair[0].pid);

    int result = -1;
    pthread_mutex_lock(&gThreadLock);
    pthread_cleanup_push(unlockTable, nullptr);
    const int count = countRecords();
    // The new record takes the end mark's place, and a new end mark follows.
    void *block = gThreadTable;
    if (COM_ReallocAndCopyBuf(static_cast<int>((count + 2) * sizeof(COM_THREAD_RECORD)), &block,
                              static_cast<int>(count * sizeof(COM_THREAD_RECORD)), pair,
                              static_cast<int>(sizeof pair)) != nullptr) {
        gThreadTable = static_cast<COM_THREAD_RECORD *>(block);
        result = count + 1;
    }
    pthread_cleanup_pop(1);
    return result;
}

int COM_LogThreadMemUsage(int amount)
{
    int result = -1;
    pthread_mutex_lock(&gThreadLock);
    pthread_cleanup_push(unlockTable, nullptr);
    if (gThreadTable != nullptr) {
        result = 0;
        const int self = getpid();
        for (int i = 0; gThreadTable[i].pid != 0; ++i) {
            COM_THREAD_RECORD &r = gThreadTable[i];
            if (r.pid == self) {
                r.memUsage = static_cast<int32_t>(static_cast<uint32_t>(r.memUsage) +
                                                  static_cast<uint32_t>(amount));
                COM_LOG("COM_LogThreadMemUsage", "[%d] : %d - [%ld] - %s\n", i, r.pid,
                        static_cast<long>(r.memUsage), r.name);
                break;
            }
        }
    }
    pthread_cleanup_pop(1);
    return result;
}

void COM_ShowThread(void)
{
    pthread_mutex_lock(&gThreadLock);
    pthread_cleanup_push(unlockTable, nullptr);
    for (int i = 0; gThreadTable != nullptr && gThreadTable[i].pid != 0; ++i) {
        const COM_THREAD_RECORD &r = gThreadTable[i];
        COM_LOG("COM_ShowThread", "[%d] : %d - [%s] - [%s] - [%ld]\n", i, r.pid, r.name, r.state,
                static_cast<long>(r.memUsage));
    }
    pthread_cleanup_pop(1);
}

int COM_CheckThreadState(COM_THREAD_RECORD *pRecord)
{
    char path[kPathSize];
    snprintf(path, sizeof path, "/proc/%d/stat", pRecord->pid);
    fdio::UniqueFile f = fdio::openFile(path, kReadNoCancel);
    if (f == nullptr) {
        return -1; // gone
    }
    int result = -1;
    char line[kStatLineSize] = {};
    if (fgets(line, sizeof line, f.get()) != nullptr) {
        // "pid (name) S ...": with a name free of delimiters the third token
        // is the state letter.
        char *save = nullptr;
        const char *delims = "/ \r\n";
        const char *pid = strtok_r(line, delims, &save);
        const char *name = pid != nullptr ? strtok_r(nullptr, delims, &save) : nullptr;
        const char *state = name != nullptr ? strtok_r(nullptr, delims, &save) : nullptr;
        if (state != nullptr) {
            result = (state[0] == 'Z' || state[0] == 'T') ? -1 : 0;
            snprintf(pRecord->state, sizeof pRecord->state, "%.3s", state);
        }
    }
    return result;
}

void *COM_ThreadWatchdog(void *arg)
{
    auto *self = static_cast<COM_THREAD_WATCHDOG *>(arg);
    COM_LogThread(kWatchdogName);
    for (;;) {
        pthread_mutex_lock(&gThreadLock);
        pthread_cleanup_push(unlockTable, nullptr);
        for (int i = 0; gThreadTable != nullptr && gThreadTable[i].pid != 0; ++i) {
            if (COM_CheckThreadState(&gThreadTable[i]) != 0) {
                COM_LOG(kWatchdogName, "Warnning!! [pid = %d] [%s] process error\n",
                        gThreadTable[i].pid, gThreadTable[i].name);
            }
        }
        pthread_cleanup_pop(1);
        pthread_testcancel();
        nanosleep(&self->period, nullptr);
    }
    return nullptr;
}

int COM_CreateThreadWatchdog(int periodSeconds)
{
    pthread_mutex_init(&gThreadLock, nullptr);
    gThreadPeriod = {periodSeconds, 0};
    gWatchdogArg.period = gThreadPeriod;
    const int rc = pthread_create(&gWatchdogArg.thread, nullptr, COM_ThreadWatchdog, &gWatchdogArg);
    if (rc != 0) {
        COM_LOG("COM_CreateThreadWatchdog", "pthread_create() error = %d\n", rc);
        return rc;
    }
    gThreadWatchdog = gWatchdogArg.thread;
    gWatchdogRunning = true;
    return 0;
}

int COM_DestroyThreadWatchdog(void)
{
    // With no watchdog started, or one already joined, the handle names no
    // thread: that is reported as pthread_cancel reports a thread that is gone.
    const int rc = gWatchdogRunning ? pthread_cancel(gThreadWatchdog) : ESRCH;
    if (rc != 0) {
        COM_LOG("COM_DestroyThreadWatchdog", "pthread_cancel() error [%d]\n", rc);
        return rc;
    }
    pthread_join(gThreadWatchdog, nullptr);
    gWatchdogRunning = false;
    pthread_mutex_destroy(&gThreadLock);
    return 0;
}
