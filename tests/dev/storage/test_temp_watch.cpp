// The disk temperature watchdog's thread stepped on the manual fake clock:
// each pass reads the recorded SMART texts that the test puts in place while
// the thread sleeps. The states of a disk are in tests/cases/storage.
#include <gtest/gtest.h>

#include <filesystem>

#include "DEV.h"
#include "fake_scsi.h"
#include "test_support.h"

namespace {

constexpr int64_t kStart = 1'000'000'000;
constexpr int64_t kPeriodNs = 300'000'000'000;

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

    // Puts a recorded reading (35 to 55) in place for disks a to last.
    void reading(const std::string &name, char last = 'a')
    {
        for (char letter = 'a'; letter <= last; ++letter) {
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

// Eight disks at once, a pass per reading, as the log of their changes shows
// ([prev_status -> status]): a hold of 600 s takes three passes; flapping
// faster than the hold calls nothing.
TEST_F(DiskTempWatchdog, EightDisksThroughTheirStates)
{
    reading("45", 'h');
    const std::string log = fake::logOf([&] {
        start();
        for (const char *r : {"55", "55", "55", "35", "45", "35", "45"}) {
            reading(r, 'h');
            nextPass();
        }
        EXPECT_EQ(Dev_DiskTempWatchDogDestroy(&watch), 0);
    });
    const std::string prefix = "temp_watch.cpp,N:Dev_TempWatchThread(): [hd";
    std::string expected, events;
    for (char d = 'a'; d <= 'h'; ++d) {
        expected += prefix + d + "] - Temperature = 45 degree\n";
        events += "H" + std::to_string(d - 'a') + ":2@900 ";
    }
    for (const char *change : {"[1 -> 2] : 55", "[2 -> 3] : 55", "[3 -> 4] : 35", "[3 -> 3] : 45",
                               "[3 -> 4] : 35", "[3 -> 3] : 45"}) {
        for (char d = 'a'; d <= 'h'; ++d) {
            expected += prefix + d + "] : " + change + " degree\n";
        }
    }
    EXPECT_EQ(log, expected);
    EXPECT_EQ(gEvents, events);
    EXPECT_EQ(watch.running, 0);
    EXPECT_EQ(fake::clock::sleptNs(), 8 * kPeriodNs); // the last sleep ended by the destroy
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
    EXPECT_STREQ(watch.disks[7].name, "hdh");
    EXPECT_EQ(watch.disks[7].status, DEV_TEMP_UNWATCHED);
    EXPECT_EQ(Dev_DiskTempWatchDogCreate(nullptr), -1);
    EXPECT_EQ(Dev_DiskTempWatchDogDestroy(nullptr), -1);
}

} // namespace
