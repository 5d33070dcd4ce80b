#include "ZelTaskManager.h"

#include <algorithm>
#include <chrono>
#include <utility>
#include <vector>

#include "ZelDependencyCycleGuard.h"
#include "ZelLog.h"
#include "ZelMetrics.h"
#include "ZelSystemProperty.h"
#include "ZelTime.h"

// Every task-manager log line comes from this file so that the lines carry
// "ZelTaskManager::<operation>" whichever operation writes them.

namespace {

const ZelMetricsFactory gMetricsFactory = makeZelMetricsFactory(kZelMetricsModuleTaskManager);

constexpr const char* kProcessStartTaskId = "START_PROCESS";
constexpr const char* kCriticalPriorityType = "ZEL_TASK_CRITICAL";

// The resource monitor's memory report.
constexpr uint8_t kMemoryReportGroup = 1;
constexpr int32_t kMemoryReportEvent = 1;
constexpr uint8_t kMemoryResourceType = 1;
constexpr uint32_t kResourceStatusCritical = 4;

// Parameter pairs of published task events.
constexpr int32_t kStartEventFirst = 1;
constexpr int32_t kStartEventSecond = 5000;
constexpr int32_t kStopEventFirst = 1;
constexpr int32_t kStopEventSecond = 0;

// Run times above this many milliseconds are never enforced by the reaper.
constexpr int32_t kLongestEnforcedRunTime = 5000;
constexpr int32_t kUnlimitedRunTime = -1;
constexpr auto kReaperPeriod = std::chrono::microseconds(5000000);

void countMetric(const char* name) {
    gMetricsFactory().addCount(name, 1);
}

bool isStarted(int32_t state) {
    return state == TASK_STATE_START_ALLOWED || state == TASK_STATE_RUNNING;
}

}  // namespace

std::shared_ptr<ZelTaskManager> ZelTaskManager::create(
        const std::string& policyFilePath,
        std::shared_ptr<ZelEventDispatcherInterface> eventDispatcher) {
    std::shared_ptr<ZelPolicyEngine> engine = ZelPolicyEngine::create(policyFilePath);
    if (engine == nullptr) {
        countMetric("PolicyEngineInitFailedCount");
        ZEL_LOGE("Failed to create ZelPolicyEngine");
        return nullptr;
    }
    auto manager = std::make_shared<ZelTaskManager>(std::move(eventDispatcher), std::move(engine));
    // Assigning over a running reaper terminates the process: one manager per process.
    ZelReaperSync::adoptThread(std::thread(&ZelTaskManager::reaperFunc, manager.get()));
    ZelReaperSync::notify();
    return manager;
}

ZelTaskManager::ZelTaskManager(std::shared_ptr<ZelEventDispatcherInterface> eventDispatcher,
                               std::shared_ptr<ZelPolicyEngine> policyEngine)
    : mEventDispatcher(std::move(eventDispatcher)),
      mPolicyEngine(std::move(policyEngine)),
      mTaskList(std::make_shared<LockedTaskMap>()),
      mRunningTaskList(std::make_shared<LockedTaskMap>()),
      mPendingTaskList(std::make_shared<LockedTaskMap>()) {
    ZelReaperSync::setCommand(REAPER_STATE_WAIT);
    mResourceStatus = std::make_shared<ZelResourceStatus>();
    if (mResourceStatus != nullptr && mEventDispatcher != nullptr) {
        const bool subscribed = mEventDispatcher->subscribeEvent(
                kMemoryReportGroup, kMemoryReportEvent, [this](const void* data) {
                    onResourceStatusEvent(static_cast<const ResourceStatusRecord*>(data));
                });
        if (!subscribed) ZEL_LOGE("Failed to subscribe memory report event");
    }
}

void ZelTaskManager::stop() {
    ZelReaperSync::command(REAPER_STATE_EXIT);
    ZelReaperSync::joinThread();
}

