#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <cutils/properties.h>
#include <gtest/gtest.h>
#include <log/log.h>

#include "ZelMetricsRecorder.h"
#include "ZelRecordingEventDispatcher.h"
#include "ZelTaskManager.h"
#include "ZelTestRoot.h"
#include "ZelTime.h"
#include "zel/ZelHostLog.h"

// A policy that exercises the task manager's paths:
//  media: auto-start component; START_PROCESS (critical) and scan, which
//         depends on START_PROCESS.
//  sync:  index (no dependency), upload (depends on index), fetch (depends
//         on index and media/scan), alarm (critical, not preemptable),
//         long (10 s guaranteed), quick, START_PROCESS whose start/stop property is
//         a boolean.
//  stuck: START_PROCESS whose stop property still reads true afterwards.
//  loop:  a and b depend on each other; self depends on itself.
inline constexpr const char* kTaskManagerPolicy = R"JSON({"version": 1.0,
  "eventGroups": [{"groupName": "tasks", "groupId": 3, "events": [
    {"eventName": "scanStarted", "eventId": 11}, {"eventName": "scanDone", "eventId": 12},
    {"eventName": "uploadStarted", "eventId": 21}, {"eventName": "uploadDone", "eventId": 22}]}],
  "components": [
    {"identifier": "media", "processName": "mediad", "autostart": true, "memoryRequirement": 100,
     "startProperty": "ctl.start mediad", "stopProperty": "ctl.stop mediad", "tasks": [
       {"identifier": "START_PROCESS", "priorityType": "ZEL_TASK_CRITICAL"},
       {"identifier": "scan", "priorityType": "normal", "minimumGuaranteedRuntime": 3000}]},
    {"identifier": "sync", "processName": "syncd", "memoryRequirement": 300,
     "startProperty": "persist.sync.run 1", "stopProperty": "persist.sync.run 0", "tasks": [
       {"identifier": "index", "priorityType": "normal"},
       {"identifier": "upload", "priorityType": "normal", "minimumGuaranteedRuntime": 4000},
       {"identifier": "fetch", "priorityType": "normal"},
       {"identifier": "alarm", "priorityType": "ZEL_TASK_CRITICAL", "preempt": false},
       {"identifier": "long", "priorityType": "normal", "minimumGuaranteedRuntime": 10000},
       {"identifier": "quick", "priorityType": "normal"},
       {"identifier": "START_PROCESS", "priorityType": "ZEL_TASK_CRITICAL"}]},
    {"identifier": "stuck", "processName": "stuckd", "stopProperty": "persist.stuck.run 1",
     "tasks": [{"identifier": "START_PROCESS", "priorityType": "ZEL_TASK_CRITICAL"}]},
    {"identifier": "loop", "processName": "loopd", "tasks": [{"identifier": "a", "priorityType": "normal"},
       {"identifier": "b", "priorityType": "normal"}, {"identifier": "self", "priorityType": "normal"}]}],
  "rules": [
    {"name": "scan", "identifier": {"componentId": "media", "taskId": "scan"},
     "dependencies": {"allowlist": [{"componentId": "media", "taskId": "START_PROCESS"}]}, "actions": [
       {"message": "ZEL_TASK_STARTED", "events": [{"eventGroup": "tasks", "eventName": "scanStarted"}]},
       {"message": "ZEL_TASK_COMPLETED", "events": [{"eventGroup": "tasks", "eventName": "scanDone"}]}]},
    {"name": "upload", "identifier": {"componentId": "sync", "taskId": "upload"},
     "dependencies": {"allowlist": [{"componentId": "sync", "taskId": "index"}]}, "actions": [
       {"message": "ZEL_TASK_STARTED", "events": [{"eventGroup": "tasks", "eventName": "uploadStarted"}]},
       {"message": "ZEL_TASK_COMPLETED", "events": [{"eventGroup": "tasks", "eventName": "uploadDone"}]}]},
    {"name": "fetch", "identifier": {"componentId": "sync", "taskId": "fetch"}, "actions": [],
     "dependencies": {"allowlist": [{"componentId": "sync", "taskId": "index"},
                                    {"componentId": "media", "taskId": "scan"}]}},
    {"name": "a", "identifier": {"componentId": "loop", "taskId": "a"}, "actions": [],
     "dependencies": {"allowlist": [{"componentId": "loop", "taskId": "b"}]}},
    {"name": "b", "identifier": {"componentId": "loop", "taskId": "b"}, "actions": [],
     "dependencies": {"allowlist": [{"componentId": "loop", "taskId": "a"}]}},
    {"name": "self", "identifier": {"componentId": "loop", "taskId": "self"}, "actions": [],
     "dependencies": {"allowlist": [{"componentId": "loop", "taskId": "self"}]}}]})JSON";

// The monotonic clock as the tests set it, in whole seconds.
class ZelFakeClock {
public:
    ZelFakeClock() {
        set(1000);
        ZelTime::setMonotonicSource(&nanos);
    }
    ~ZelFakeClock() { ZelTime::setMonotonicSource(nullptr); }
    static void set(int64_t seconds) { sNanos.store(seconds * 1000000000LL); }
    static void advance(int64_t seconds) { sNanos.fetch_add(seconds * 1000000000LL); }
    static int64_t now() { return sNanos.load() / 1000000000LL; }

private:
    static int64_t nanos() { return sNanos.load(); }
    static inline std::atomic<int64_t> sNanos{0};
};

