// Stopping the thread watchdog: with none running, twice, and cancelled in
// the middle of its passes without leaking; the name of a thread's pid file.
#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <pthread.h>
#include <unistd.h>

#include "COMMON.h"
#include "test_support.h"

namespace {

class ThreadFaults : public testing::Test {
protected:
    void SetUp() override
    {
        fake::redirect("/var/run", dir.file("run"));
        free(gThreadTable);
        gThreadTable = nullptr;
    }
    void TearDown() override { pthread_mutex_init(&gThreadLock, nullptr); }
    fake::TempDir dir;
};

TEST_F(ThreadFaults, DestroyWithoutAWatchdogReportsItGone)
{
    const std::string gone = "thread_registry.cpp,N:COM_DestroyThreadWatchdog(): "
                             "pthread_cancel() error [3]\n";
    fake::clock::enable(1'000'000'000, true);
    std::string log = fake::captureStdout([] { EXPECT_EQ(COM_DestroyThreadWatchdog(), ESRCH); });
    EXPECT_EQ(fake::withoutLineNumbers(log), gone);
    ASSERT_EQ(COM_CreateThreadWatchdog(5), 0);
    EXPECT_EQ(COM_DestroyThreadWatchdog(), 0);
    log = fake::captureStdout([] { EXPECT_EQ(COM_DestroyThreadWatchdog(), ESRCH); });
    EXPECT_EQ(fake::withoutLineNumbers(log), gone);
}

// Period 0 on the manual clock: once a pass is over, the watchdog is at once
// in the next one, so the cancellation lands in its file and log calls.
TEST_F(ThreadFaults, WatchdogCancelledAnywhereLeavesNoDescriptor)
{
    for (int i = 0; i < 100; ++i) {
        COM_LogThread("worker");
    }
    COM_LogThread("gone");
    gThreadTable[100].pid = INT_MAX; // no such process: a warning each pass
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

// The pid file is named from the whole name; a path past its 256-byte
// buffer is refused, not cut.
TEST_F(ThreadFaults, PidFileTakesTheWholeName)
{
    const std::string name(100, 'n');
    EXPECT_EQ(COM_LogThread(name.c_str()), 1);
    EXPECT_EQ(fake::readFile(dir.file("run/" + name + ".thread.pid")), std::to_string(getpid()));
    const std::string path = "/var/run/" + std::string(240, 'm') + ".thread.pid";
    const std::string log =
        fake::captureStdout([] { EXPECT_EQ(COM_LogThread(std::string(240, 'm').c_str()), 2); });
    EXPECT_EQ(fake::withoutLineNumbers(log), "thread_registry.cpp,N:COM_LogThread(): fopen(" +
                                                 path.substr(0, 255) +
                                                 ") error : File name too long\n");
}

} // namespace