std::shared_ptr<ZelTask> ZelTaskManager::getTask(const std::string& compId,
                                                 const std::string& taskId) {
    return mTaskList->find(TaskKey(compId, taskId));
}

int32_t ZelTaskManager::taskStartRequested(const std::string& compId, const std::string& taskId,
                                           bool notify, int32_t duration,
                                           std::shared_ptr<ZelIpcContext> taskContext,
                                           ZelTaskCallback callback, int32_t requestType) {
    ZelReaperSync::waitForPurgeEnd();
    if (!mPolicyEngine->isValidTask(compId, taskId)) {
        ZEL_LOGE("Invalid task (%s, %s)", compId.c_str(), taskId.c_str());
        countMetric("InvalidTaskCount");
        return kResultInvalidTask;
    }
    const TaskKey key(compId, taskId);
    std::shared_ptr<ZelTask> task = mTaskList->find(key);
    const int32_t grantedDuration =
            std::min(duration, mPolicyEngine->getMinimumGuaranteedRuntime(compId, taskId));
    if (task == nullptr) {
        task = ZelTask::create(compId, taskId, notify ? 1 : 0, grantedDuration,
                               requestType == kClientRequestType, taskContext, callback);
        if (task == nullptr) {
            // A deferred answer needs both a context and a function.
            ZEL_LOGE("Task (%s, %s) request has an incomplete answer channel", compId.c_str(),
                     taskId.c_str());
            return kResultSuccess;
        }
        mTaskList->insert(key, task);
    }
    const bool autoStart = mPolicyEngine->isAutoStart(compId, taskId);
    const bool processStart = task->isProcessStartTask();
    if (processStart) {
        ZEL_LOGI("taskstarted request for Task:(%s, %s) is a process start req", compId.c_str(),
                 taskId.c_str());
    }
    if (task->getState() == TASK_STATE_RUNNING) {
        ZEL_LOGI("Task already started (%s, %s)", compId.c_str(), taskId.c_str());
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
            ZEL_LOGI("Task:(%s,%s) being started with taskstarted request", compId.c_str(),
                     taskId.c_str());
            taskStarted(compId, taskId, task->getToken(), grantedDuration, nullptr, requestType,
                        processStart);
        }
    }
    return kResultSuccess;
}

