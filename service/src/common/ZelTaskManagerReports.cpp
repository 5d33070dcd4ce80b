// The task manager's handling of a task's run: the report that it started,
// its completion (by its client, a preemption or the reaper) and the cleanup
// of completed tasks, which stops their component's process where asked.

#include "ZelSystemProperty.h"
#include "ZelTaskManager.h"
#include "ZelTaskManagerShared.h"

using namespace zel::taskmanager;

namespace {

// Parameter pairs of published task events.
constexpr int32_t kStartEventFirst = 1;
constexpr int32_t kStartEventSecond = 5000;
constexpr int32_t kStopEventFirst = 1;
constexpr int32_t kStopEventSecond = 0;

}  // namespace

int32_t ZelTaskManager::taskStarted(const std::string& compId, const std::string& taskId,
                                    uint32_t token, int32_t duration,
                                    std::shared_ptr<ZelIpcContext> taskContext,
                                    int32_t requestType, bool startProcess) {
    ZelReaperSync::waitForPurgeEnd();
    ZEL_TM_LOGI("Task:(%s,%s) received taskstarted request", compId.c_str(), taskId.c_str());
    if (!isKnownTask(compId, taskId, __func__)) return kResultInvalidTask;
    const TaskKey key(compId, taskId);
    std::shared_ptr<ZelTask> task = mTaskList->find(key);
    const int32_t admitted =
            task != nullptr ? checkStartedReport(compId, taskId, *task, token)
                            : admitUnrequestedStart(compId, taskId, duration,
                                                    std::move(taskContext), requestType, task);
    if (admitted != kResultSuccess) return admitted;

    if (startProcess) startComponentProcess(compId, taskId);
    task->setState(TASK_STATE_RUNNING);
    mRunningTaskList->insert(key, task);
    mPendingTaskList->erase(key);
    if (!publishEvents(mPolicyEngine->getStartEvents(compId, taskId), kStartEventFirst,
                       kStartEventSecond)) {
        // The record stays running in mTaskList; only the running entry goes.
        mRunningTaskList->erase(key);
        ZEL_TM_LOGE("Unable to publish events");
        countMetric("PublishEventFailedCount");
        return kResultPublishFailed;
    }
    return kResultSuccess;
}

int32_t ZelTaskManager::checkStartedReport(const std::string& compId, const std::string& taskId,
                                           const ZelTask& task, uint32_t token) {
    constexpr const char* kOperation = "taskStarted";
    const int32_t state = task.getState();
    ZEL_TM_LOGI_FOR(kOperation, "Task (%s, %s) exists in state=%d", compId.c_str(), taskId.c_str(),
                    state);
    if (state == TASK_STATE_START_PENDING || state == TASK_STATE_RUNNING) {
        ZEL_TM_LOGE_FOR(kOperation, "Invalid status, task (%s, %s) status=%d", compId.c_str(),
                        taskId.c_str(), state);
        countMetric("InvalidTaskStatusCount");
        return kResultInvalidState;
    }
    if (state == TASK_STATE_COMPLETED) {
        ZEL_TM_LOGE_FOR(kOperation, "Task (%s, %s) already completed, cannot restart",
                        compId.c_str(), taskId.c_str());
        countMetric("InvalidTaskStatusCount");
        return kResultInvalidState;
    }
    // CREATED is accepted as well: quoting the token is what counts.
    const uint32_t recordToken = task.getToken();
    if (recordToken != token) {
        ZEL_TM_LOGE_FOR(kOperation, "Mismatched token (%x != %x) task (%s, %s)", recordToken, token,
                        compId.c_str(), taskId.c_str());
        countMetric("InvalidTaskTokenCount");
        return kResultTokenMismatch;
    }
    return kResultSuccess;
}

int32_t ZelTaskManager::admitUnrequestedStart(const std::string& compId, const std::string& taskId,
                                              int32_t duration,
                                              std::shared_ptr<ZelIpcContext> taskContext,
                                              int32_t requestType, std::shared_ptr<ZelTask>& task) {
    constexpr const char* kOperation = "taskStarted";
    if (mPolicyEngine->getPriorityType(compId, taskId) != kCriticalPriorityType) {
        ZEL_TM_LOGE_FOR(kOperation, "Non-critical task (%s, %s) started without start request",
                        compId.c_str(), taskId.c_str());
        countMetric("NonCritTaskStartedCount");
        return kResultInvalidState;
    }
    // A critical task may start without asking; it gets its own token.
    task = ZelTask::create(compId, taskId, 0, duration, requestType == kClientRequestType,
                           std::move(taskContext), nullptr);
    if (task == nullptr) {
        ZEL_TM_LOGE_FOR(kOperation, "Task (%s, %s) report has an incomplete answer channel",
                        compId.c_str(), taskId.c_str());
        return kResultInvalidState;
    }
    task->setState(TASK_STATE_START_ALLOWED);
    mTaskList->insert(TaskKey(compId, taskId), task);
    ZEL_TM_LOGI_FOR(kOperation, "Task (%s, %s) created", compId.c_str(), taskId.c_str());
    countMetric("TaskCreatedCount");
    return kResultSuccess;
}

