// Memory reports: recording, preemption under critical status, auto-start
// requests otherwise, and waking the reaper.
#include "ZelTaskManagerTestSupport.h"

namespace {

void setReaperState(int32_t state) {
    std::lock_guard<std::mutex> guard(gReaperMutex);
    gReaperState = state;
}

int32_t reaperState() {
    std::lock_guard<std::mutex> guard(gReaperMutex);
    return gReaperState;
}

TEST_F(TaskManagerTest, ConstructionSubscribesToTheMemoryReportAndOtherResourcesChangeNothing) {
    EXPECT_EQ(mDispatcher->subscriptions(), (std::vector<ZelRecordingEventDispatcher::Event>{{1, 1}}));
    startRunning("sync", "index");
    mLog.clear();
    mDispatcher->deliverMemoryReport(2, 4, 999, 1000);
    EXPECT_EQ(mLog.messages().size(), 1u);
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG, "ResourceStatusEvent Received"));
    EXPECT_EQ(mManager->mResourceStatus->getTimestamp(0), 0);
    EXPECT_EQ(task("sync", "index")->getState(), TASK_STATE_RUNNING);

    auto refusing = std::make_shared<ZelRecordingEventDispatcher>();
    refusing->subscribeResult = false;
    ZelTaskManager manager(refusing, mManager->mPolicyEngine);
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, "Failed to subscribe memory report event"));
}

TEST_F(TaskManagerTest, CriticalReportStopsPreemptableTasksWithoutGuaranteedRunTime) {
    ASSERT_EQ(mManager->taskStartRequested("sync", "index", false, 5000, nullptr, nullptr, 1), 0);
    ASSERT_EQ(reportStarted("sync", "index"), 0);
    ASSERT_EQ(task("sync", "index")->getEnsureRunTime(), 0);
    startRunning("sync", "alarm");  // not preemptable

    mDispatcher->deliverMemoryReport(1, 4, 900, 1000);
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "Received Resource type 1, status 4, value 900, critical "
                                         "threshold 1000, timestamp 1000"));
    EXPECT_EQ(mManager->mResourceStatus->getStatus(0), 4u);
    EXPECT_EQ(task("sync", "index")->getState(), TASK_STATE_COMPLETED);
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "Task (sync, index) will be stopped because of resource "
                                         "critical status and no guaranteed runtime"));
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "Task (sync, index) complete request status 0"));
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG, "Task (sync, alarm) preemptAllowed:0"));
    EXPECT_TRUE(logged(ANDROID_LOG_INFO,
                       "Task (sync, alarm) cannot be stopped because it is not preemptable"));
    EXPECT_EQ(task("sync", "alarm")->getState(), TASK_STATE_RUNNING);
    EXPECT_EQ(logCount(ANDROID_LOG_INFO, "Tasks will be checked to stop on resource status CRITICAL"),
              2);
    // No auto-start requests while critical.
    EXPECT_EQ(task("media", "START_PROCESS"), nullptr);
}

TEST_F(TaskManagerTest, GuaranteedRunTimeSparesATaskUntilItHasPassed) {
    startRunning("sync", "index");  // guaranteed, 5000 ms, started at 1000
    ZelFakeClock::set(1005);
    mDispatcher->deliverMemoryReport(1, 4, 900, 1000);
    EXPECT_EQ(task("sync", "index")->getState(), TASK_STATE_RUNNING);
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG, "Task (sync, index) will be checked again at next status "
                                          "since guaranteedrunTime is not exceeded"));

    ZelFakeClock::set(1006);
    mDispatcher->deliverMemoryReport(1, 4, 900, 1000);
    EXPECT_EQ(task("sync", "index")->getState(), TASK_STATE_COMPLETED);
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "Task (sync, index) will be stopped because of resource "
                                         "critical status and guaranteed runtime completion"));
}

TEST_F(TaskManagerTest, NonCriticalReportRequestsAutoStartTasksThatAreNotStarted) {
    mDispatcher->deliverMemoryReport(1, 1, 100, 1000);
    auto process = task("media", "START_PROCESS");
    ASSERT_NE(process, nullptr);
    EXPECT_EQ(process->getState(), TASK_STATE_RUNNING);
    EXPECT_EQ(process->getEnsureRunTime(), 0);
    EXPECT_EQ(process->getDuration(), 5000);
    EXPECT_TRUE(logged(ANDROID_LOG_INFO,
                       "Task (media, START_PROCESS) is not running need to Request for Start"));

    mLog.clear();
    mDispatcher->deliverMemoryReport(1, 1, 100, 1000);
    EXPECT_FALSE(logged(ANDROID_LOG_INFO, "is not running need to Request for Start"));
}

TEST_F(TaskManagerTest, ReportWakesTheReaperOnlyWhenThereIsWorkForIt) {
    setReaperState(REAPER_STATE_EXIT);
    mDispatcher->deliverMemoryReport(1, 4, 100, 1000);  // tables empty
    EXPECT_EQ(reaperState(), REAPER_STATE_EXIT);

    startRunning("sync", "alarm");
    mDispatcher->deliverMemoryReport(1, 4, 100, 1000);
    EXPECT_EQ(reaperState(), REAPER_STATE_WAIT);

    ASSERT_EQ(mManager->taskCompleted("sync", "alarm"), 0);  // only queued for cleanup now
    setReaperState(REAPER_STATE_EXIT);
    mDispatcher->deliverMemoryReport(1, 4, 100, 1000);
    EXPECT_EQ(reaperState(), REAPER_STATE_WAIT);
}

}  // namespace