// Deferred answers, as the requester's answer function receives them.
class ZelApprovalRecorder {
public:
    struct Approval {
        std::shared_ptr<ZelIpcContext> context;
        uint32_t token;
    };
    static bool onApproved(std::shared_ptr<ZelIpcContext> context, uint32_t token) {
        std::lock_guard<std::mutex> guard(sLock);
        sApprovals.push_back({std::move(context), token});
        return true;
    }
    static std::vector<Approval> approvals() {
        std::lock_guard<std::mutex> guard(sLock);
        return sApprovals;
    }
    static void clear() {
        std::lock_guard<std::mutex> guard(sLock);
        sApprovals.clear();
    }

private:
    static inline std::mutex sLock;
    static inline std::vector<Approval> sApprovals;
};

// The manager only stores and hands back a requester's context, so an opaque
// non-null pointer stands for one.
inline std::shared_ptr<ZelIpcContext> makeTestContext() {
    auto owner = std::make_shared<int>(0);
    return std::shared_ptr<ZelIpcContext>(owner, reinterpret_cast<ZelIpcContext*>(owner.get()));
}

inline std::string readProperty(const char* name) {
    char value[PROPERTY_VALUE_MAX] = {};
    property_get(name, value, "");
    return value;
}

// A task manager on the test policy with a recording dispatcher, a fake
// clock, a private device root, a log capture and a metrics recorder.
class TaskManagerTest : public ::testing::Test {
protected:
    void SetUp() override {
        ZelApprovalRecorder::clear();
        mRoot.writeFile("/system/etc/zel_policy.json", kTaskManagerPolicy);
        std::shared_ptr<ZelPolicyEngine> engine =
                ZelPolicyEngine::create(mRoot.at("/system/etc/zel_policy.json"));
        ASSERT_NE(engine, nullptr) << "the policy loader refused the test policy";
        mManager = std::make_shared<ZelTaskManager>(mDispatcher, engine);
    }
    void TearDown() override { ZelApprovalRecorder::clear(); }

    int64_t counter(const char* name) const { return mMetrics.total("TaskManager", name); }
    bool logged(int priority, const std::string& text) const {
        return mLog.contains(priority, text);
    }
    int logCount(int priority, const std::string& text) const {
        int count = 0;
        for (const std::string& message : mLog.messages(priority)) {
            if (message.find(text) != std::string::npos) ++count;
        }
        return count;
    }
    std::shared_ptr<ZelTask> task(const std::string& compId, const std::string& taskId) {
        return mManager->getTask(compId, taskId);
    }
    bool inTable(const std::shared_ptr<LockedTaskMap>& table, const std::string& compId,
                 const std::string& taskId) {
        return table->find(TaskKey(compId, taskId)) != nullptr;
    }
    std::vector<TaskKey> stoppedTasks() {
        std::lock_guard<std::mutex> guard(mManager->mStoppedTaskLock);
        return {mManager->mStoppedTaskList.begin(), mManager->mStoppedTaskList.end()};
    }
    // A client start request without a later answer.
    int32_t request(const std::string& compId, const std::string& taskId, int32_t duration = 5000,
                    bool notify = false) {
        return mManager->taskStartRequested(compId, taskId, notify, duration, nullptr, nullptr,
                                            ZelTaskManager::kClientRequestType);
    }
    // A client start request that waits for a later answer.
    int32_t requestWithAnswer(const std::string& compId, const std::string& taskId,
                              std::shared_ptr<ZelIpcContext> context) {
        return mManager->taskStartRequested(compId, taskId, true, 5000, std::move(context),
                                            &ZelApprovalRecorder::onApproved,
                                            ZelTaskManager::kClientRequestType);
    }
    // The client's "started" report quoting the record's token.
    int32_t reportStarted(const std::string& compId, const std::string& taskId) {
        std::shared_ptr<ZelTask> record = task(compId, taskId);
        return mManager->taskStarted(compId, taskId, record ? record->getToken() : 0, 5000,
                                     nullptr, ZelTaskManager::kClientRequestType, false);
    }
    // Requested and reported started by the client.
    void startRunning(const std::string& compId, const std::string& taskId,
                      int32_t duration = 5000) {
        ASSERT_EQ(request(compId, taskId, duration), 0);
        ASSERT_EQ(reportStarted(compId, taskId), 0);
        ASSERT_EQ(task(compId, taskId)->getState(), TASK_STATE_RUNNING);
    }
    void setMemory(uint32_t status, uint64_t value, uint64_t threshold) {
        mManager->mResourceStatus->update(0, status, value, threshold, ZelFakeClock::now());
    }

    ZelFakeClock mClock;
    ZelTestRoot mRoot;
    ZelMetricsRecorder mMetrics;
    zel::hostlog::ZelLogCapture mLog;
    std::shared_ptr<ZelRecordingEventDispatcher> mDispatcher =
            std::make_shared<ZelRecordingEventDispatcher>();
    std::shared_ptr<ZelTaskManager> mManager;
};
