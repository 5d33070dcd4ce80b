// Start requests: validity, granted run time, dependency and memory checks,
// duplicates, process starts, the cycle guard and deferred approval.
#include "ZelTaskManagerTestSupport.h"

namespace {

TEST_F(TaskManagerTest, UnknownTaskIsRefusedAndRunTimeIsCappedByThePolicy) {
    EXPECT_EQ(request("nope", "x"), 3);
    EXPECT_EQ(task("nope", "x"), nullptr);
    EXPECT_EQ(counter("InvalidTaskCount"), 1);
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, "Invalid task (nope, x)"));

    EXPECT_EQ(request("sync", "index", 9000), 0);
    EXPECT_EQ(task("sync", "index")->getDuration(), 5000);
    EXPECT_EQ(task("sync", "index")->getEnsureRunTime(), 1);
    EXPECT_EQ(request("sync", "long", 9000), 0);
    EXPECT_EQ(task("sync", "long")->getDuration(), 9000);
    EXPECT_EQ(mManager->taskStartRequested("sync", "alarm", false, -7, nullptr, nullptr, 1), 0);
    EXPECT_EQ(task("sync", "alarm")->getDuration(), -7);
    EXPECT_EQ(task("sync", "alarm")->getEnsureRunTime(), 0);
    EXPECT_EQ(counter("InvalidTaskCount"), 1);
}

TEST_F(TaskManagerTest, MemoryCheckSkipsCriticalTasksAndIsStrictForOthers) {
    EXPECT_EQ(request("sync", "index"), 0);  // no report yet: never over the threshold
    EXPECT_EQ(task("sync", "index")->getState(), TASK_STATE_START_ALLOWED);
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG, "Task:(sync,index) resource requirement check"));
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "Task:(sync,index) resource requirement check status:1"));

    setMemory(4, 999, 1000);
    EXPECT_EQ(request("sync", "alarm"), 0);
    EXPECT_EQ(task("sync", "alarm")->getState(), TASK_STATE_START_ALLOWED);
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG, "Task:(sync,alarm) skipping resource requirement check "
                                          "priorityType = ZEL_TASK_CRITICAL"));
    EXPECT_FALSE(logged(ANDROID_LOG_INFO, "Task:(sync,alarm) resource requirement check status"));

    setMemory(1, 700, 1000);  // 700 + 300 is not over 1000
    EXPECT_EQ(request("sync", "long"), 0);
    EXPECT_EQ(task("sync", "long")->getState(), TASK_STATE_START_ALLOWED);
    ASSERT_EQ(mManager->taskCompleted("sync", "long"), 0);
    mManager->clearStoppedTasks();

    setMemory(1, 701, 1000);
    EXPECT_EQ(request("sync", "long"), 0);
    EXPECT_EQ(task("sync", "long"), nullptr);  // refused without notify: forgotten
    EXPECT_FALSE(inTable(mManager->mPendingTaskList, "sync", "long"));
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "Task:(sync,long) resource requirement check status:0"));

    EXPECT_EQ(request("sync", "long", 5000, true), 0);
    EXPECT_EQ(task("sync", "long")->getState(), TASK_STATE_START_PENDING);
    EXPECT_TRUE(inTable(mManager->mPendingTaskList, "sync", "long"));
}

