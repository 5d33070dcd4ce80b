// The reaper: run-time enforcement in a purge, its thread's commands, and
// creation of the manager that starts it. Tests that start the real reaper
// run in a child process: the reaper cannot be stopped once it waits, and a
// process that exits with it running ends through std::terminate.
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

#include "ZelTaskManagerTestSupport.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

TEST_F(TaskManagerTest, PurgeEnforcesOnlyRunTimesUpToFiveSeconds) {
    startRunning("sync", "index", -1);
    startRunning("sync", "long", 6000);
    startRunning("sync", "alarm", 5000);
    startRunning("sync", "quick", -3);
    setMemory(1, 800, 1000);
    ASSERT_EQ(requestWithAnswer("sync", "upload", makeTestContext()), 0);  // pending
    setMemory(1, 0, 1000);

    ZelTaskManager::clearList(mManager.get());  // at the start second
    EXPECT_EQ(task("sync", "quick"), nullptr);   // completed and cleaned up in one purge
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "Task:(sync, quick) configured runTime:-3, exceeds runTime:1"));
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "Task (sync, quick) complete request status 0"));
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "Task:(sync, index) is running"));

    ZelFakeClock::set(1005);
    ZelTaskManager::clearList(mManager.get());
    EXPECT_EQ(task("sync", "alarm")->getState(), TASK_STATE_RUNNING);

    ZelFakeClock::set(1006);
    ZelTaskManager::clearList(mManager.get());
    EXPECT_EQ(task("sync", "alarm"), nullptr);
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "Task:(sync, alarm) configured runTime:5000, exceeds runTime:1"));
    // The reaper's own completions approve nothing.
    EXPECT_EQ(task("sync", "upload")->getState(), TASK_STATE_START_PENDING);
    EXPECT_TRUE(ZelApprovalRecorder::approvals().empty());

    ZelFakeClock::set(2000);
    ZelTaskManager::clearList(mManager.get());
    EXPECT_EQ(task("sync", "index")->getState(), TASK_STATE_RUNNING);
    EXPECT_EQ(task("sync", "long")->getState(), TASK_STATE_RUNNING);
}

TEST_F(TaskManagerTest, StopEndsAReaperThatReadsTheExitCommandFirst) {
    startRunning("sync", "index");
    {
        std::lock_guard<std::mutex> guard(gReaperMutex);
        gReaperState = REAPER_STATE_EXIT;
    }
    gReaperThread = std::thread(&ZelTaskManager::reaperFunc, mManager.get());
    mManager->stop();
    EXPECT_FALSE(gReaperThread.joinable());
    EXPECT_FALSE(logged(ANDROID_LOG_DEBUG, "Timeout, Purging Tasks"));
    EXPECT_NE(task("sync", "index"), nullptr);  // tables untouched
}

TEST(TaskManagerCreateTest, UnloadablePolicyGivesNoManagerAndNoReaper) {
    ZelTestRoot root;
    ZelMetricsRecorder metrics;
    zel::hostlog::ZelLogCapture log;
    EXPECT_EQ(ZelTaskManager::create(root.at("/missing.json"),
                                     std::make_shared<ZelRecordingEventDispatcher>()),
              nullptr);
    // One line, at error level.
    const std::string text = "Failed to create ZelPolicyEngine";
    const auto all = log.messages();
    EXPECT_EQ(std::count_if(all.begin(), all.end(),
                            [&](const std::string& line) { return line.find(text) != std::string::npos; }),
              1);
    EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, text));
    EXPECT_EQ(metrics.total("TaskManager", "PolicyEngineInitFailedCount"), 1);
    EXPECT_FALSE(gReaperThread.joinable());
}

