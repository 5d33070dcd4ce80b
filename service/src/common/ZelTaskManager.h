#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "LockedTaskMap.h"
#include "PolicyEvent.h"
#include "PolicyTaskKey.h"
#include "ZelCallLink.h"
#include "ZelEventDispatcherInterface.h"
#include "ZelPolicyEngine.h"
#include "ZelReaperSync.h"
#include "ResourceStatusInfo.h"
#include "ZelResourceStatus.h"
#include "ZelTask.h"

// Decides when tasks may start, tracks them until they end, preempts them
// under memory pressure and reaps those that overrun their run time.
//
// No lock spans the manager. Lock order where locks nest: the reaper mutex
// (ZelReaperSync), then mStoppedTaskLock, then one table mutex, then one
// record mutex. Its tables are its own; snapshot() shows them.
class ZelTaskManager {
public:
    // Result codes of the operations.
    static constexpr int32_t kResultSuccess = 0;
    static constexpr int32_t kResultInvalidTask = 3;
    static constexpr int32_t kResultTokenMismatch = 4;
    static constexpr int32_t kResultInvalidState = 5;
    static constexpr int32_t kResultPublishFailed = 7;

    // requestType of a client request (and of a dependency without a record);
    // a record made for it guarantees its run time.
    static constexpr int32_t kClientRequestType = 2;
    // requestType of the auto-start requests made after a resource report.
    static constexpr int32_t kAutoStartRequestType = 1;

    // Loads the policy, builds the manager and starts the process's one
    // reaper thread (a second call terminates the process). Empty when the
    // policy cannot be loaded.
    static std::shared_ptr<ZelTaskManager> create(
            const std::string& policyFilePath,
            std::shared_ptr<ZelEventDispatcherInterface> eventDispatcher);

    // Subscribes to the memory report, which reaches the manager through a
    // link that stop() and the destructor cut.
    ZelTaskManager(std::shared_ptr<ZelEventDispatcherInterface> eventDispatcher,
                   std::shared_ptr<ZelPolicyEngine> policyEngine);
    ~ZelTaskManager();
    ZelTaskManager(const ZelTaskManager&) = delete;
    ZelTaskManager& operator=(const ZelTaskManager&) = delete;

    // 0 when processed (the decision is in the record's state, or in its
    // absence), 3 for a task the policy does not know.
    [[nodiscard]] int32_t taskStartRequested(const std::string& compId, const std::string& taskId,
                                             bool notify, int32_t duration,
                                             std::shared_ptr<ZelIpcContext> taskContext,
                                             ZelTaskCallback callback, int32_t requestType);
    // 1 when the task may start now, 0 otherwise.
    [[nodiscard]] int32_t checkTaskStartDependencies(const std::shared_ptr<ZelTask>& task,
                                                     int32_t requestType);
    [[nodiscard]] int32_t taskStarted(const std::string& compId, const std::string& taskId,
                                      uint32_t token, int32_t duration,
                                      std::shared_ptr<ZelIpcContext> taskContext,
                                      int32_t requestType, bool startProcess);
    // The client's completion: taskCompletedInternal(compId, taskId, false),
    // then, when that succeeded, the deferred-approval walk. The reaper's
    // completions never run the walk: it holds the purge flag that a nested
    // start request would wait on for good.
    [[nodiscard]] int32_t taskCompleted(const std::string& compId, const std::string& taskId);
    [[nodiscard]] int32_t taskCompletedInternal(const std::string& compId,
                                                const std::string& taskId, bool fromReaper);
    void clearStoppedTasks();

    void onResourceStatusEvent(const ResourceStatusRecord* record);
    void TaskStatusUpdateOnResourceStatusUpdate();

    // The reaper thread's body and one purge.
    static void reaperFunc(ZelTaskManager* manager);
    static void clearList(ZelTaskManager* manager);

    std::shared_ptr<ZelTask> getTask(const std::string& compId, const std::string& taskId);
    // Asks the reaper to exit and joins it (see docs/task-manager.md for when
    // the reaper does not see the request); once it has ended, stops taking
    // memory reports: unsubscribes and waits for a report under way.
    void stop();