TEST_F(TaskManagerTest, DependencyDecisionsFollowTheRequiredTaskState) {
    // Missing: requested on the dependent's behalf, and allowed counts.
    EXPECT_EQ(request("sync", "upload"), 0);
    EXPECT_TRUE(logged(ANDROID_LOG_WARN, "checkTaskStartDependencies-Required ZelTask does not "
                                         "exist: sync, let's check for it with startRequest"));
    EXPECT_EQ(task("sync", "index")->getState(), TASK_STATE_START_ALLOWED);
    EXPECT_EQ(task("sync", "upload")->getState(), TASK_STATE_START_ALLOWED);
    ASSERT_EQ(mManager->taskCompleted("sync", "upload"), 0);
    mManager->clearStoppedTasks();

    // Allowed but not reported started: blocks the dependent task.
    EXPECT_EQ(request("sync", "upload"), 0);
    EXPECT_TRUE(logged(ANDROID_LOG_WARN, "Required Task:(sync, index) is in unknown state:2"));
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG,
                       "Task:(sync,upload) allow status:0 after requiredTask dependencies check"));
    EXPECT_EQ(task("sync", "upload"), nullptr);

    // Running: allowed.
    ASSERT_EQ(reportStarted("sync", "index"), 0);
    EXPECT_EQ(request("sync", "upload"), 0);
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "Required Task:(sync,index) already started"));
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG,
                       "Task:(sync,upload) allow status:1 after blockTask dependencies check"));
    EXPECT_EQ(task("sync", "upload")->getState(), TASK_STATE_START_ALLOWED);
    ASSERT_EQ(mManager->taskCompleted("sync", "upload"), 0);
    mManager->clearStoppedTasks();

    // Completed but not yet cleaned up: requested again.
    ASSERT_EQ(mManager->taskCompleted("sync", "index"), 0);
    EXPECT_EQ(task("sync", "index")->getState(), TASK_STATE_COMPLETED);
    EXPECT_EQ(request("sync", "upload"), 0);
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "Required Task:(sync,index) not started and needs to start"));
    EXPECT_EQ(task("sync", "index")->getState(), TASK_STATE_START_ALLOWED);
    EXPECT_EQ(task("sync", "upload")->getState(), TASK_STATE_START_ALLOWED);
}

// Every dependency is requested even after one has refused; the auto-start
// component's tasks go straight to running, its process through its property.
TEST_F(TaskManagerTest, EveryDependencyIsRequestedAndAutoStartTasksRunAtOnce) {
    setMemory(1, 750, 1000);  // sync (300) does not fit, media (100) does
    EXPECT_EQ(request("sync", "fetch"), 0);

    EXPECT_EQ(task("sync", "fetch"), nullptr);
    EXPECT_EQ(task("sync", "index"), nullptr);
    EXPECT_EQ(task("media", "scan")->getState(), TASK_STATE_RUNNING);
    auto process = task("media", "START_PROCESS");
    EXPECT_EQ(process->getState(), TASK_STATE_RUNNING);
    EXPECT_EQ(process->getDuration(), 3000);  // the dependent task's own run time
    EXPECT_TRUE(inTable(mManager->mRunningTaskList, "media", "scan"));
    EXPECT_EQ(readProperty("ctl.start"), "mediad");

    EXPECT_TRUE(logged(ANDROID_LOG_INFO,
                       "taskstarted request for Task:(media, START_PROCESS) is a process start req"));
    EXPECT_TRUE(logged(ANDROID_LOG_INFO,
                       "Task:(media,START_PROCESS) being started with taskstarted request"));
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "Task:(media,scan) being started with taskstarted request"));
    // "mediad" does not read as a boolean.
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, "Task:(media, START_PROCESS) getProperty failed"));

    auto publications = mDispatcher->publications();
    ASSERT_EQ(publications.size(), 2u);
    EXPECT_TRUE(publications[0].events.empty());
    EXPECT_EQ(publications[1].events, (std::vector<PolicyEvent>{{3, 11}}));
    EXPECT_EQ(publications[1].first, 1);
    EXPECT_EQ(publications[1].second, 5000);
}

TEST_F(TaskManagerTest, DependencyCyclesAreRefusedWithoutEndlessRequests) {
    EXPECT_EQ(request("loop", "a"), 0);
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR,
                       "Task:(loop,b) dependency cycle through Task:(loop,a), not requested"));
    EXPECT_EQ(task("loop", "a"), nullptr);
    EXPECT_EQ(task("loop", "b"), nullptr);

    EXPECT_EQ(request("loop", "self", 5000, true), 0);
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR,
                       "Task:(loop,self) dependency cycle through Task:(loop,self), not requested"));
    EXPECT_EQ(task("loop", "self")->getState(), TASK_STATE_START_PENDING);
}

