// "Started" reports: result codes, what each leaves behind, process starts.
#include "ZelSystemProperty.h"
#include "ZelTaskManagerTestSupport.h"

namespace {

int failingWriter(const char*, const char*) { return -1; }

TEST_F(TaskManagerTest, StartedReportWithTheGrantedTokenMakesTheTaskRunning) {
    ASSERT_EQ(request("sync", "upload"), 0);
    auto upload = task("sync", "upload");
    ZelFakeClock::advance(3);
    EXPECT_EQ(reportStarted("sync", "upload"), 0);
    EXPECT_EQ(upload->getState(), TASK_STATE_RUNNING);
    EXPECT_EQ(upload->getStartTime(), 1003);
    EXPECT_TRUE(inTable(mManager->mRunningTaskList, "sync", "upload"));
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "Task:(sync,upload) received taskstarted request"));
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "Task (sync, upload) exists in state=2"));
    auto publications = mDispatcher->publications();
    ASSERT_EQ(publications.size(), 1u);
    EXPECT_EQ(publications[0].events, (std::vector<PolicyEvent>{{3, 21}}));
    EXPECT_EQ(publications[0].first, 1);
    EXPECT_EQ(publications[0].second, 5000);

    EXPECT_EQ(reportStarted("sync", "upload"), 5);
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, "Invalid status, task (sync, upload) status=4"));
    EXPECT_EQ(counter("InvalidTaskStatusCount"), 1);
}

TEST_F(TaskManagerTest, StartedReportsAreRefusedByTokenStateAndPolicy) {
    EXPECT_EQ(mManager->taskStarted("nope", "x", 1, 0, nullptr, 2, false), 3);
    EXPECT_EQ(counter("InvalidTaskCount"), 1);

    ASSERT_EQ(request("sync", "index"), 0);
    auto index = task("sync", "index");
    const uint32_t token = index->getToken();
    const uint32_t wrong = token == 0x7FFFFFFF ? 1 : token + 1;
    EXPECT_EQ(mManager->taskStarted("sync", "index", wrong, 0, nullptr, 2, false), 4);
    char expected[96];
    snprintf(expected, sizeof(expected), "Mismatched token (%x != %x) task (sync, index)", token,
             wrong);
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, expected));
    EXPECT_EQ(counter("InvalidTaskTokenCount"), 1);
    EXPECT_EQ(index->getState(), TASK_STATE_START_ALLOWED);
    EXPECT_FALSE(inTable(mManager->mRunningTaskList, "sync", "index"));

    // A record still in CREATED may be reported started if it quotes its token.
    auto created = ZelTask::create("sync", "long", 0, 5000, true, nullptr, nullptr);
    mManager->mTaskList->insert({"sync", "long"}, created);
    EXPECT_EQ(reportStarted("sync", "long"), 0);
    EXPECT_EQ(created->getState(), TASK_STATE_RUNNING);

    ASSERT_EQ(mManager->taskCompleted("sync", "long"), 0);
    EXPECT_EQ(reportStarted("sync", "long"), 5);
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, "Task (sync, long) already completed, cannot restart"));

    setMemory(1, 900, 1000);
    ASSERT_EQ(request("sync", "upload", 5000, true), 0);  // index allowed, not started: pending
    ASSERT_EQ(task("sync", "upload")->getState(), TASK_STATE_START_PENDING);
    EXPECT_EQ(reportStarted("sync", "upload"), 5);
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, "Invalid status, task (sync, upload) status=3"));
    EXPECT_EQ(counter("InvalidTaskStatusCount"), 2);

    EXPECT_EQ(mManager->taskStarted("sync", "fetch", 1, 0, nullptr, 2, false), 5);
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR,
                       "Non-critical task (sync, fetch) started without start request"));
    EXPECT_EQ(counter("NonCritTaskStartedCount"), 1);
    EXPECT_EQ(task("sync", "fetch"), nullptr);
}

TEST_F(TaskManagerTest, CriticalTaskMayStartWithoutARequestAndAFailedPublicationIsReported) {
    EXPECT_EQ(mManager->taskStarted("sync", "alarm", 12345, 800, nullptr, 2, false), 0);
    auto alarm = task("sync", "alarm");
    ASSERT_NE(alarm, nullptr);
    EXPECT_EQ(alarm->getState(), TASK_STATE_RUNNING);
    EXPECT_EQ(alarm->getDuration(), 800);
    EXPECT_EQ(alarm->getEnsureRunTime(), 1);
    EXPECT_TRUE(inTable(mManager->mRunningTaskList, "sync", "alarm"));
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "Task (sync, alarm) created"));
    EXPECT_EQ(counter("TaskCreatedCount"), 1);

    // A start publication that fails leaves the task running outside the running table.
    ASSERT_EQ(request("sync", "upload"), 0);
    mDispatcher->publishResult = false;
    EXPECT_EQ(reportStarted("sync", "upload"), 7);
    EXPECT_EQ(task("sync", "upload")->getState(), TASK_STATE_RUNNING);
    EXPECT_FALSE(inTable(mManager->mRunningTaskList, "sync", "upload"));
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, "Unable to publish events"));
    EXPECT_EQ(counter("PublishEventFailedCount"), 1);
}

TEST_F(TaskManagerTest, ProcessStartWritesThePropertyAndCancelsQueuedStops) {
    mManager->mStoppedTaskList = {{"sync", "START_PROCESS"}, {"sync", "index"},
                                  {"sync", "START_PROCESS"}};
    EXPECT_EQ(request("sync", "START_PROCESS"), 0);
    EXPECT_EQ(task("sync", "START_PROCESS")->getState(), TASK_STATE_RUNNING);
    EXPECT_EQ(readProperty("persist.sync.run"), "1");
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG, "Key:persist.sync.run, Value:1"));
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "Task:(sync, START_PROCESS) start status=1"));
    EXPECT_EQ(stoppedTasks(), (std::vector<TaskKey>{{"sync", "index"}}));

    // A write that fails is logged and the start goes on.
    ZelSystemProperty::sWriter = &failingWriter;
    ASSERT_EQ(mManager->taskCompleted("sync", "START_PROCESS"), 0);
    mManager->clearStoppedTasks();
    EXPECT_EQ(request("sync", "START_PROCESS"), 0);
    ZelSystemProperty::sWriter = property_set;
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, "Task:(sync, START_PROCESS) setProperty failed"));
    EXPECT_EQ(task("sync", "START_PROCESS")->getState(), TASK_STATE_RUNNING);
}

}  // namespace
