// Thread registry and watchdog with real processes: the registry's table,
// its pid files, and the watchdog's passes stepped on the manual fake clock.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "COMMON.h"
#include "test_support.h"

namespace {

class ThreadRegistry : public testing::Test {
protected:
    void SetUp() override
    {
        fake::redirect("/var/run", dir.file("run"));
        free(gThreadTable); // a new process has no table
        gThreadTable = nullptr;
    }
    void TearDown() override
    {
        for (pid_t child : children) {
            kill(child, SIGKILL);
            waitpid(child, nullptr, 0);
        }
    }

    // A child that stops itself (state T) or exits unreaped (state Z).
    pid_t child(bool zombie)
    {
        const pid_t pid = fork();
        if (pid == 0) {
            if (!zombie) {
                raise(SIGSTOP);
            }
            _exit(0);
        }
        children.push_back(pid);
        siginfo_t info{};
        // Real events: the stop, or the exit left in place for a zombie.
        waitid(P_PID, static_cast<id_t>(pid), &info, (zombie ? WEXITED : WSTOPPED) | WNOWAIT);
        return pid;
    }

    // A child on its way to sleep in pause(), named as asked.
    pid_t pausedChild(const char *name)
    {
        int ready[2];
        if (pipe(ready) != 0) {
            return -1;
        }
        const pid_t pid = fork();
        if (pid == 0) {
            prctl(PR_SET_NAME, name, 0, 0, 0);
            const char byte = 1;
            (void)!write(ready[1], &byte, 1);
            for (;;) {
                pause();
            }
        }
        children.push_back(pid);
        char byte;
        (void)!read(ready[0], &byte, 1);
        close(ready[0]);
        close(ready[1]);
        return pid;
    }

    // Registers a record for another process, as its own thread would.
    void registerFor(pid_t pid, const char *name)
    {
        const int n = COM_LogThread(name);
        pthread_mutex_lock(&gThreadLock);
        gThreadTable[n - 1].pid = pid;
        pthread_mutex_unlock(&gThreadLock);
    }