TEST_F(TaskManagerTest, DuplicateRequestsRestartAutoStartRunTimeAndReArmOthers) {
    ASSERT_EQ(request("media", "scan"), 0);
    auto scan = task("media", "scan");
    ASSERT_EQ(scan->getState(), TASK_STATE_RUNNING);
    const uint32_t scanToken = scan->getToken();
    const size_t published = mDispatcher->publications().size();
    ZelFakeClock::advance(7);
    EXPECT_EQ(request("media", "scan", 1000), 0);
    EXPECT_EQ(scan->getState(), TASK_STATE_RUNNING);
    EXPECT_EQ(scan->getToken(), scanToken);
    EXPECT_EQ(scan->getStartTime(), 1007);
    EXPECT_EQ(scan->getDuration(), 1000);
    EXPECT_EQ(counter("DuplicateStartRequestCount"), 1);
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "Task already started (media, scan)"));
    EXPECT_EQ(mDispatcher->publications().size(), published);

    startRunning("sync", "index");
    auto index = task("sync", "index");
    const uint32_t indexToken = index->getToken();
    EXPECT_EQ(request("sync", "index"), 0);
    EXPECT_NE(index->getToken(), indexToken);
    EXPECT_EQ(index->getState(), TASK_STATE_START_ALLOWED);
    EXPECT_TRUE(inTable(mManager->mRunningTaskList, "sync", "index"));  // entry kept
    EXPECT_FALSE(inTable(mManager->mPendingTaskList, "sync", "index"));
    EXPECT_EQ(counter("DuplicateStartRequestCount"), 2);

    ASSERT_EQ(reportStarted("sync", "index"), 0);
    setMemory(1, 900, 1000);
    EXPECT_EQ(request("sync", "index"), 0);
    EXPECT_EQ(task("sync", "index"), nullptr);
    EXPECT_FALSE(inTable(mManager->mPendingTaskList, "sync", "index"));
    EXPECT_TRUE(inTable(mManager->mRunningTaskList, "sync", "index"));
}

TEST_F(TaskManagerTest, MemoryReportApprovesPendingStartsOnce) {
    setMemory(1, 800, 1000);
    auto context = makeTestContext();
    ASSERT_EQ(requestWithAnswer("sync", "index", context), 0);
    ASSERT_EQ(mManager->taskStartRequested("sync", "long", true, 5000, nullptr, nullptr, 2), 0);
    auto index = task("sync", "index");
    ASSERT_EQ(index->getState(), TASK_STATE_START_PENDING);

    mDispatcher->deliverMemoryReport(1, 4, 600, 1000);  // critical: nothing is approved
    EXPECT_EQ(index->getState(), TASK_STATE_START_PENDING);
    EXPECT_TRUE(ZelApprovalRecorder::approvals().empty());

    mDispatcher->deliverMemoryReport(1, 1, 600, 1000);
    EXPECT_EQ(index->getState(), TASK_STATE_START_ALLOWED);
    EXPECT_FALSE(inTable(mManager->mPendingTaskList, "sync", "index"));
    EXPECT_EQ(task("sync", "long")->getState(), TASK_STATE_START_ALLOWED);  // moved only
    auto approvals = ZelApprovalRecorder::approvals();
    ASSERT_EQ(approvals.size(), 1u);
    EXPECT_EQ(approvals[0].context, context);
    EXPECT_EQ(approvals[0].token, index->getToken());

    mDispatcher->deliverMemoryReport(1, 1, 600, 1000);
    EXPECT_EQ(ZelApprovalRecorder::approvals().size(), 1u);
}

TEST_F(TaskManagerTest, ClientCompletionApprovesPendingStarts) {
    ASSERT_EQ(request("sync", "index"), 0);
    ASSERT_EQ(requestWithAnswer("sync", "upload", makeTestContext()), 0);
    auto upload = task("sync", "upload");
    ASSERT_EQ(upload->getState(), TASK_STATE_START_PENDING);

    ASSERT_EQ(reportStarted("sync", "index"), 0);  // a started report approves nothing
    EXPECT_TRUE(ZelApprovalRecorder::approvals().empty());

    startRunning("sync", "alarm");
    ASSERT_EQ(mManager->taskCompleted("sync", "alarm"), 0);
    EXPECT_EQ(upload->getState(), TASK_STATE_START_ALLOWED);
    ASSERT_EQ(ZelApprovalRecorder::approvals().size(), 1u);
    EXPECT_EQ(ZelApprovalRecorder::approvals()[0].token, upload->getToken());
}

}  // namespace