int32_t ZelTaskManager::checkTaskStartDependencies(const std::shared_ptr<ZelTask>& task,
                                                   int32_t requestType) {
    const std::string compId = task->getCompId();
    const std::string taskId = task->getTaskId();
    const ZelDependencyCycleGuard deciding(TaskKey(compId, taskId));
    ZEL_LOGI("Task:(%s,%s) check dependencies", compId.c_str(), taskId.c_str());

    const TaskKeyList allowList = mPolicyEngine->getAllowList(compId, taskId);
    int32_t allow = 1;
    for (const TaskKey& reqKey : allowList) {
        const std::string& reqComp = reqKey.first;
        const std::string& reqTask = reqKey.second;
        if (ZelDependencyCycleGuard::isBeingDecided(reqKey)) {
            ZEL_LOGE("Task:(%s,%s) dependency cycle through Task:(%s,%s), not requested",
                     compId.c_str(), taskId.c_str(), reqComp.c_str(), reqTask.c_str());
            allow = 0;
            continue;
        }
        const int32_t reqDuration = reqTask == kProcessStartTaskId
                                            ? task->getDuration()
                                            : mPolicyEngine->getMinimumGuaranteedRuntime(reqComp,
                                                                                         reqTask);
        int32_t requested = kResultSuccess;
        if (std::shared_ptr<ZelTask> required = mTaskList->find(reqKey)) {
            ZEL_LOGI("Required Task exists: (%s,%s)", reqComp.c_str(), reqTask.c_str());
            const int32_t reqState = required->getState();
            if (reqState == TASK_STATE_RUNNING) {
                ZEL_LOGI("Required Task:(%s,%s) already started", reqComp.c_str(),
                         reqTask.c_str());
                continue;
            }
            if (reqState != TASK_STATE_CREATED && reqState != TASK_STATE_COMPLETED) {
                // Allowed but not yet reported started still blocks the dependent task.
                ZEL_LOGW("Required Task:(%s, %s) is in unknown state:%d", reqComp.c_str(),
                         reqTask.c_str(), reqState);
                allow = 0;
                continue;
            }
            ZEL_LOGI("Required Task:(%s,%s) not started and needs to start", reqComp.c_str(),
                     reqTask.c_str());
            requested = taskStartRequested(reqComp, reqTask, false, reqDuration, nullptr,
                                           nullptr, requestType);
        } else {
            ZEL_LOGW("%s-Required ZelTask does not exist: %s, let's check for it with startRequest",
                     "checkTaskStartDependencies", reqComp.c_str());
            requested = taskStartRequested(reqComp, reqTask, false, reqDuration, nullptr,
                                           nullptr, kClientRequestType);
        }
        std::shared_ptr<ZelTask> required = mTaskList->find(reqKey);
        if (requested != kResultSuccess || required == nullptr ||
            !isStarted(required->getState())) {
            allow = 0;
        }
    }
    ZEL_LOGD("Task:(%s,%s) allow status:%d after requiredTask dependencies check",
             compId.c_str(), taskId.c_str(), allow);
    if (allow == 0) return 0;

    // The block-task pass reads the allow list again and denies nothing: the
    // policy's deny lists take no part in start decisions.
    for (const TaskKey& key : mPolicyEngine->getAllowList(compId, taskId)) {
        if (std::shared_ptr<ZelTask> other = mTaskList->find(key)) (void)other->getState();
    }
    ZEL_LOGD("Task:(%s,%s) allow status:%d after blockTask dependencies check", compId.c_str(),
             taskId.c_str(), 1);

    const std::string priorityType = mPolicyEngine->getPriorityType(compId, taskId);
    if (priorityType == kCriticalPriorityType) {
        ZEL_LOGD("Task:(%s,%s) skipping resource requirement check priorityType = %s",
                 compId.c_str(), taskId.c_str(), priorityType.c_str());
        return 1;
    }
    ZEL_LOGD("Task:(%s,%s) resource requirement check", compId.c_str(), taskId.c_str());
    const uint64_t requirement = mPolicyEngine->getMemoryRequirement(compId, taskId);
    const int32_t status =
            mResourceStatus->isThresholdExceeded(ZelResourceStatus::kMemoryResource, requirement)
                    ? 0
                    : 1;
    ZEL_LOGI("Task:(%s,%s) resource requirement check status:%d", compId.c_str(), taskId.c_str(),
             status);
    return status;
}

