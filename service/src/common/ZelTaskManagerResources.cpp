// The task manager's resource pass: each memory report is recorded; while
// memory is critical, running preemptable tasks past their guaranteed run
// time are completed; otherwise auto-start tasks are requested and pending
// starts decided again. Then the reaper is woken when there is work for it.

#include "ZelTaskManager.h"
#include "ZelTaskManagerShared.h"
#include "ZelTime.h"

using namespace zel::taskmanager;

namespace {

constexpr uint8_t kMemoryResourceType = 1;
constexpr uint32_t kResourceStatusCritical = 4;

}  // namespace

void ZelTaskManager::onResourceStatusEvent(const ResourceStatusRecord* record) {
    ZEL_TM_LOGD("ResourceStatusEvent Received");
    if (record == nullptr || record->resourceType != kMemoryResourceType) return;
    const ZelTraceSlice pass("resource pass", "status", record->status, "value", record->value,
                             "threshold", record->criticalThreshold);
    const int64_t now = ZelTime::monotonicNanos() / 1000000000LL;
    ZEL_TM_LOGI("Received Resource type %d, status %d, value %llu, critical threshold %llu, "
                "timestamp %lld",
                record->resourceType, record->status,
                static_cast<unsigned long long>(record->value),
                static_cast<unsigned long long>(record->criticalThreshold),
                static_cast<long long>(now));
    mResourceStatus->update(ZelResourceStatus::kMemoryResource, record->status, record->value,
                            record->criticalThreshold, now);
    TaskStatusUpdateOnResourceStatusUpdate();
}

void ZelTaskManager::TaskStatusUpdateOnResourceStatusUpdate() {
    const uint32_t status = mResourceStatus->getStatus(ZelResourceStatus::kMemoryResource);
    const bool critical = status == kResourceStatusCritical;
    for (const auto& [key, task] : mRunningTaskList->snapshot()) {
        if (!critical) continue;
        ZEL_TM_LOGI("Tasks will be checked to stop on resource status CRITICAL");
        if (task == nullptr) {
            ZEL_TM_LOGW("Task (%s, %s) ZelTask obj does not exist", key.first.c_str(),
                        key.second.c_str());
            continue;
        }
        preemptIfDue(key, *task);
    }

    if (!critical) {
        for (const TaskKey& key : mPolicyEngine->getAutoStartTasks()) {
            std::shared_ptr<ZelTask> task = getTask(key.first, key.second);
            if (task != nullptr && isStartedState(task->getState())) continue;
            ZEL_TM_LOGI("Task (%s, %s) is not running need to Request for Start", key.first.c_str(),
                        key.second.c_str());
            // Its result is not looked at.
            const int32_t duration =
                    mPolicyEngine->getMinimumGuaranteedRuntime(key.first, key.second);
            (void)taskStartRequested(key.first, key.second, false, duration, nullptr, nullptr,
                                     kAutoStartRequestType);
        }
        approvePendingTasks();
    }

    ZelReaperSync::wakeForPurgeIf(
            [this] { return hasStoppedTasks() || mRunningTaskList->size() != 0; });
}

void ZelTaskManager::preemptIfDue(const TaskKey& key, const ZelTask& task) {
    constexpr const char* kOperation = "TaskStatusUpdateOnResourceStatusUpdate";
    const char* compId = key.first.c_str();
    const char* taskId = key.second.c_str();
    const int32_t state = task.getState();
    ZEL_TM_LOGI_FOR(kOperation, "Task (%s, %s) state:%d", compId, taskId, state);
    if (state != TASK_STATE_RUNNING) return;
    const int64_t reportTime = mResourceStatus->getTimestamp(ZelResourceStatus::kMemoryResource);
    const bool preempt = mPolicyEngine->isPreemptable(key.first, key.second);
    ZEL_TM_LOGD_FOR(kOperation, "Task (%s, %s) preemptAllowed:%d", compId, taskId, preempt ? 1 : 0);
    if (!preempt) {
        ZEL_TM_LOGI_FOR(kOperation, "Task (%s, %s) cannot be stopped because it is not preemptable",
                        compId, taskId);
        return;
    }
    if (static_cast<uint8_t>(task.getEnsureRunTime()) == 0) {
        ZEL_TM_LOGI_FOR(kOperation,
                        "Task (%s, %s) will be stopped because of resource critical status and no "
                        "guaranteed runtime",
                        compId, taskId);
    } else {
        int64_t startTime = 0;
        int32_t duration = 0;
        task.getRunTime(startTime, duration);
        const int64_t elapsedMillis = (reportTime - startTime) * 1000;
        if (elapsedMillis <= static_cast<int64_t>(duration)) {
            ZEL_TM_LOGD_FOR(kOperation,
                            "Task (%s, %s) will be checked again at next status since "
                            "guaranteedrunTime is not exceeded",
                            compId, taskId);
            return;
        }
        ZEL_TM_LOGI_FOR(kOperation,
                        "Task (%s, %s) will be stopped because of resource critical status and "
                        "guaranteed runtime completion",
                        compId, taskId);
    }
    const ZelTraceSlice preemption("preemption", "component", key.first, "task", key.second);
    const int32_t result = taskCompletedInternal(key.first, key.second, false);
    ZEL_TM_LOGI_FOR(kOperation, "Task (%s, %s) complete request status %d", compId, taskId, result);
    if (result == kResultSuccess) approvePendingTasks();
}