    // The manager's state as the dump shows it.
    struct State {
        int64_t now = 0;  // monotonic seconds when taken
        ZelPolicyEngine::Summary policy;
        ResourceStatusInfo memory;
        ZelReaperSync::State reaper;
        std::vector<ZelTask::Fields> tasks;    // mTaskList
        std::vector<ZelTask::Fields> running;  // mRunningTaskList
        std::vector<ZelTask::Fields> pending;  // mPendingTaskList
        std::vector<TaskKey> stopped;          // mStoppedTaskList
    };
    // Taken under the reaper mutex, the stopped-list mutex, each table mutex
    // and each record mutex in turn, in the lock order, never two at once.
    // A record in several tables is copied once and shown alike in each.
    State snapshot() const;

private:
    std::shared_ptr<ZelEventDispatcherInterface> mEventDispatcher;
    std::shared_ptr<ZelPolicyEngine> mPolicyEngine;
    std::shared_ptr<LockedTaskMap> mTaskList;         // every known record
    std::shared_ptr<LockedTaskMap> mRunningTaskList;  // reported started, not completed
    std::shared_ptr<LockedTaskMap> mPendingTaskList;  // waiting for a deferred decision
    std::list<TaskKey> mStoppedTaskList;              // guarded by mStoppedTaskLock
    // After the reaper mutex, before a table mutex.
    mutable std::mutex mStoppedTaskLock;
    std::shared_ptr<ZelResourceStatus> mResourceStatus;
    // What the memory report's function reaches this manager through; the
    // dispatcher may hold that function after it was unsubscribed.
    std::shared_ptr<ZelCallLink<ZelTaskManager>> mReportLink;
    bool mReportsStopped = false;  // stop() and the destructor only, on one thread

    // One allow-list entry of the dependency check: requests the required
    // task where it is missing, idle or completed; true when it is started.
    [[nodiscard]] bool requireTask(const std::string& compId, const std::string& taskId,
                                   const ZelTask& task, const TaskKey& reqKey, int32_t requestType);
    // The dependency check's last step: 1 when the task's memory fits.
    [[nodiscard]] int32_t checkResourceRequirement(const std::string& compId,
                                                   const std::string& taskId);
    // A started report for a task with a record: 0, or the refusal's code.
    [[nodiscard]] int32_t checkStartedReport(const std::string& compId, const std::string& taskId,
                                             const ZelTask& task, uint32_t token);
    // A started report without a record: makes one (into `task`) for a
    // critical task; 0, or the refusal's code.
    [[nodiscard]] int32_t admitUnrequestedStart(const std::string& compId,
                                                const std::string& taskId, int32_t duration,
                                                std::shared_ptr<ZelIpcContext> taskContext,
                                                int32_t requestType,
                                                std::shared_ptr<ZelTask>& task);
    // Writes the component's start property and reads it back.
    void startComponentProcess(const std::string& compId, const std::string& taskId);
    // Completes a running task of the running table while memory is critical,
    // unless it may not be preempted or is inside its guaranteed run time.
    void preemptIfDue(const TaskKey& key, const ZelTask& task);
    // Whether the policy knows the task; if not, logs "Invalid task" for
    // `operation` and counts it.
    [[nodiscard]] bool isKnownTask(const std::string& compId, const std::string& taskId,
                                   const char* operation);
    // Unsubscribes from the memory report and cuts the link its function
    // reaches the manager through, once; a report under way ends first.
    void stopMemoryReports();
    // Publishes through the dispatcher; without one only an empty list succeeds.
    [[nodiscard]] bool publishEvents(const std::vector<PolicyEvent>& events, int32_t first,
                                     int32_t second);
    // Removes every entry equal to key from mStoppedTaskList.
    void removeFromStoppedTasks(const TaskKey& key);
    bool hasStoppedTasks();
    // Grants the pending starts that the dependency check now allows and
    // answers their requesters.
    void approvePendingTasks();
};
