#include "ZelReaperSync.h"

// Constructed in this order before main, destroyed in reverse at exit.
std::thread gReaperThread;
std::mutex gReaperMutex;
std::condition_variable gReaperCondition;
int32_t gReaperState = REAPER_STATE_WAIT;
uint8_t gPurgeInProgress = 0;
uint64_t gPurgeCount = 0;
int64_t gLastPurgeTime = 0;

void ZelReaperSync::waitForPurgeEnd() {
    std::unique_lock<std::mutex> lock(gReaperMutex);
    while (gPurgeInProgress != 0) gReaperCondition.wait(lock);
}

void ZelReaperSync::command(int32_t state) {
    std::lock_guard<std::mutex> guard(gReaperMutex);
    gReaperState = state;
    gReaperCondition.notify_all();
}

void ZelReaperSync::notify() {
    std::lock_guard<std::mutex> guard(gReaperMutex);
    gReaperCondition.notify_all();
}