    fake::TempDir dir;
    std::vector<pid_t> children;
};

TEST_F(ThreadRegistry, TableGrowsWithAnEndMarkAndPidFiles)
{
    EXPECT_EQ(COM_LogThread("first"), 1);
    EXPECT_EQ(gThreadTable[0].pid, getpid());
    EXPECT_STREQ(gThreadTable[0].name, "first");
    EXPECT_EQ(gThreadTable[1].pid, 0);
    EXPECT_EQ(gThreadTable[1].name[0], '\0');
    EXPECT_EQ(COM_LogThread("second"), 2);
    EXPECT_EQ(COM_LogThread(std::string(100, 'n').c_str()), 3);
    EXPECT_EQ(strlen(gThreadTable[2].name), 75u);
    EXPECT_EQ(fake::readFile(dir.file("run/first.thread.pid")), std::to_string(getpid()));
}

TEST_F(ThreadRegistry, UnwritablePidFileIsLoggedAndRegistrationGoesOn)
{
    fake::redirect("/var/run", dir.write("file", "") + "/run"); // under a plain file
    const std::string log = fake::logOf(([] { EXPECT_EQ(COM_LogThread("t"), 1); }));
    EXPECT_NE(log.find("thread_registry.cpp,N:COM_LogThread(): fopen(/var/run/t.thread.pid) error "
                       ": Not a directory\n"),
              std::string::npos)
        << log;
}

TEST_F(ThreadRegistry, MemUsageAndShow)
{
    std::string log = fake::captureStdout([] {
        EXPECT_EQ(COM_LogThreadMemUsage(5), -1);
        COM_ShowThread();
    });
    EXPECT_EQ(log, "");
    COM_LogThread("worker");
    COM_LogThread("other");
    log = fake::logOf(([] {
        EXPECT_EQ(COM_LogThreadMemUsage(100), 0);
        EXPECT_EQ(COM_LogThreadMemUsage(-30), 0);
        COM_ShowThread();
    }));
    const std::string pid = std::to_string(getpid());
    EXPECT_EQ(log, "thread_registry.cpp,N:COM_LogThreadMemUsage(): [0] : " + pid +
                       " - [100] - worker\n"
                       "thread_registry.cpp,N:COM_LogThreadMemUsage(): [0] : " +
                       pid +
                       " - [70] - worker\n"
                       "thread_registry.cpp,N:COM_ShowThread(): [0] : " +
                       pid +
                       " - [worker] - [] - [70]\n"
                       "thread_registry.cpp,N:COM_ShowThread(): [1] : " +
                       pid + " - [other] - [] - [0]\n");
}

TEST_F(ThreadRegistry, CheckStateFromProc)
{
    COM_THREAD_RECORD asleep{};
    asleep.pid = pausedChild("sleeper");
    EXPECT_EQ(COM_CheckThreadState(&asleep), 0);
    EXPECT_TRUE(strcmp(asleep.state, "S") == 0 || strcmp(asleep.state, "R") == 0) << asleep.state;

    COM_THREAD_RECORD stopped{};
    stopped.pid = child(false);
    EXPECT_EQ(COM_CheckThreadState(&stopped), -1);
    EXPECT_STREQ(stopped.state, "T");

    COM_THREAD_RECORD zombie{};
    zombie.pid = child(true);
    EXPECT_EQ(COM_CheckThreadState(&zombie), -1);
    EXPECT_STREQ(zombie.state, "Z");

    // Gone: the state of the last check stays.
    kill(zombie.pid, SIGKILL);
    waitpid(zombie.pid, nullptr, 0);
    children.pop_back();
    EXPECT_EQ(COM_CheckThreadState(&zombie), -1);
    EXPECT_STREQ(zombie.state, "Z");
}

TEST_F(ThreadRegistry, NameWithBlankOrSlashShiftsTheTokens)
{
    for (const char *name : {"a b", "a/b"}) {
        COM_THREAD_RECORD r{};
        r.pid = pausedChild(name);
        EXPECT_EQ(COM_CheckThreadState(&r), 0);
        EXPECT_STREQ(r.state, "b)");
    }
}

TEST_F(ThreadRegistry, WatchdogWarnsAtEveryPass)
{
    fake::clock::enable(1'000'000'000, true);
    COM_LogThread("main");
    const pid_t stopped = child(false);
    registerFor(stopped, "stopped");
    const std::string warning =
        "Warnning!! [pid = " + std::to_string(stopped) + "] [stopped] process error\n";

    fake::StdoutCapture capture;
    ASSERT_EQ(COM_CreateThreadWatchdog(5), 0);
    fake::clock::waitForSleeps(1); // the first pass is done
    fake::clock::advance(5'000'000'000);
    fake::clock::waitForSleeps(2); // and the second
    EXPECT_EQ(COM_DestroyThreadWatchdog(), 0);
    const std::string log = fake::withoutLineNumbers(capture.text());

    EXPECT_EQ(log, "thread_registry.cpp,N:COM_ThreadWatchdog(): " + warning +
                       "thread_registry.cpp,N:COM_ThreadWatchdog(): " + warning);
    EXPECT_EQ(fake::clock::sleptNs(), 10'000'000'000);
    EXPECT_STREQ(gThreadTable[2].name, "COM_ThreadWatchdog");
    EXPECT_STREQ(gThreadTable[1].state, "T");
    pthread_mutex_init(&gThreadLock, nullptr);
}

// The sleep is a cancellation point: a watchdog with a period of a minute
// ends at once.
TEST_F(ThreadRegistry, DestroyDoesNotWaitForTheSleep)
{
#if defined(__powerpc__)
    GTEST_SKIP() << "qemu-user aborts a thread cancelled inside a blocking call";
#endif
    struct timespec start {
    }, end{};
    clock_gettime(CLOCK_MONOTONIC, &start);
    ASSERT_EQ(COM_CreateThreadWatchdog(60), 0);
    while (true) { // the watchdog has registered itself
        pthread_mutex_lock(&gThreadLock);
        const bool registered = gThreadTable != nullptr;
        pthread_mutex_unlock(&gThreadLock);
        if (registered) {
            break;
        }
        sched_yield();
    }
    EXPECT_EQ(COM_DestroyThreadWatchdog(), 0);
    clock_gettime(CLOCK_MONOTONIC, &end);
    EXPECT_LT(end.tv_sec - start.tv_sec, 30);
    pthread_mutex_init(&gThreadLock, nullptr);
}

} // namespace
