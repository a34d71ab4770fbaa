#include "DEV.h"
#include "com_log.h"

#include <cstdio>
#include <ctime>
#include <pthread.h>
#include <unistd.h>

// DiskTempState: the same layout on the board (ILP32, int64_t aligned to 8)
// and on a 64-bit host.
static_assert(offsetof(DiskTempState, status) == 8);
static_assert(offsetof(DiskTempState, prev_status) == 10);
static_assert(offsetof(DiskTempState, since) == 16);
static_assert(sizeof(DiskTempState) == 24);

namespace {

enum class Reading { kTooHot, kBetween, kCool };

// running is written under the mutex and read by the watch thread without
// it; both sides use atomic accesses, so the unlocked read is no data race.
int32_t isRunning(const TempWatch &w)
{
    return __atomic_load_n(&w.running, __ATOMIC_ACQUIRE);
}

void setRunning(TempWatch &w, int32_t value)
{
    __atomic_store_n(&w.running, value, __ATOMIC_RELEASE);
}

void enter(DiskTempState &d, int16_t status)
{
    d.prev_status = d.status;
    d.status = status;
}

void startHold(DiskTempState &d, int16_t status, int64_t now)
{
    enter(d, status);
    d.since = now;
}

// Ends a running hold with the callback once it has lasted the hold time.
void finishHold(const TempWatch &w, DiskTempState &d, DevTempCallback callback, int16_t next,
                int index, int64_t now)
{
    if (now - d.since < w.hold_seconds) {
        return;
    }
    if (callback != nullptr) {
        callback(index, &d, now);
    }
    enter(d, next);
}

void stepTooHot(const TempWatch &w, DiskTempState &d, int index, int64_t now)
{
    switch (d.status) {
    case DEV_TEMP_NORMAL:
    case DEV_TEMP_COOL_HOLD:
    case DEV_TEMP_RECOVERED:
        startHold(d, DEV_TEMP_HOT_HOLD, now);
        break;
    case DEV_TEMP_HOT_HOLD:
        finishHold(w, d, w.on_overheat, DEV_TEMP_OVERHEATED, index, now);
        break;
    case DEV_TEMP_OVERHEATED:
        break;
    default:
        COM_LOG(__func__, "undeined status [%d]\n", d.status);
    }
}

void stepCool(const TempWatch &w, DiskTempState &d, int index, int64_t now)
{
    switch (d.status) {
    case DEV_TEMP_NORMAL:
    case DEV_TEMP_RECOVERED:
        enter(d, DEV_TEMP_NORMAL);
        break;
    case DEV_TEMP_HOT_HOLD:
    case DEV_TEMP_OVERHEATED:
        startHold(d, DEV_TEMP_COOL_HOLD, now);
        break;
    case DEV_TEMP_COOL_HOLD:
        finishHold(w, d, w.on_recover, DEV_TEMP_RECOVERED, index, now);
        break;
    default:
        COM_LOG(__func__, "undeined status [%d]\n", d.status);
    }
}

// A reading between the thresholds takes back an unfinished hold.
void stepBetween(DiskTempState &d)
{
    if (d.status == DEV_TEMP_HOT_HOLD || d.status == DEV_TEMP_COOL_HOLD) {
        d.status = d.prev_status;
    }
}

void unlockMutex(void *mutex)
{
    pthread_mutex_unlock(static_cast<pthread_mutex_t *>(mutex));
}

// Step 2 of the watch: which disks have a temperature at all.
void findDisks(TempWatch &w, SmartValue &smart)
{
    for (int i = 0; i < DEV_WATCH_DISKS; ++i) {
        DiskTempState &d = w.disks[i];
        snprintf(d.name, sizeof d.name, "hd%c", 'a' + i);
        if (Dev_GetSmartValue(d.name, &smart) == 0) {
            d.status = DEV_TEMP_NORMAL;
            COM_LOG("Dev_TempWatchThread", "[%s] - Temperature = %d degree\n", d.name, smart.value);
        } else {
            d.status = DEV_TEMP_UNWATCHED;
        }
        d.since = -1;
    }
}

} // namespace

int Dev_SubTempWatch(TempWatch *pWatch, DiskTempState *pDisk, SmartValue *pSmart, int index)
{
    if (pWatch == nullptr || pDisk == nullptr || pSmart == nullptr) {
        return -1;
    }
    if (Dev_GetSmartValue(pDisk->name, pSmart) != 0) {
        return pDisk->status; // a failed read moves nothing
    }
    const int value = pSmart->value;
    const int64_t now = time(nullptr);
    if (value >= pWatch->temp_high) {
        stepTooHot(*pWatch, *pDisk, index, now);
    } else if (value <= pWatch->temp_low) {
        stepCool(*pWatch, *pDisk, index, now);
    } else {
        stepBetween(*pDisk);
    }
    return pDisk->status;
}

void *Dev_TempWatchThread(void *pWatch)
{
    auto &w = *static_cast<TempWatch *>(pWatch);
    SmartValue smart{};
    smart.attribute = DEV_SMART_TEMPERATURE;
    findDisks(w, smart);
    while (isRunning(w) != 0) {
        for (int i = 0; i < DEV_WATCH_DISKS; ++i) {
            DiskTempState &d = w.disks[i];
            if (d.status == DEV_TEMP_UNWATCHED) {
                continue;
            }
            const int kept = d.status;
            if (Dev_SubTempWatch(&w, &d, &smart, i) != kept) {
                COM_LOG(__func__, "[%s] : [%d -> %d] : %d degree\n", d.name, d.prev_status,
                        d.status, smart.value);
            }
        }
        sleep(DEV_WATCH_PERIOD_SECONDS); // the cancellation point that ends the watch
    }
    return nullptr;
}

int Dev_DiskTempWatchDogCreate(TempWatch *pWatch)
{
    if (pWatch == nullptr) {
        return -1;
    }
    setRunning(*pWatch, 1);
    pthread_mutex_init(&pWatch->mutex, nullptr);
    const int rc = pthread_create(&pWatch->thread, nullptr, Dev_TempWatchThread, pWatch);
    if (rc != 0) {
        COM_LOG(__func__, "pthread_create() error = %d\n", rc);
    }
    return rc;
}

int Dev_DiskTempWatchDogDestroy(TempWatch *pWatch)
{
    if (pWatch == nullptr) {
        return -1;
    }
    pthread_cleanup_push(unlockMutex, &pWatch->mutex);
    pthread_mutex_lock(&pWatch->mutex);
    setRunning(*pWatch, 0);
    pthread_mutex_unlock(&pWatch->mutex);
    pthread_cleanup_pop(0);
    const int rc = pthread_cancel(pWatch->thread);
    if (rc != 0) {
        COM_LOG(__func__, "pthread_cancel() error [%d]\n", rc);
        return rc;
    }
    pthread_join(pWatch->thread, nullptr);
    pthread_mutex_destroy(&pWatch->mutex);
    return rc;
}