int32_t ZelTaskManager::taskStarted(const std::string& compId, const std::string& taskId,
                                    uint32_t token, int32_t duration,
                                    std::shared_ptr<ZelIpcContext> taskContext,
                                    int32_t requestType, bool startProcess) {
    ZelReaperSync::waitForPurgeEnd();
    ZEL_LOGI("Task:(%s,%s) received taskstarted request", compId.c_str(), taskId.c_str());
    if (!mPolicyEngine->isValidTask(compId, taskId)) {
        ZEL_LOGE("Invalid task (%s, %s)", compId.c_str(), taskId.c_str());
        countMetric("InvalidTaskCount");
        return kResultInvalidTask;
    }
    const TaskKey key(compId, taskId);
    std::shared_ptr<ZelTask> task = mTaskList->find(key);
    if (task != nullptr) {
        const int32_t state = task->getState();
        ZEL_LOGI("Task (%s, %s) exists in state=%d", compId.c_str(), taskId.c_str(), state);
        if (state == TASK_STATE_START_PENDING || state == TASK_STATE_RUNNING) {
            ZEL_LOGE("Invalid status, task (%s, %s) status=%d", compId.c_str(), taskId.c_str(),
                     state);
            countMetric("InvalidTaskStatusCount");
            return kResultInvalidState;
        }
        if (state == TASK_STATE_COMPLETED) {
            ZEL_LOGE("Task (%s, %s) already completed, cannot restart", compId.c_str(),
                     taskId.c_str());
            countMetric("InvalidTaskStatusCount");
            return kResultInvalidState;
        }
        // CREATED is accepted as well: quoting the token is what counts.
        const uint32_t recordToken = task->getToken();
        if (recordToken != token) {
            ZEL_LOGE("Mismatched token (%x != %x) task (%s, %s)", recordToken, token,
                     compId.c_str(), taskId.c_str());
            countMetric("InvalidTaskTokenCount");
            return kResultTokenMismatch;
        }
    } else if (mPolicyEngine->getPriorityType(compId, taskId) == kCriticalPriorityType) {
        // A critical task may start without asking; it gets its own token.
        task = ZelTask::create(compId, taskId, 0, duration, requestType == kClientRequestType,
                               taskContext, nullptr);
        if (task == nullptr) {
            ZEL_LOGE("Task (%s, %s) report has an incomplete answer channel", compId.c_str(),
                     taskId.c_str());
            return kResultInvalidState;
        }
        task->setState(TASK_STATE_START_ALLOWED);
        mTaskList->insert(key, task);
        ZEL_LOGI("Task (%s, %s) created", compId.c_str(), taskId.c_str());
        countMetric("TaskCreatedCount");
    } else {
        ZEL_LOGE("Non-critical task (%s, %s) started without start request", compId.c_str(),
                 taskId.c_str());
        countMetric("NonCritTaskStartedCount");
        return kResultInvalidState;
    }

    if (startProcess) {
        const PropertySetting start = mPolicyEngine->getStartProperty(compId, taskId);
        if (!ZelSystemProperty::setProperty(start.name, start.value)) {
            ZEL_LOGE("Task:(%s, %s) setProperty failed", compId.c_str(), taskId.c_str());
        }
        // A process being started is no longer to be stopped.
        removeFromStoppedTasks(key);
        bool started = false;
        if (ZelSystemProperty::getProperty(start.name, started)) {
            ZEL_LOGI("Task:(%s, %s) start status=%d", compId.c_str(), taskId.c_str(),
                     started ? 1 : 0);
        } else {
            ZEL_LOGE("Task:(%s, %s) getProperty failed", compId.c_str(), taskId.c_str());
        }
    }

    task->setState(TASK_STATE_RUNNING);
    mRunningTaskList->insert(key, task);
    mPendingTaskList->erase(key);
    if (!publishEvents(mPolicyEngine->getStartEvents(compId, taskId), kStartEventFirst,
                       kStartEventSecond)) {
        // The record stays running in mTaskList; only the running entry goes.
        mRunningTaskList->erase(key);
        ZEL_LOGE("Unable to publish events");
        countMetric("PublishEventFailedCount");
        return kResultPublishFailed;
    }
    return kResultSuccess;
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
    if (!mPolicyEngine->isValidTask(compId, taskId)) {
        ZEL_LOGE("Invalid task (%s, %s)", compId.c_str(), taskId.c_str());
        countMetric("InvalidTaskCount");
        return kResultInvalidTask;
    }
    const TaskKey key(compId, taskId);
    std::shared_ptr<ZelTask> task = mTaskList->find(key);
    if (task == nullptr) {
        ZEL_LOGW("Task (%s, %s) does not exist", compId.c_str(), taskId.c_str());
        countMetric("InvalidTaskCount");
        return kResultInvalidState;
    }
    const int32_t state = task->getState();
    ZEL_LOGD("Found task (%s, %s), status=%d", compId.c_str(), taskId.c_str(), state);
    if (state > TASK_STATE_START_PENDING) {
        ZEL_LOGI("Task (%s, %s) has completed", compId.c_str(), taskId.c_str());
        if (!publishEvents(mPolicyEngine->getStopEvents(compId, taskId), kStopEventFirst,
                           kStopEventSecond)) {
            ZEL_LOGE("Unable to publish events");
            countMetric("PublishEventFailedCount");
            return kResultPublishFailed;
        }
    } else {
        ZEL_LOGW("Task (%s, %s) status (%d) is not valid", compId.c_str(), taskId.c_str(), state);
    }
    ZEL_LOGI("Task (%s, %s) dependent events has been sent", compId.c_str(), taskId.c_str());
    task->setState(TASK_STATE_COMPLETED);
    mPendingTaskList->erase(key);
    mRunningTaskList->erase(key);
    {
        std::lock_guard<std::mutex> guard(mStoppedTaskLock);
        mStoppedTaskList.push_back(key);
    }
    ZEL_LOGD("done for Task (%s, %s)", compId.c_str(), taskId.c_str());
    return kResultSuccess;
}

