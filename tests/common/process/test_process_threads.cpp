// What needs threads: a command watched while it runs, a reader woken by
// signals, and the thread watchdog stepped on the manual fake clock.
#include <gtest/gtest.h>

#include <climits>
#include <csignal>
#include <fcntl.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "process_support.h"

namespace {

// While the command runs its id is in *pPid and SIGINT is ignored; 0 after.
// COM_KillPid ends it and waits its time.
TEST(System, PidAndSignalStateWhileTheCommandRuns)
{
    int pid = 0, status = 0, running = 0;
    std::thread runner([&] { status = COM_System("/bin/sleep 1000", &pid); });
    EXPECT_TRUE(ptest::eventually(
        [&] { return (running = __atomic_load_n(&pid, __ATOMIC_SEQ_CST)) != 0; }));
    EXPECT_EQ(signal(SIGINT, SIG_IGN), SIG_IGN);
    fake::clock::enable();
    EXPECT_EQ(COM_KillPid(running, 1500000), 0);
    EXPECT_EQ(fake::clock::sleptNs(), 1'500'000'000);
    runner.join();
    EXPECT_EQ(status, SIGTERM);
    EXPECT_EQ(pid, 0);
    EXPECT_EQ(signal(SIGINT, SIG_DFL), SIG_DFL);
}

// Each line of a command that pauses reaches the callback while the command
// still waits, and a signal that interrupts the wait loses nothing.
TEST(PopenRead, LinesComeAsWrittenThroughSignals)
{
    fake::TempDir dir;
    const std::string fifo = dir.file("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    struct sigaction wake {
    }, saved{};
    wake.sa_handler = [](int) {}; // no SA_RESTART: select() fails with EINTR
    sigaction(SIGUSR1, &wake, &saved);
    const pthread_t reader = pthread_self();
    const std::string wchan =
        "/proc/" + std::to_string(getpid()) + "/task/" + std::to_string(gettid()) + "/wchan";
    bool prompt = false, waiting = false;
    std::thread writer([&] {
        const int fd = open(fifo.c_str(), O_WRONLY);
        EXPECT_EQ(write(fd, "a\nb\n", 4), 4);
        prompt = ptest::eventually([&] {
            const std::lock_guard lock(ptest::linesMutex);
            return ptest::lines == "\"a\\n\"\"b\\n\"";
        });
        waiting = ptest::eventually([&] { // do_select, poll_schedule_timeout ...
            const std::string in = fake::readFile(wchan);
            return in.find("select") != std::string::npos || in.find("poll") != std::string::npos;
        });
        pthread_kill(reader, SIGUSR1);
        EXPECT_EQ(write(fd, "c\n", 2), 2);
        close(fd);
    });
    ptest::takeLines();
    EXPECT_EQ(COM_PopenRead(("/bin/cat " + fifo).c_str(), 0, 0xC0FFEE, ptest::recordLine), 0);
    writer.join();
    sigaction(SIGUSR1, &saved, nullptr);
    EXPECT_TRUE(prompt) << "a line waited for more output";
    EXPECT_TRUE(waiting);
    EXPECT_EQ(ptest::takeLines(), "\"a\\n\"\"b\\n\"\"c\\n\"<end>");
}

class Watchdog : public testing::Test {
protected:
    void SetUp() override
    {
        fake::redirect("/var/run", dir.file("run"));
        free(gThreadTable); // a new process has no table
        gThreadTable = nullptr;
        fake::clock::enable(1'000'000'000, true);
    }
    void TearDown() override { pthread_mutex_init(&gThreadLock, nullptr); }
    fake::TempDir dir;
};

TEST_F(Watchdog, WarnsAtEveryPass)
{
    COM_LogThread("main");
    const int gone = COM_LogThread("gone");
    gThreadTable[gone - 1].pid = INT_MAX; // no such process
    const std::string warning =
        "thread_registry.cpp,N:COM_ThreadWatchdog(): Warnning!! [pid = " + std::to_string(INT_MAX) +
        "] [gone] process error\n";
    fake::StdoutCapture capture;
    ASSERT_EQ(COM_CreateThreadWatchdog(5), 0);
    fake::clock::waitForSleeps(1); // the first pass is done
    fake::clock::advance(5'000'000'000);
    fake::clock::waitForSleeps(2); // and the second
    EXPECT_EQ(COM_DestroyThreadWatchdog(), 0);
    EXPECT_EQ(fake::withoutLineNumbers(capture.text()), warning + warning);
    EXPECT_EQ(fake::clock::sleptNs(), 10'000'000'000);
    EXPECT_STREQ(gThreadTable[2].name, "COM_ThreadWatchdog");
}

TEST_F(Watchdog, DestroyWithoutOneReportsItGone)
{
    const std::string gone = "thread_registry.cpp,N:COM_DestroyThreadWatchdog(): "
                             "pthread_cancel() error [3]\n";
    EXPECT_EQ(fake::logOf([] { EXPECT_EQ(COM_DestroyThreadWatchdog(), ESRCH); }), gone);
    ASSERT_EQ(COM_CreateThreadWatchdog(5), 0);
    EXPECT_EQ(COM_DestroyThreadWatchdog(), 0);
    EXPECT_EQ(fake::logOf([] { EXPECT_EQ(COM_DestroyThreadWatchdog(), ESRCH); }), gone);
}

// Period 0 on the manual clock: once a pass is over, the watchdog is at once
// in the next one, so the cancellation lands in its file and log calls.
TEST_F(Watchdog, CancelledAnywhereLeavesNoDescriptor)
{
    for (int i = 0; i < 100; ++i) {
        COM_LogThread("worker");
    }
    const int gone = COM_LogThread("gone");
    gThreadTable[gone - 1].pid = INT_MAX; // no such process: a warning a pass
    const int before = fake::openDescriptorCount();
    fake::StdoutCapture capture;
    for (int i = 0; i < 50; ++i) {
        fake::clock::enable(1'000'000'000, true); // counts sleeps from 0
        ASSERT_EQ(COM_CreateThreadWatchdog(0), 0);
        fake::clock::waitForSleeps(1); // the next pass has begun
        ASSERT_EQ(COM_DestroyThreadWatchdog(), 0);
    }
    capture.text();
    EXPECT_EQ(fake::openDescriptorCount(), before);
}

} // namespace
