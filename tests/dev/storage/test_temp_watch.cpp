// The disk temperature watchdog stepped on the manual fake clock: each pass
// reads the recorded SMART texts that the test puts in place while the watch
// thread sleeps.
#include <gtest/gtest.h>

#include <filesystem>

#include "DEV.h"
#include "fake_scsi.h"
#include "test_support.h"

namespace {

constexpr int64_t kStart = 1'000'000'000;
constexpr int64_t kPeriodNs = 300'000'000'000;

// Callbacks as text: kind, disk index, status at the call, seconds since the start.
std::string gEvents; // written by the watch thread, read between its passes

template <char kind> int event(int index, DiskTempState *pDisk, int64_t now)
{
    gEvents += kind + std::to_string(index) + ":" + std::to_string(pDisk->status) + "@" +
               std::to_string(now - kStart) + " ";
    return 0;
}

int threadCount()
{
    const auto tasks = std::filesystem::directory_iterator("/proc/self/task");
    return static_cast<int>(std::distance(begin(tasks), end(tasks)));
}

class DiskTempWatchdog : public testing::Test {
protected:
    void SetUp() override
    {
        gEvents.clear();
        fake::redirect("/proc/ide", dir.path());
        watch.temp_high = 50;
        watch.temp_low = 40;
        watch.hold_seconds = 600;
        watch.on_overheat = event<'H'>;
        watch.on_recover = event<'C'>;
        fake::clock::enable(kStart, true);
    }
    // qemu-user ends a joined thread's host thread on its own time: checked on the host.
    void TearDown() override
    {
#if !defined(__powerpc__) && !defined(__SANITIZE_THREAD__) // TSan adds a thread of its own
        EXPECT_EQ(threadCount(), threads) << "a thread was left";
#endif
    }

    // Puts a recorded reading (35 to 55, minus1) in place for disks from..to.
    void reading(const std::string &name, char from = 'a', char to = 'a')
    {
        for (char letter = from; letter <= to; ++letter) {
            dir.write(std::string("hd") + letter + "/smart_values",
                      fake::readFile(DVR_TEST_DATA_DIR "/storage/smart/" + name));
        }
    }
    // Lets the watch thread run its next pass and fall asleep again.
    void nextPass()
    {
        fake::clock::advance(kPeriodNs);
        fake::clock::waitForSleeps(++passes);
    }
    void start()
    {
        ASSERT_EQ(Dev_DiskTempWatchDogCreate(&watch), 0);
        fake::clock::waitForSleeps(++passes);
    }

    fake::TempDir dir;
    TempWatch watch{};
    int threads = threadCount();
    int passes = 0;
};

// One disk through every state, a pass per reading, as the log of its
// changes shows ([prev_status -> status]): a hold of 600 s takes three passes;
// readings between the thresholds take back an unfinished hold.
TEST_F(DiskTempWatchdog, StatesOfOneDisk)
{
    reading("45");
    fake::StdoutCapture capture;
    start();
    for (const char *r :
         {"55", "55", "55", "55", "35", "45", "35", "35", "35", "40", "50", "45", "minus1"}) {
        reading(r);
        nextPass();
    }
    EXPECT_EQ(Dev_DiskTempWatchDogDestroy(&watch), 0);
    EXPECT_EQ(gEvents, "H0:2@900 C0:4@2700 ");
    EXPECT_EQ(watch.running, 0);
    EXPECT_EQ(fake::withoutLineNumbers(capture.text()),
              fake::logLines("temp_watch.cpp,N:Dev_TempWatchThread(): [hda] ",
                             "- Temperature = 45 degree\n|: [1 -> 2] : 55 degree\n|: [2 -> 3] : "
                             "55 degree\n|: [3 -> 4] : 35 degree\n|: [3 -> 3] : 45 degree\n|: "
                             "[3 -> 4] : 35 degree\n|: [4 -> 5] : 35 degree\n|: [5 -> 1] : 40 "
                             "degree\n|: [1 -> 2] : 50 degree\n|: [1 -> 1] : 45 degree\n"));
    EXPECT_STREQ(watch.disks[7].name, "hdh");
    EXPECT_EQ(watch.disks[7].status, 0);
}

// Eight disks at once with a hold of 0: a callback at the second pass of a
// kind. A null callback still moves the state; flapping faster than the hold
// calls nothing.
TEST_F(DiskTempWatchdog, EightDisksNullCallbacksAndFlapping)
{
    watch.hold_seconds = 0;
    reading("55", 'a', 'h');
    fake::captureStdout([&] {
        start();
        nextPass();
        watch.on_overheat = nullptr; // read at every step, without a lock
        reading("35", 'a', 'h');
        nextPass();
        nextPass();
        reading("55", 'a', 'h');
        nextPass();
        nextPass();
        watch.hold_seconds = 600;
        for (const char *r : {"35", "45", "35", "45"}) {
            reading(r, 'a', 'h');
            nextPass();
        }
    });
    EXPECT_EQ(gEvents, "H0:2@300 H1:2@300 H2:2@300 H3:2@300 H4:2@300 H5:2@300 H6:2@300 H7:2@300 "
                       "C0:4@900 C1:4@900 C2:4@900 C3:4@900 C4:4@900 C5:4@900 C6:4@900 C7:4@900 ");
    EXPECT_EQ(Dev_DiskTempWatchDogDestroy(&watch), 0);
    for (const DiskTempState &d : watch.disks) {
        EXPECT_EQ(d.status, 3);
    }
}

// Destroy returns at once whenever it comes, also with no disk watched; the
// flag cleared under the mutex ends the loop after the sleep.
TEST_F(DiskTempWatchdog, DestroyAtAnyTimeAndTheRunningFlag)
{
    fake::captureStdout([&] {
        EXPECT_EQ(Dev_DiskTempWatchDogCreate(&watch), 0);
        EXPECT_EQ(Dev_DiskTempWatchDogDestroy(&watch), 0); // maybe before the first pass
        fake::clock::enable(kStart, true);                 // it may have slept: count anew
        reading("55");
        start();
        EXPECT_EQ(watch.running, 1);
        EXPECT_EQ(Dev_DiskTempWatchDogDestroy(&watch), 0); // asleep
        start();
        pthread_mutex_lock(&watch.mutex);
        watch.running = 0;
        pthread_mutex_unlock(&watch.mutex);
        fake::clock::advance(kPeriodNs); // the thread ends by itself
        EXPECT_EQ(Dev_DiskTempWatchDogDestroy(&watch), 0);
    });
    EXPECT_EQ(fake::clock::sleptNs(), 2 * kPeriodNs);
    EXPECT_EQ(Dev_DiskTempWatchDogCreate(nullptr), -1);
    EXPECT_EQ(Dev_DiskTempWatchDogDestroy(nullptr), -1);
}

} // namespace
