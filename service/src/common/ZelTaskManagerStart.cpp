// The task manager's start decisions: start requests, the dependency check
// and the deferred approval of pending starts.

#include <algorithm>
#include <utility>

#include "ZelDependencyCycleGuard.h"
#include "ZelTaskManager.h"
#include "ZelTaskManagerShared.h"

using namespace zel::taskmanager;

int32_t ZelTaskManager::taskStartRequested(const std::string& compId, const std::string& taskId,
                                           bool notify, int32_t duration,
                                           std::shared_ptr<ZelIpcContext> taskContext,
                                           ZelTaskCallback callback, int32_t requestType) {
    ZelReaperSync::waitForPurgeEnd();
    if (!isKnownTask(compId, taskId, __func__)) return kResultInvalidTask;
    const TaskKey key(compId, taskId);
    std::shared_ptr<ZelTask> task = mTaskList->find(key);
    const int32_t grantedDuration =
            std::min(duration, mPolicyEngine->getMinimumGuaranteedRuntime(compId, taskId));
    if (task == nullptr) {
        task = ZelTask::create(compId, taskId, notify ? 1 : 0, grantedDuration,
                               requestType == kClientRequestType, taskContext, callback);
        if (task == nullptr) {
            // A deferred answer needs both a context and a function.
            ZEL_TM_LOGE("Task (%s, %s) request has an incomplete answer channel", compId.c_str(),
                        taskId.c_str());
            return kResultSuccess;
        }
        mTaskList->insert(key, task);
    }
    const bool autoStart = mPolicyEngine->isAutoStart(compId, taskId);
    const bool processStart = task->isProcessStartTask();
    if (processStart) {
        ZEL_TM_LOGI("taskstarted request for Task:(%s, %s) is a process start req", compId.c_str(),
                    taskId.c_str());
    }
    if (task->getState() == TASK_STATE_RUNNING) {
        ZEL_TM_LOGI("Task already started (%s, %s)", compId.c_str(), taskId.c_str());
        countMetric("DuplicateStartRequestCount");
        if (autoStart) {
            task->resetRunTime(grantedDuration, requestType == kClientRequestType);
            return kResultSuccess;
        }
        // The running-table entry stays until the task completes.
        task->renewRequest(notify ? 1 : 0, taskContext, callback);
        task->setState(TASK_STATE_START_PENDING);
        mPendingTaskList->insert(key, task);
    }

    const int32_t allowed = checkTaskStartDependencies(task, requestType);
    if (allowed == 0 && !notify) {
        mPendingTaskList->erase(key);
        mTaskList->erase(key);
    } else if (allowed == 0) {
        task->setState(TASK_STATE_START_PENDING);
        mPendingTaskList->insert(key, task);
    } else {
        mPendingTaskList->erase(key);
        task->setState(TASK_STATE_START_ALLOWED);
        if (autoStart || processStart) {
            ZEL_TM_LOGI("Task:(%s,%s) being started with taskstarted request", compId.c_str(),
                        taskId.c_str());
            // The daemon marks the task started itself; the result is not used.
            (void)taskStarted(compId, taskId, task->getToken(), grantedDuration, nullptr,
                              requestType, processStart);
        }
    }
    return kResultSuccess;
}

int32_t ZelTaskManager::checkTaskStartDependencies(const std::shared_ptr<ZelTask>& task,
                                                   int32_t requestType) {
    const std::string compId = task->getCompId();
    const std::string taskId = task->getTaskId();
    const ZelDependencyCycleGuard deciding(TaskKey(compId, taskId));
    const ZelTraceSlice check("dependency check", "component", compId, "task", taskId);
    ZEL_TM_LOGI("Task:(%s,%s) check dependencies", compId.c_str(), taskId.c_str());

    // Every entry is visited and requested, even after one has refused.
    int32_t allow = 1;
    for (const TaskKey& reqKey : mPolicyEngine->getAllowList(compId, taskId)) {
        if (!requireTask(compId, taskId, *task, reqKey, requestType)) allow = 0;
    }
    ZEL_TM_LOGD("Task:(%s,%s) allow status:%d after requiredTask dependencies check",
                compId.c_str(), taskId.c_str(), allow);
    if (allow == 0) return 0;

    // The block-task pass reads the allow list again and denies nothing: the
    // policy's deny lists take no part in start decisions.
    for (const TaskKey& key : mPolicyEngine->getAllowList(compId, taskId)) {
        if (std::shared_ptr<ZelTask> other = mTaskList->find(key)) (void)other->getState();
    }
    ZEL_TM_LOGD("Task:(%s,%s) allow status:%d after blockTask dependencies check", compId.c_str(),
                taskId.c_str(), 1);
    return checkResourceRequirement(compId, taskId);
}