void ZelTaskManager::clearStoppedTasks() {
    std::lock_guard<std::mutex> guard(mStoppedTaskLock);
    if (mStoppedTaskList.empty()) {
        ZEL_LOGD("mStoppedTaskList is empty, no task in list");
        return;
    }
    for (auto it = mStoppedTaskList.begin(); it != mStoppedTaskList.end();) {
        const TaskKey key = *it;
        const char* compId = key.first.c_str();
        const char* taskId = key.second.c_str();
        std::shared_ptr<ZelTask> task = mTaskList->find(key);
        if (task == nullptr) {
            ZEL_LOGW("Task:(%s, %s) object not found", compId, taskId);
            it = mStoppedTaskList.erase(it);
            continue;
        }
        if (!task->isProcessStartTask()) {
            // Erased whatever the record's state: a task restarted meanwhile goes too.
            ZEL_LOGI("Task:(%s, %s) not for process start, cleanup", compId, taskId);
            mTaskList->erase(key);
            it = mStoppedTaskList.erase(it);
            continue;
        }
        const PropertySetting stopProperty = mPolicyEngine->getStopProperty(key.first, key.second);
        ZEL_LOGD("Task:(%s, %s) stopping by setting %s as %s", compId, taskId,
                 stopProperty.name.c_str(), stopProperty.value.c_str());
        ZelSystemProperty::setProperty(stopProperty.name, stopProperty.value);
        bool stillSet = false;
        if (ZelSystemProperty::getProperty(stopProperty.name, stillSet)) {
            // Reading back true counts as not stopped; tried again at the next purge.
            ZEL_LOGW("Failed to stop task:(%s, %s)", compId, taskId);
            ++it;
            continue;
        }
        ZEL_LOGD("Task:(%s, %s) obj ref count=%ld", compId, taskId,
                 static_cast<long>(task.use_count()));
        mTaskList->erase(key);
        ZEL_LOGD("Task:(%s, %s) obj ref count=%ld after remove", compId, taskId,
                 static_cast<long>(task.use_count()));
        it = mStoppedTaskList.erase(it);
        ZEL_LOGI("Task:(%s, %s) stop success", compId, taskId);
    }
}

