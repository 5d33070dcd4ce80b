// The task manager's core: its creation with the reaper thread, its tables,
// and the helpers its operations share. The operations live beside it, one
// file per job: ZelTaskManagerStart.cpp (start decisions),
// ZelTaskManagerReports.cpp (started and completed tasks, cleanup),
// ZelTaskManagerResources.cpp (memory reports, preemption) and
// ZelTaskManagerReaper.cpp (the reaper thread).

#include "ZelTaskManager.h"

#include <map>
#include <utility>

#include "ZelTaskManagerShared.h"
#include "ZelTime.h"

namespace {

// Each record is copied once, so every table shows one record the same way.
std::vector<ZelTask::Fields> rowsOf(const LockedTaskMap::Map& table,
                                    std::map<const ZelTask*, ZelTask::Fields>& copied) {
    std::vector<ZelTask::Fields> rows;
    for (const auto& entry : table) {
        if (entry.second == nullptr) continue;
        auto it = copied.find(entry.second.get());
        if (it == copied.end())
            it = copied.emplace(entry.second.get(), entry.second->fields()).first;
        rows.push_back(it->second);
    }
    return rows;
}

}  // namespace

std::shared_ptr<ZelTaskManager> ZelTaskManager::create(
        const std::string& policyFilePath,
        std::shared_ptr<ZelEventDispatcherInterface> eventDispatcher) {
    std::shared_ptr<ZelPolicyEngine> engine = ZelPolicyEngine::create(policyFilePath);
    if (engine == nullptr) {
        zel::taskmanager::countMetric("PolicyEngineInitFailedCount");
        ZEL_LOGE("Failed to create ZelPolicyEngine");
        return nullptr;
    }
    auto manager = std::make_shared<ZelTaskManager>(std::move(eventDispatcher), std::move(engine));
    // Taking a second reaper terminates the process: one manager per process.
    ZelReaperSync::adoptThread(std::thread(&ZelTaskManager::reaperFunc, manager.get()));
    ZelReaperSync::notify();
    return manager;
}

ZelTaskManager::ZelTaskManager(std::shared_ptr<ZelEventDispatcherInterface> eventDispatcher,
                               std::shared_ptr<ZelPolicyEngine> policyEngine)
    : mEventDispatcher(std::move(eventDispatcher)),
      mPolicyEngine(std::move(policyEngine)),
      mTaskList(std::make_shared<LockedTaskMap>()),
      mRunningTaskList(std::make_shared<LockedTaskMap>("running tasks")),
      mPendingTaskList(std::make_shared<LockedTaskMap>("pending tasks")),
      mReportLink(std::make_shared<ZelCallLink<ZelTaskManager>>(this)) {
    ZelReaperSync::setCommand(REAPER_STATE_WAIT);
    mResourceStatus = std::make_shared<ZelResourceStatus>();
    if (mResourceStatus != nullptr && mEventDispatcher != nullptr) {
        const bool subscribed = mEventDispatcher->subscribeMemoryReport(
                [link = mReportLink](const ResourceStatusRecord* report) {
                    link->call([report](ZelTaskManager& manager) {
                        manager.onResourceStatusEvent(report);
                    });
                });
        if (!subscribed) ZEL_LOGE("Failed to subscribe memory report event");
    }
}

ZelTaskManager::~ZelTaskManager() {
    stopMemoryReports();
}

void ZelTaskManager::stop() {
    ZelReaperSync::command(REAPER_STATE_EXIT);
    ZelReaperSync::joinThread();
    // After the join: no purge runs, so a report under way cannot be waiting
    // for one to end.
    stopMemoryReports();
}

void ZelTaskManager::stopMemoryReports() {
    if (mReportsStopped) return;
    mReportsStopped = true;
    if (mEventDispatcher != nullptr) (void)mEventDispatcher->unsubscribeMemoryReport();
    mReportLink->detach();
}

std::shared_ptr<ZelTask> ZelTaskManager::getTask(const std::string& compId,
                                                 const std::string& taskId) {
    return mTaskList->find(TaskKey(compId, taskId));
}

ZelTaskManager::State ZelTaskManager::snapshot() const {
    State state;
    state.now = ZelTime::monotonicSeconds();
    if (mPolicyEngine != nullptr) state.policy = mPolicyEngine->getSummary();
    if (mResourceStatus != nullptr) state.memory = mResourceStatus->getMemoryStatus();
    state.reaper = ZelReaperSync::state();
    {
        std::lock_guard<std::mutex> guard(mStoppedTaskLock);
        state.stopped.assign(mStoppedTaskList.begin(), mStoppedTaskList.end());
    }
    const LockedTaskMap::Map tasks = mTaskList->snapshot();
    const LockedTaskMap::Map running = mRunningTaskList->snapshot();
    const LockedTaskMap::Map pending = mPendingTaskList->snapshot();
    std::map<const ZelTask*, ZelTask::Fields> copied;
    state.tasks = rowsOf(tasks, copied);
    state.running = rowsOf(running, copied);
    state.pending = rowsOf(pending, copied);
    return state;
}

bool ZelTaskManager::isKnownTask(const std::string& compId, const std::string& taskId,
                                 const char* operation) {
    if (mPolicyEngine->isValidTask(compId, taskId)) return true;
    ZEL_TM_LOGE_FOR(operation, "Invalid task (%s, %s)", compId.c_str(), taskId.c_str());
    zel::taskmanager::countMetric("InvalidTaskCount");
    return false;
}

bool ZelTaskManager::publishEvents(const std::vector<PolicyEvent>& events, int32_t first,
                                   int32_t second) {
    if (mEventDispatcher == nullptr) return events.empty();
    return mEventDispatcher->publishEvents(events, first, second);
}

void ZelTaskManager::removeFromStoppedTasks(const TaskKey& key) {
    std::lock_guard<std::mutex> guard(mStoppedTaskLock);
    const std::size_t before = mStoppedTaskList.size();
    mStoppedTaskList.remove(key);
    zel::taskmanager::traceStoppedTasks(before, mStoppedTaskList.size());
}

bool ZelTaskManager::hasStoppedTasks() {
    std::lock_guard<std::mutex> guard(mStoppedTaskLock);
    return !mStoppedTaskList.empty();
}