void ZelTaskManager::startComponentProcess(const std::string& compId, const std::string& taskId) {
    constexpr const char* kOperation = "taskStarted";
    const PropertySetting start = mPolicyEngine->getStartProperty(compId, taskId);
    if (!ZelSystemProperty::setProperty(start.name, start.value)) {
        ZEL_TM_LOGE_FOR(kOperation, "Task:(%s, %s) setProperty failed", compId.c_str(),
                        taskId.c_str());
    }
    // A process being started is no longer to be stopped.
    removeFromStoppedTasks(TaskKey(compId, taskId));
    bool started = false;
    if (ZelSystemProperty::getProperty(start.name, started)) {
        ZEL_TM_LOGI_FOR(kOperation, "Task:(%s, %s) start status=%d", compId.c_str(), taskId.c_str(),
                        started ? 1 : 0);
    } else {
        ZEL_TM_LOGE_FOR(kOperation, "Task:(%s, %s) getProperty failed", compId.c_str(),
                        taskId.c_str());
    }
}

int32_t ZelTaskManager::taskCompleted(const std::string& compId, const std::string& taskId) {
    const int32_t result = taskCompletedInternal(compId, taskId, false);
    if (result == kResultSuccess) approvePendingTasks();
    return result;
}

int32_t ZelTaskManager::taskCompletedInternal(const std::string& compId,
                                              const std::string& taskId, bool fromReaper) {
    // The reaper completes tasks while it holds the purge flag itself.
    if (!fromReaper) ZelReaperSync::waitForPurgeEnd();
    if (!isKnownTask(compId, taskId, __func__)) return kResultInvalidTask;
    const TaskKey key(compId, taskId);
    std::shared_ptr<ZelTask> task = mTaskList->find(key);
    if (task == nullptr) {
        ZEL_TM_LOGW("Task (%s, %s) does not exist", compId.c_str(), taskId.c_str());
        countMetric("InvalidTaskCount");
        return kResultInvalidState;
    }
    const int32_t state = task->getState();
    ZEL_TM_LOGD("Found task (%s, %s), status=%d", compId.c_str(), taskId.c_str(), state);
    if (state > TASK_STATE_START_PENDING) {
        ZEL_TM_LOGI("Task (%s, %s) has completed", compId.c_str(), taskId.c_str());
        if (!publishEvents(mPolicyEngine->getStopEvents(compId, taskId), kStopEventFirst,
                           kStopEventSecond)) {
            ZEL_TM_LOGE("Unable to publish events");
            countMetric("PublishEventFailedCount");
            return kResultPublishFailed;
        }
    } else {
        ZEL_TM_LOGW("Task (%s, %s) status (%d) is not valid", compId.c_str(), taskId.c_str(),
                    state);
    }
    ZEL_TM_LOGI("Task (%s, %s) dependent events has been sent", compId.c_str(), taskId.c_str());
    task->setState(TASK_STATE_COMPLETED);
    mPendingTaskList->erase(key);
    mRunningTaskList->erase(key);
    {
        std::lock_guard<std::mutex> guard(mStoppedTaskLock);
        mStoppedTaskList.push_back(key);
        traceStoppedTasks(mStoppedTaskList.size() - 1, mStoppedTaskList.size());
    }
    ZEL_TM_LOGD("done for Task (%s, %s)", compId.c_str(), taskId.c_str());
    return kResultSuccess;
}

void ZelTaskManager::clearStoppedTasks() {
    std::lock_guard<std::mutex> guard(mStoppedTaskLock);
    if (mStoppedTaskList.empty()) {
        ZEL_TM_LOGD("mStoppedTaskList is empty, no task in list");
        return;
    }
    const std::size_t before = mStoppedTaskList.size();
    for (auto it = mStoppedTaskList.begin(); it != mStoppedTaskList.end();) {
        const TaskKey key = *it;
        const char* compId = key.first.c_str();
        const char* taskId = key.second.c_str();
        std::shared_ptr<ZelTask> task = mTaskList->find(key);
        if (task == nullptr) {
            ZEL_TM_LOGW("Task:(%s, %s) object not found", compId, taskId);
            it = mStoppedTaskList.erase(it);
            continue;
        }
        if (!task->isProcessStartTask()) {
            // Erased whatever the record's state: a task restarted meanwhile goes too.
            ZEL_TM_LOGI("Task:(%s, %s) not for process start, cleanup", compId, taskId);
            mTaskList->erase(key);
            it = mStoppedTaskList.erase(it);
            continue;
        }
        const PropertySetting stopProperty = mPolicyEngine->getStopProperty(key.first, key.second);
        ZEL_TM_LOGD("Task:(%s, %s) stopping by setting %s as %s", compId, taskId,
                    stopProperty.name.c_str(), stopProperty.value.c_str());
        (void)ZelSystemProperty::setProperty(stopProperty.name, stopProperty.value);
        bool stillSet = false;
        if (ZelSystemProperty::getProperty(stopProperty.name, stillSet)) {
            // Reading back true counts as not stopped; tried again at the next purge.
            ZEL_TM_LOGW("Failed to stop task:(%s, %s)", compId, taskId);
            ++it;
            continue;
        }
        ZEL_TM_LOGD("Task:(%s, %s) obj ref count=%ld", compId, taskId,
                    static_cast<long>(task.use_count()));
        mTaskList->erase(key);
        ZEL_TM_LOGD("Task:(%s, %s) obj ref count=%ld after remove", compId, taskId,
                    static_cast<long>(task.use_count()));
        it = mStoppedTaskList.erase(it);
        ZEL_TM_LOGI("Task:(%s, %s) stop success", compId, taskId);
    }
    traceStoppedTasks(before, mStoppedTaskList.size());
}
