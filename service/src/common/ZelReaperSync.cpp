#include "ZelReaperSync.h"

#include <condition_variable>
#include <utility>

#include "ZelTime.h"

namespace {

// Constructed in this order before main, destroyed in reverse at exit.
std::thread gReaperThread;
std::mutex gReaperMutex;
std::condition_variable gReaperCondition;
// Guarded by gReaperMutex.
int32_t gReaperState = REAPER_STATE_WAIT;
uint8_t gPurgeInProgress = 0;
uint64_t gPurgeCount = 0;
int64_t gLastPurgeTime = 0;
int gWaitingForPurgeEnd = 0;

}  // namespace

void ZelReaperSync::waitForPurgeEnd() {
    std::unique_lock<std::mutex> lock(gReaperMutex);
    ++gWaitingForPurgeEnd;
    while (gPurgeInProgress != 0) gReaperCondition.wait(lock);
    --gWaitingForPurgeEnd;
}

void ZelReaperSync::command(int32_t state) {
    std::lock_guard<std::mutex> guard(gReaperMutex);
    gReaperState = state;
    gReaperCondition.notify_all();
}

void ZelReaperSync::setCommand(int32_t state) {
    std::lock_guard<std::mutex> guard(gReaperMutex);
    gReaperState = state;
}

void ZelReaperSync::notify() {
    std::lock_guard<std::mutex> guard(gReaperMutex);
    gReaperCondition.notify_all();
}

void ZelReaperSync::wakeForPurgeIf(const std::function<bool()>& due) {
    std::lock_guard<std::mutex> guard(gReaperMutex);
    if (!due()) return;
    gReaperState = REAPER_STATE_WAIT;
    gReaperCondition.notify_all();
}

ZelReaperSync::State ZelReaperSync::state() {
    std::lock_guard<std::mutex> guard(gReaperMutex);
    return State{gReaperState, gPurgeInProgress != 0, gPurgeCount, gLastPurgeTime,
                 gWaitingForPurgeEnd};
}

void ZelReaperSync::adoptThread(std::thread thread) {
    gReaperThread = std::move(thread);
}

bool ZelReaperSync::hasThread() {
    return gReaperThread.joinable();
}

void ZelReaperSync::joinThread() {
    if (gReaperThread.joinable()) gReaperThread.join();
}

ZelReaperSync::Reaper::Reaper() : mLock(gReaperMutex) {}

int32_t ZelReaperSync::Reaper::command() const {
    return gReaperState;
}

void ZelReaperSync::Reaper::setCommand(int32_t state) {
    gReaperState = state;
}

void ZelReaperSync::Reaper::purge(const std::function<void()>& purge) {
    gPurgeInProgress = 1;
    mLock.unlock();
    purge();
    mLock.lock();
    gPurgeInProgress = 0;
    ++gPurgeCount;
    gLastPurgeTime = ZelTime::monotonicSeconds();
    gReaperState = REAPER_STATE_WAIT;
}

void ZelReaperSync::Reaper::waitUntil(std::chrono::system_clock::time_point deadline) {
    gReaperCondition.wait_until(mLock, deadline);
}

void ZelReaperSync::Reaper::wait() {
    gReaperCondition.wait(mLock);
}