bool ZelTaskManager::requireTask(const std::string& compId, const std::string& taskId,
                                 const ZelTask& task, const TaskKey& reqKey, int32_t requestType) {
    constexpr const char* kOperation = "checkTaskStartDependencies";
    const std::string& reqComp = reqKey.first;
    const std::string& reqTask = reqKey.second;
    if (ZelDependencyCycleGuard::isBeingDecided(reqKey)) {
        ZEL_TM_LOGE_FOR(kOperation,
                        "Task:(%s,%s) dependency cycle through Task:(%s,%s), not requested",
                        compId.c_str(), taskId.c_str(), reqComp.c_str(), reqTask.c_str());
        return false;
    }
    const int32_t reqDuration =
            reqTask == kProcessStartTaskId
                    ? task.getDuration()
                    : mPolicyEngine->getMinimumGuaranteedRuntime(reqComp, reqTask);
    // Each nested request takes stack on this binder thread: a chain deeper
    // than the thread can hold is refused instead of ending the daemon.
    const auto request = [&](int32_t nestedType) {
        if (ZelDependencyCycleGuard::depth() >= kDeepestDependencyNesting) {
            ZEL_TM_LOGE_FOR(kOperation,
                            "Task:(%s,%s) dependency chain deeper than %zu levels at Task:(%s,%s), "
                            "not requested",
                            compId.c_str(), taskId.c_str(), kDeepestDependencyNesting,
                            reqComp.c_str(), reqTask.c_str());
            return kResultInvalidState;
        }
        return taskStartRequested(reqComp, reqTask, false, reqDuration, nullptr, nullptr,
                                  nestedType);
    };
    int32_t requested = kResultSuccess;
    if (std::shared_ptr<ZelTask> required = mTaskList->find(reqKey)) {
        ZEL_TM_LOGI_FOR(kOperation, "Required Task exists: (%s,%s)", reqComp.c_str(),
                        reqTask.c_str());
        const int32_t reqState = required->getState();
        if (reqState == TASK_STATE_RUNNING) {
            ZEL_TM_LOGI_FOR(kOperation, "Required Task:(%s,%s) already started", reqComp.c_str(),
                            reqTask.c_str());
            return true;
        }
        if (reqState != TASK_STATE_CREATED && reqState != TASK_STATE_COMPLETED) {
            // Allowed but not yet reported started still blocks the dependent task.
            ZEL_TM_LOGW_FOR(kOperation, "Required Task:(%s, %s) is in unknown state:%d",
                            reqComp.c_str(), reqTask.c_str(), reqState);
            return false;
        }
        ZEL_TM_LOGI_FOR(kOperation, "Required Task:(%s,%s) not started and needs to start",
                        reqComp.c_str(), reqTask.c_str());
        requested = request(requestType);
    } else {
        ZEL_TM_LOGW_FOR(kOperation,
                        "%s-Required ZelTask does not exist: %s, "
                        "let's check for it with startRequest",
                        "checkTaskStartDependencies", reqComp.c_str());
        requested = request(kClientRequestType);
    }
    const std::shared_ptr<ZelTask> required = mTaskList->find(reqKey);
    return requested == kResultSuccess && required != nullptr &&
           isStartedState(required->getState());
}

int32_t ZelTaskManager::checkResourceRequirement(const std::string& compId,
                                                 const std::string& taskId) {
    constexpr const char* kOperation = "checkTaskStartDependencies";
    const std::string priorityType = mPolicyEngine->getPriorityType(compId, taskId);
    if (priorityType == kCriticalPriorityType) {
        ZEL_TM_LOGD_FOR(kOperation,
                        "Task:(%s,%s) skipping resource requirement check priorityType = %s",
                        compId.c_str(), taskId.c_str(), priorityType.c_str());
        return 1;
    }
    ZEL_TM_LOGD_FOR(kOperation, "Task:(%s,%s) resource requirement check", compId.c_str(),
                    taskId.c_str());
    const uint64_t requirement = mPolicyEngine->getMemoryRequirement(compId, taskId);
    const ZelTraceSlice check("memory check", "component", compId, "task", taskId, "needed",
                              requirement);
    const int32_t status =
            mResourceStatus->isThresholdExceeded(ZelResourceStatus::kMemoryResource, requirement)
                    ? 0
                    : 1;
    ZEL_TM_LOGI_FOR(kOperation, "Task:(%s,%s) resource requirement check status:%d", compId.c_str(),
                    taskId.c_str(), status);
    return status;
}

void ZelTaskManager::approvePendingTasks() {
    for (const auto& [key, task] : mPendingTaskList->snapshot()) {
        if (task == nullptr || task->getState() != TASK_STATE_START_PENDING) continue;
        if (checkTaskStartDependencies(task, kClientRequestType) == 0) continue;
        // Whoever takes the key out of the pending table answers, so once only.
        if (!mPendingTaskList->erase(key)) continue;
        const ZelTraceSlice approval("deferred approval", "component", key.first, "task",
                                     key.second);
        task->setState(TASK_STATE_START_ALLOWED);
        std::shared_ptr<ZelIpcContext> taskContext;
        ZelTaskCallback callback = nullptr;
        uint32_t token = 0;
        task->getAnswerChannel(taskContext, callback, token);
        if (callback != nullptr) (void)callback(std::move(taskContext), token);
    }
}
