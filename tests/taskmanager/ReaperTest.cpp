// The reaper thread: its commands, the manager's create() that starts it,
// its periodic and woken purges. Tests that start the real reaper run in a
// child process: the reaper cannot be stopped once it waits, and a process
// that exits with it running ends through std::terminate.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

#include "ZelMetricsRecorder.h"
#include "ZelTaskManagerTestSupport.h"
#include "ZelTestWait.h"
#include <log/log.h>
#include "zel/ZelHostLog.h"

namespace {

using std::chrono::milliseconds;

TEST(ReaperTest, StopEndsAReaperThatReadsTheExitCommandFirst) {
    ZelTestRoot root;
    zel::hostlog::ZelLogCapture log;
    auto manager = makeTestManager(root, kTaskManagerPolicy, std::make_shared<ZelRecordingEventDispatcher>());
    ASSERT_EQ(manager->taskStarted("sync", "alarm", 0, -3, nullptr, 2, false), 0);
    ZelReaperSync::command(REAPER_STATE_EXIT);
    ZelReaperSync::adoptThread(std::thread(&ZelTaskManager::reaperFunc, manager.get()));
    manager->stop();
    EXPECT_FALSE(ZelReaperSync::hasThread());
    EXPECT_FALSE(log.contains(ANDROID_LOG_DEBUG, "Timeout, Purging Tasks"));
    EXPECT_NE(manager->getTask("sync", "alarm"), nullptr);  // no purge ran
}

TEST(ReaperTest, UnloadablePolicyGivesNoManagerAndNoReaper) {
    ZelTestRoot root;
    ZelMetricsRecorder metrics;
    zel::hostlog::ZelLogCapture log;
    EXPECT_EQ(ZelTaskManager::create(root.at("/missing.json"), std::make_shared<ZelRecordingEventDispatcher>()),
              nullptr);
    EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, "Failed to create ZelPolicyEngine"));
    EXPECT_EQ(metrics.total("TaskManager", "PolicyEngineInitFailedCount"), 1);
    EXPECT_FALSE(ZelReaperSync::hasThread());
}

// Child process bodies: exit status 0 when every check held.

// True once `purges` purges have ended and no other runs. Read under the
// reaper mutex, which the reaper lets go of only to purge or to wait: it is
// waiting then.
std::function<bool()> purgeOver(uint64_t purges) {
    return [purges] {
        const ZelReaperSync::State state = ZelReaperSync::state();
        return state.purges >= purges && !state.purging;
    };
}
void startQuick(ZelTaskManager& manager) {
    const int32_t requested = manager.taskStartRequested("sync", "quick", false, -3, nullptr, nullptr, 2);
    auto quick = manager.getTask("sync", "quick");
    if (requested != 0 || quick == nullptr ||
        manager.taskStarted("sync", "quick", quick->getToken(), 0, nullptr, 2, false) != 0) {
        _exit(11);
    }
}

// Nothing but reports wakes a request that arrives during a purge, so the
// child makes requests only just after a purge, when the next one is a
// whole period away.
void purgesPeriodicallyAndWhenWoken() {
    ZelTestRoot root;
    zel::hostlog::ZelLogCapture log;
    auto events = std::make_shared<ZelRecordingEventDispatcher>();
    auto manager = createReapedManager(root, events);
    auto purged = [&] { return log.contains(ANDROID_LOG_DEBUG, "Timeout, Purging Tasks"); };
    if (!eventually(purged, milliseconds(7000))) _exit(12);  // at once or after one period
    if (!eventually(purgeOver(1), milliseconds(7000))) _exit(12);

    startQuick(*manager);
    auto gone = [&] { return manager->getTask("sync", "quick") == nullptr; };
    if (!eventually(gone, milliseconds(7000))) _exit(13);  // the next periodic purge
    if (!eventually(purgeOver(2), milliseconds(7000))) _exit(13);

    // A report with running tasks purges long before the period ends.
    startQuick(*manager);
    events->deliverMemoryReport(1, 1, 0, 1000);
    _exit(eventually(gone, milliseconds(3500)) ? 0 : 14);
}

TEST(ReaperTest, PurgesEveryPeriodAndAtOnceWhenWoken) {
    EXPECT_EXIT(purgesPeriodicallyAndWhenWoken(), ::testing::ExitedWithCode(0), "");
}

// The reaper writes its state after each wait, so a stop request that
// arrives while it waits is overwritten and the join never returns.
void stopIsOverwritten() {
    ZelTestRoot root;
    zel::hostlog::ZelLogCapture log;
    auto manager = createReapedManager(root, std::make_shared<ZelRecordingEventDispatcher>());
    if (!eventually(purgeOver(1), milliseconds(7000))) _exit(15);  // the reaper is waiting now
    log.clear();
    std::atomic<bool> stopped{false};
    std::thread([&] {
        manager->stop();
        stopped = true;
    }).detach();
    if (!eventually([&] { return log.contains(ANDROID_LOG_DEBUG, "Timeout, Purging Tasks"); }, milliseconds(3000))) {
        _exit(15);
    }
    std::this_thread::sleep_for(milliseconds(500));
    _exit(stopped ? 16 : 0);
}

TEST(ReaperTest, StopWhileTheReaperWaitsIsOverwritten) {
    EXPECT_EXIT(stopIsOverwritten(), ::testing::ExitedWithCode(0), "");
}

TEST(ReaperTest, SecondCreateInOneProcessTerminatesIt) {
    EXPECT_DEATH(
            {
                ZelTestRoot root;
                auto events = std::make_shared<ZelRecordingEventDispatcher>();
                auto first = createReapedManager(root, events);
                auto second = ZelTaskManager::create(root.at("/system/etc/zel_policy.json"), events);
                _exit(0);
            },
            "");
}

}  // namespace
