// The task manager's helpers that write no log lines of their own.

#include "ZelTaskManager.h"

bool ZelTaskManager::publishEvents(const std::vector<PolicyEvent>& events, int32_t first,
                                   int32_t second) {
    if (mEventDispatcher == nullptr) return events.empty();
    return mEventDispatcher->publishEvents(events, first, second);
}

void ZelTaskManager::removeFromStoppedTasks(const TaskKey& key) {
    std::lock_guard<std::mutex> guard(mStoppedTaskLock);
    mStoppedTaskList.remove(key);
}

bool ZelTaskManager::hasStoppedTasks() {
    std::lock_guard<std::mutex> guard(mStoppedTaskLock);
    return !mStoppedTaskList.empty();
}

void ZelTaskManager::approvePendingTasks() {
    for (const auto& [key, task] : mPendingTaskList->snapshot()) {
        if (task == nullptr || task->getState() != TASK_STATE_START_PENDING) continue;
        if (checkTaskStartDependencies(task, kClientRequestType) == 0) continue;
        // Whoever takes the key out of the pending table answers, so once only.
        if (!mPendingTaskList->erase(key)) continue;
        task->setState(TASK_STATE_START_ALLOWED);
        std::shared_ptr<ZelIpcContext> taskContext;
        ZelTaskCallback callback = nullptr;
        uint32_t token = 0;
        task->getAnswerChannel(taskContext, callback, token);
        if (callback != nullptr) callback(std::move(taskContext), token);
    }
}