void ZelTaskManager::onResourceStatusEvent(const ResourceStatusRecord* record) {
    ZEL_LOGD("ResourceStatusEvent Received");
    if (record == nullptr || record->resourceType != kMemoryResourceType) return;
    const int64_t now = ZelTime::monotonicNanos() / 1000000000LL;
    ZEL_LOGI("Received Resource type %d, status %d, value %llu, critical threshold %llu, "
             "timestamp %lld",
             record->resourceType, record->status, static_cast<unsigned long long>(record->value),
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
        const char* compId = key.first.c_str();
        const char* taskId = key.second.c_str();
        ZEL_LOGI("Tasks will be checked to stop on resource status CRITICAL");
        if (task == nullptr) {
            ZEL_LOGW("Task (%s, %s) ZelTask obj does not exist", compId, taskId);
            continue;
        }
        const int32_t state = task->getState();
        ZEL_LOGI("Task (%s, %s) state:%d", compId, taskId, state);
        if (state != TASK_STATE_RUNNING) continue;
        const int64_t reportTime = mResourceStatus->getTimestamp(ZelResourceStatus::kMemoryResource);
        const bool preempt = mPolicyEngine->isPreemptable(key.first, key.second);
        ZEL_LOGD("Task (%s, %s) preemptAllowed:%d", compId, taskId, preempt ? 1 : 0);
        if (!preempt) {
            ZEL_LOGI("Task (%s, %s) cannot be stopped because it is not preemptable", compId,
                     taskId);
            continue;
        }
        if (static_cast<uint8_t>(task->getEnsureRunTime()) == 0) {
            ZEL_LOGI("Task (%s, %s) will be stopped because of resource critical status and no "
                     "guaranteed runtime",
                     compId, taskId);
        } else {
            int64_t startTime = 0;
            int32_t duration = 0;
            task->getRunTime(startTime, duration);
            const int64_t elapsedMillis = (reportTime - startTime) * 1000;
            if (elapsedMillis <= static_cast<int64_t>(duration)) {
                ZEL_LOGD("Task (%s, %s) will be checked again at next status since "
                         "guaranteedrunTime is not exceeded",
                         compId, taskId);
                continue;
            }
            ZEL_LOGI("Task (%s, %s) will be stopped because of resource critical status and "
                     "guaranteed runtime completion",
                     compId, taskId);
        }
        const int32_t result = taskCompletedInternal(key.first, key.second, false);
        ZEL_LOGI("Task (%s, %s) complete request status %d", compId, taskId, result);
        if (result == kResultSuccess) approvePendingTasks();
    }

    if (!critical) {
        for (const TaskKey& key : mPolicyEngine->getAutoStartTasks()) {
            std::shared_ptr<ZelTask> task = getTask(key.first, key.second);
            if (task != nullptr && isStarted(task->getState())) continue;
            ZEL_LOGI("Task (%s, %s) is not running need to Request for Start", key.first.c_str(),
                     key.second.c_str());
            taskStartRequested(key.first, key.second, false,
                               mPolicyEngine->getMinimumGuaranteedRuntime(key.first, key.second),
                               nullptr, nullptr, kAutoStartRequestType);
        }
        approvePendingTasks();
    }

    ZelReaperSync::wakeForPurgeIf(
            [this] { return hasStoppedTasks() || mRunningTaskList->size() != 0; });
}

void ZelTaskManager::reaperFunc(ZelTaskManager* manager) {
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
            ZEL_LOGD("Timeout, Purging Tasks");
        } else {
            reaper.wait();
        }
        state = reaper.command();
    }
}

void ZelTaskManager::clearList(ZelTaskManager* manager) {
    std::vector<TaskKey> expired;
    for (const auto& [key, task] : manager->mRunningTaskList->snapshot()) {
        if (task == nullptr) continue;
        const char* compId = key.first.c_str();
        const char* taskId = key.second.c_str();
        ZEL_LOGI("Task:(%s, %s) is running", compId, taskId);
        const int32_t duration = task->getDuration();
        if (duration == kUnlimitedRunTime) continue;
        const int64_t now = ZelTime::monotonicNanos() / 1000000000LL;
        int64_t startTime = 0;
        int32_t currentDuration = 0;
        task->getRunTime(startTime, currentDuration);
        const int64_t elapsedSeconds = now - startTime;
        if (duration > kLongestEnforcedRunTime) continue;
        if (elapsedSeconds * 1000 > static_cast<int64_t>(currentDuration)) {
            ZEL_LOGI("Task:(%s, %s) configured runTime:%d, exceeds runTime:%d", compId, taskId,
                     currentDuration, 1);
            expired.push_back(key);
        }
    }
    for (const TaskKey& key : expired) {
        const int32_t result = manager->taskCompletedInternal(key.first, key.second, true);
        ZEL_LOGI("Task (%s, %s) complete request status %d", key.first.c_str(),
                 key.second.c_str(), result);
    }
    manager->clearStoppedTasks();
}
