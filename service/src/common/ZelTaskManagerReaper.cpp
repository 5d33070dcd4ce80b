// The task manager's reaper thread: a purge every 5 seconds of wall-clock
// time and whenever woken. A purge completes the running tasks that overran
// their run time and cleans up completed ones.

#include <pthread.h>

#include <chrono>
#include <vector>

#include "ZelTaskManager.h"
#include "ZelTaskManagerShared.h"
#include "ZelTime.h"

namespace {

// Run times above this many milliseconds are never enforced by the reaper.
constexpr int32_t kLongestEnforcedRunTime = 5000;
constexpr int32_t kUnlimitedRunTime = -1;
constexpr auto kReaperPeriod = std::chrono::microseconds(5000000);
// The thread's name, as a trace's track and ps -T show it.
constexpr const char* kReaperThreadName = "reaper";

}  // namespace

void ZelTaskManager::reaperFunc(ZelTaskManager* manager) {
    pthread_setname_np(pthread_self(), kReaperThreadName);
    ZelReaperSync::Reaper reaper;
    int32_t state = reaper.command();
    for (;;) {
        while (state == REAPER_STATE_PURGE) {
            // Stores WAIT blindly afterwards: a stop request stored meanwhile is overwritten.
            reaper.purge([manager] { clearList(manager); });
            state = REAPER_STATE_WAIT;
        }
        if (state == REAPER_STATE_EXIT) break;
        if (state == REAPER_STATE_WAIT) {
            reaper.waitUntil(std::chrono::system_clock::now() + kReaperPeriod);
            reaper.setCommand(REAPER_STATE_PURGE);
            ZEL_TM_LOGD("Timeout, Purging Tasks");
        } else {
            reaper.wait();
        }
        state = reaper.command();
    }
}

void ZelTaskManager::clearList(ZelTaskManager* manager) {
    const ZelTraceSlice purge("purge");
    std::vector<TaskKey> expired;
    for (const auto& [key, task] : manager->mRunningTaskList->snapshot()) {
        if (task == nullptr) continue;
        const char* compId = key.first.c_str();
        const char* taskId = key.second.c_str();
        ZEL_TM_LOGI("Task:(%s, %s) is running", compId, taskId);
        const int32_t duration = task->getDuration();
        if (duration == kUnlimitedRunTime) continue;
        const int64_t now = ZelTime::monotonicNanos() / 1000000000LL;
        int64_t startTime = 0;
        int32_t currentDuration = 0;
        task->getRunTime(startTime, currentDuration);
        const int64_t elapsedSeconds = now - startTime;
        if (duration > kLongestEnforcedRunTime) continue;
        if (elapsedSeconds * 1000 > static_cast<int64_t>(currentDuration)) {
            ZEL_TM_LOGI("Task:(%s, %s) configured runTime:%d, exceeds runTime:%d", compId, taskId,
                        currentDuration, 1);
            expired.push_back(key);
        }
    }
    int64_t ended = 0;
    for (const TaskKey& key : expired) {
        const int32_t result = manager->taskCompletedInternal(key.first, key.second, true);
        ZEL_TM_LOGI("Task (%s, %s) complete request status %d", key.first.c_str(),
                    key.second.c_str(), result);
        if (result == kResultSuccess) ++ended;
    }
    manager->clearStoppedTasks();
    zelTraceInstant("purge ended", "tasks", ended);
}
