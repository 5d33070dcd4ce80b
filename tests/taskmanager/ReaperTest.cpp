// The reaper thread: its commands, the manager's create() that starts it,
// and a stop that its wait overwrites (its periodic and woken purges are in
// the task-manager and daemon tables). Tests that start the real reaper run
// in a child process: the reaper cannot be stopped once it waits, and a
// process that exits with it running ends through std::terminate.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

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