// Child process bodies: exit status 0 when every check held.
std::shared_ptr<ZelTaskManager> createInChild(const ZelTestRoot& root,
                                              std::shared_ptr<ZelRecordingEventDispatcher> events) {
    zel::hostlog::setStderrMinPriority(ANDROID_LOG_SILENT);
    root.writeFile("/system/etc/zel_policy.json", kTaskManagerPolicy);
    auto manager = ZelTaskManager::create(root.at("/system/etc/zel_policy.json"), events);
    if (manager == nullptr) _exit(10);
    return manager;
}

bool waitUntil(const std::function<bool()>& done, milliseconds limit) {
    const auto deadline = steady_clock::now() + limit;
    while (!done()) {
        if (steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(milliseconds(10));
    }
    return true;
}

void startQuick(ZelTaskManager& manager) {
    manager.taskStartRequested("sync", "quick", false, -3, nullptr, nullptr, 2);
    auto quick = manager.getTask("sync", "quick");
    if (quick == nullptr) _exit(11);
    if (manager.taskStarted("sync", "quick", quick->getToken(), 0, nullptr, 2, false) != 0) {
        _exit(12);
    }
}

// Nothing but reports wakes a request that arrives during a purge, so these
// children make requests only just after a purge, when the next one is a
// whole period away.
void purgesPeriodicallyAndWhenWoken() {
    ZelTestRoot root;
    zel::hostlog::ZelLogCapture log;
    auto events = std::make_shared<ZelRecordingEventDispatcher>();
    auto manager = createInChild(root, events);
    if (events->subscriptions().size() != 1) _exit(13);
    auto purged = [&] { return log.contains(ANDROID_LOG_DEBUG, "Timeout, Purging Tasks"); };
    if (!waitUntil(purged, milliseconds(7000))) _exit(14);  // at once or after one period
    std::this_thread::sleep_for(milliseconds(100));

    startQuick(*manager);
    auto gone = [&] { return manager->getTask("sync", "quick") == nullptr; };
    if (!waitUntil(gone, milliseconds(7000))) _exit(15);  // the next periodic purge
    std::this_thread::sleep_for(milliseconds(100));

    // A report with running tasks purges long before the period ends.
    startQuick(*manager);
    events->deliverMemoryReport(1, 1, 0, 1000);
    if (!waitUntil(gone, milliseconds(3500))) _exit(16);
    _exit(0);
}

TEST(TaskManagerCreateTest, ReaperPurgesEveryPeriodAndAtOnceWhenWoken) {
    EXPECT_EXIT(purgesPeriodicallyAndWhenWoken(), ::testing::ExitedWithCode(0), "");
}

// The reaper writes its state after each wait, so a stop request that
// arrives while it waits is overwritten and the join never returns.
void stopIsOverwritten() {
    ZelTestRoot root;
    zel::hostlog::ZelLogCapture log;
    auto manager = createInChild(root, std::make_shared<ZelRecordingEventDispatcher>());
    std::this_thread::sleep_for(milliseconds(300));  // the reaper is waiting by now
    log.clear();
    std::atomic<bool> stopped{false};
    std::thread([&] {
        manager->stop();
        stopped = true;
    }).detach();
    if (!waitUntil([&] { return log.contains(ANDROID_LOG_DEBUG, "Timeout, Purging Tasks"); },
                   milliseconds(3000))) {
        _exit(17);
    }
    std::this_thread::sleep_for(milliseconds(500));
    _exit(stopped ? 18 : 0);
}

TEST(TaskManagerCreateTest, StopWhileTheReaperWaitsIsOverwritten) {
    EXPECT_EXIT(stopIsOverwritten(), ::testing::ExitedWithCode(0), "");
}

TEST(TaskManagerCreateTest, SecondCreateInOneProcessTerminatesIt) {
    EXPECT_DEATH(
            {
                ZelTestRoot root;
                auto events = std::make_shared<ZelRecordingEventDispatcher>();
                auto first = createInChild(root, events);
                auto second = ZelTaskManager::create(root.at("/system/etc/zel_policy.json"), events);
                _exit(0);
            },
            "");
}

}  // namespace
