// The disk temperature watchdog stepped on the manual fake clock: each pass
// reads the recorded SMART texts that the test puts in place while the watch
// thread sleeps.
#include <gtest/gtest.h>

#include <dirent.h>
#include <vector>

#include "DEV.h"
#include "fake_scsi.h"
#include "test_support.h"

namespace {

constexpr int64_t kStart = 1'000'000'000;
constexpr int64_t kPeriodNs = 300'000'000'000;

struct Event {
    char kind;
    int index;
    int16_t status;
    int64_t now;
    bool operator==(const Event &) const = default;
};
std::vector<Event> gEvents; // written by the watch thread, read between its passes

int onOverheat(int index, DiskTempState *pDisk, int64_t now)
{
    gEvents.push_back({'H', index, pDisk->status, now});
    return 0;
}

int onRecover(int index, DiskTempState *pDisk, int64_t now)
{
    gEvents.push_back({'C', index, pDisk->status, now});
    return 0;
}

int threadCount()
{
    int n = 0;
    DIR *dir = opendir("/proc/self/task");
    while (dir != nullptr && readdir(dir) != nullptr) {
        ++n;
    }
    if (dir != nullptr) {
        closedir(dir);
    }
    return n;
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
        watch.on_overheat = onOverheat;
        watch.on_recover = onRecover;
        threads = threadCount();
        fake::clock::enable(kStart, true);
    }
    void TearDown() override { EXPECT_EQ(threadCount(), threads) << "a thread was left"; }

    // Puts a recorded reading in place for disk letter: 35 to 55, minus1.
    void reading(char letter, const std::string &name)
    {
        dir.write(std::string("hd") + letter + "/smart_values",
                  fake::readFile(DVR_TEST_DATA_DIR "/storage/smart/" + name));
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
    int threads = 0;
    int passes = 0;
};

// One disk through every state, a pass per reading: hold 600 s is three
// passes; readings between the thresholds take back an unfinished hold.
TEST_F(DiskTempWatchdog, StatesOfOneDisk)
{
    struct Pass {
        const char *reading;
        int16_t status, prev;
    } steps[] = {
        {"55", 2, 1}, {"55", 2, 1}, {"55", 3, 2},     {"55", 3, 2}, {"35", 4, 3},
        {"45", 3, 3}, {"35", 4, 3}, {"35", 4, 3},     {"35", 5, 4}, {"40", 1, 5},
        {"50", 2, 1}, {"45", 1, 1}, {"minus1", 1, 1},
    };
    reading('a', "45");
    fake::StdoutCapture capture;
    start();
    for (const Pass &p : steps) {
        reading('a', p.reading);
        nextPass();
        EXPECT_EQ(watch.disks[0].status, p.status) << p.reading;
        EXPECT_EQ(watch.disks[0].prev_status, p.prev) << p.reading;
    }
    EXPECT_EQ(Dev_DiskTempWatchDogDestroy(&watch), 0);
    const std::string log = fake::withoutLineNumbers(capture.text());
    const std::vector<Event> expected = {{'H', 0, 2, kStart + 900}, {'C', 0, 4, kStart + 2700}};
    EXPECT_EQ(gEvents, expected);
    EXPECT_EQ(watch.running, 0);
    EXPECT_EQ(log,
              fake::logLines("temp_watch.cpp,N:Dev_TempWatchThread(): [hda] ",
                             "- Temperature = 45 degree\n|: [1 -> 2] : 55 degree\n|: [2 -> 3] : "
                             "55 degree\n|: [3 -> 4] : 35 degree\n|: [3 -> 3] : 45 degree\n|: "
                             "[3 -> 4] : 35 degree\n|: [4 -> 5] : 35 degree\n|: [5 -> 1] : 40 "
                             "degree\n|: [1 -> 2] : 50 degree\n|: [1 -> 1] : 45 degree\n"));
    for (int i = 1; i < DEV_WATCH_DISKS; ++i) {
        EXPECT_EQ(watch.disks[i].status, 0);
        EXPECT_EQ(watch.disks[i].name, "hd" + std::string(1, static_cast<char>('a' + i)));
    }
}

// Eight disks at once, hold 0: the callbacks come at the second hot pass.
TEST_F(DiskTempWatchdog, EightDisksAndNullCallbacks)
{
    watch.hold_seconds = 0;
    for (char letter = 'a'; letter < 'i'; ++letter) {
        reading(letter, "55");
    }
    fake::captureStdout([&] {
        start();
        EXPECT_TRUE(gEvents.empty());
        nextPass();
        watch.on_overheat = nullptr; // read at every step, without a lock
        for (char letter = 'a'; letter < 'i'; ++letter) {
            reading(letter, "35");
        }
        nextPass();
        nextPass();
    });
    ASSERT_EQ(gEvents.size(), 16u);
    for (int i = 0; i < DEV_WATCH_DISKS; ++i) {
        EXPECT_EQ(gEvents[i], (Event{'H', i, 2, kStart + 300}));
        EXPECT_EQ(gEvents[8 + i], (Event{'C', i, 4, kStart + 900}));
        EXPECT_EQ(watch.disks[i].status, 5);
    }
    EXPECT_EQ(Dev_DiskTempWatchDogDestroy(&watch), 0);
}

// Flapping faster than the hold never calls back; no disk with SMART leaves
// every state at 0.
TEST_F(DiskTempWatchdog, FlappingGivesNothing)
{
    reading('b', "45");
    fake::captureStdout([&] {
        start();
        for (const char *r : {"55", "45", "55", "35", "45", "35", "55", "35"}) {
            reading('b', r);
            nextPass();
        }
    });
    EXPECT_TRUE(gEvents.empty());
    EXPECT_EQ(Dev_DiskTempWatchDogDestroy(&watch), 0);

    TempWatch none{};
    EXPECT_EQ(fake::logOf([&] { EXPECT_EQ(Dev_DiskTempWatchDogCreate(&none), 0); }), "");
    EXPECT_EQ(Dev_DiskTempWatchDogDestroy(&none), 0);
}

// Destroy returns at once, whenever it comes; the flag alone ends the loop
// after the sleep.
TEST_F(DiskTempWatchdog, DestroyAtAnyTimeAndTheRunningFlag)
{
    reading('a', "55");
    fake::captureStdout([&] {
        EXPECT_EQ(Dev_DiskTempWatchDogCreate(&watch), 0);
        EXPECT_EQ(Dev_DiskTempWatchDogDestroy(&watch), 0); // maybe before the first pass
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
    EXPECT_EQ(fake::logOf([] {
                  EXPECT_EQ(Dev_DiskTempWatchDogCreate(nullptr), -1);
                  EXPECT_EQ(Dev_DiskTempWatchDogDestroy(nullptr), -1);
              }),
              "");
}

} // namespace
