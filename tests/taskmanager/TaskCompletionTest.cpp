// Completion: result codes, stop events, table moves and the stopped-task
// cleanup with its stop property.
#include "ZelTaskManagerTestSupport.h"

namespace {

TEST_F(TaskManagerTest, CompletionOfUnknownOrAbsentTasksOrWithAFailedPublicationIsRefused) {
    EXPECT_EQ(mManager->taskCompleted("nope", "x"), 3);
    EXPECT_EQ(mManager->taskCompleted("sync", "index"), 5);
    EXPECT_TRUE(logged(ANDROID_LOG_WARN, "Task (sync, index) does not exist"));
    EXPECT_EQ(counter("InvalidTaskCount"), 2);
    EXPECT_TRUE(stoppedTasks().empty());

    // A stop publication that fails keeps the task running.
    startRunning("sync", "upload");
    mDispatcher->publishResult = false;
    EXPECT_EQ(mManager->taskCompleted("sync", "upload"), 7);
    EXPECT_EQ(task("sync", "upload")->getState(), TASK_STATE_RUNNING);
    EXPECT_TRUE(inTable(mManager->mRunningTaskList, "sync", "upload"));
    EXPECT_TRUE(stoppedTasks().empty());
    EXPECT_EQ(counter("PublishEventFailedCount"), 1);
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, "Unable to publish events"));
}

TEST_F(TaskManagerTest, CompletingARunningTaskPublishesItsStopEventsAndQueuesIt) {
    startRunning("sync", "upload");
    mDispatcher->clearPublications();
    ZelFakeClock::advance(2);
    EXPECT_EQ(mManager->taskCompleted("sync", "upload"), 0);
    auto upload = task("sync", "upload");
    ASSERT_NE(upload, nullptr);  // kept until the next purge
    EXPECT_EQ(upload->getState(), TASK_STATE_COMPLETED);
    EXPECT_EQ(upload->getEndTime(), 1002);
    EXPECT_FALSE(inTable(mManager->mRunningTaskList, "sync", "upload"));
    EXPECT_EQ(stoppedTasks(), (std::vector<TaskKey>{{"sync", "upload"}}));
    auto publications = mDispatcher->publications();
    ASSERT_EQ(publications.size(), 1u);
    EXPECT_EQ(publications[0].events, (std::vector<PolicyEvent>{{3, 22}}));
    EXPECT_EQ(publications[0].first, 1);
    EXPECT_EQ(publications[0].second, 0);
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG, "Found task (sync, upload), status=4"));
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "Task (sync, upload) has completed"));
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "Task (sync, upload) dependent events has been sent"));
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG, "done for Task (sync, upload)"));

    // Again: state 5 still publishes, and the key is queued a second time.
    EXPECT_EQ(mManager->taskCompleted("sync", "upload"), 0);
    EXPECT_EQ(mDispatcher->publications().size(), 2u);
    EXPECT_EQ(stoppedTasks().size(), 2u);

    mManager->clearStoppedTasks();
    EXPECT_EQ(task("sync", "upload"), nullptr);
    EXPECT_TRUE(stoppedTasks().empty());
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "Task:(sync, upload) not for process start, cleanup"));
    EXPECT_TRUE(logged(ANDROID_LOG_WARN, "Task:(sync, upload) object not found"));
    mManager->clearStoppedTasks();
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG, "mStoppedTaskList is empty, no task in list"));
}

TEST_F(TaskManagerTest, CompletingATaskThatNeverStartedPublishesNothing) {
    ASSERT_EQ(request("sync", "upload"), 0);
    setMemory(1, 900, 1000);
    ASSERT_EQ(request("sync", "fetch", 5000, true), 0);  // pending
    mDispatcher->clearPublications();

    EXPECT_EQ(mManager->taskCompleted("sync", "upload"), 0);
    EXPECT_TRUE(logged(ANDROID_LOG_WARN, "Task (sync, upload) status (2) is not valid"));
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "Task (sync, upload) dependent events has been sent"));
    EXPECT_EQ(task("sync", "upload")->getState(), TASK_STATE_COMPLETED);

    EXPECT_EQ(mManager->taskCompleted("sync", "fetch"), 0);
    EXPECT_FALSE(inTable(mManager->mPendingTaskList, "sync", "fetch"));
    EXPECT_TRUE(mDispatcher->publications().empty());
    EXPECT_EQ(stoppedTasks(), (std::vector<TaskKey>{{"sync", "upload"}, {"sync", "fetch"}}));
}

TEST_F(TaskManagerTest, ProcessStopIsConfirmedByReadingThePropertyBack) {
    ASSERT_EQ(request("sync", "START_PROCESS"), 0);
    ASSERT_EQ(mManager->taskCompleted("sync", "START_PROCESS"), 0);
    mManager->clearStoppedTasks();
    EXPECT_EQ(readProperty("persist.sync.run"), "0");
    EXPECT_EQ(task("sync", "START_PROCESS"), nullptr);
    EXPECT_TRUE(stoppedTasks().empty());
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG,
                       "Task:(sync, START_PROCESS) stopping by setting persist.sync.run as 0"));
    // The walk's own reference and the table's; then the walk's alone.
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG, "Task:(sync, START_PROCESS) obj ref count=2"));
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG, "Task:(sync, START_PROCESS) obj ref count=1 after remove"));
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "Task:(sync, START_PROCESS) stop success"));

    // A stop value that still reads true is taken as failed and retried.
    ASSERT_EQ(request("stuck", "START_PROCESS"), 0);
    ASSERT_EQ(mManager->taskCompleted("stuck", "START_PROCESS"), 0);
    mManager->clearStoppedTasks();
    mManager->clearStoppedTasks();
    EXPECT_EQ(logCount(ANDROID_LOG_WARN, "Failed to stop task:(stuck, START_PROCESS)"), 2);
    EXPECT_EQ(stoppedTasks(), (std::vector<TaskKey>{{"stuck", "START_PROCESS"}}));
    EXPECT_NE(task("stuck", "START_PROCESS"), nullptr);

    // Starting the process again takes it off the queue.
    ASSERT_EQ(request("stuck", "START_PROCESS"), 0);
    EXPECT_TRUE(stoppedTasks().empty());
}

// Cleanup erases the key whatever the record's state: a task requested again
// before the purge loses its record.
TEST_F(TaskManagerTest, CleanupErasesARecordRequestedAgainBeforeThePurge) {
    startRunning("sync", "index");
    ASSERT_EQ(mManager->taskCompleted("sync", "index"), 0);
    ASSERT_EQ(request("sync", "index"), 0);
    ASSERT_EQ(reportStarted("sync", "index"), 0);
    mManager->clearStoppedTasks();
    EXPECT_EQ(task("sync", "index"), nullptr);
    EXPECT_TRUE(inTable(mManager->mRunningTaskList, "sync", "index"));
}

}  // namespace
