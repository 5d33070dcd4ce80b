// The task record's token draw and answer channel, a task table's first-wins
// insert, and the wait of requests for the end of a purge.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "ZelTaskManagerTestSupport.h"
#include "ZelTestWait.h"
#include "ZelToken.h"

namespace {

// Hands out the outputs it was given, as a 32-bit engine.
class ScriptedEngine {
public:
    using result_type = uint32_t;
    explicit ScriptedEngine(std::vector<uint32_t> outputs) : mOutputs(std::move(outputs)) {}
    static constexpr result_type min() { return 0; }
    static constexpr result_type max() { return 0xFFFFFFFFu; }
    result_type operator()() { return mOutputs.at(mNext++); }
    size_t used() const { return mNext; }

private:
    std::vector<uint32_t> mOutputs;
    size_t mNext = 0;
};

TEST(ZelTaskTest, TokenDrawTakes31BitsAndRejectsTheValueOutsideTheRange) {
    const ZelTokenDistribution& tokens = ZelToken::distribution();
    EXPECT_EQ(tokens.a(), 1u);
    EXPECT_EQ(tokens.b(), 0x7FFFFFFFu);
    ScriptedEngine engine({0xFFFFFFFFu, 0x7FFFFFFFu, 0x80000000u, 0x80000005u, 0x7FFFFFFEu});
    EXPECT_EQ(tokens(engine), 1u);  // two all-ones draws rejected, top bit dropped
    EXPECT_EQ(engine.used(), 3u);
    EXPECT_EQ(tokens(engine), 6u);
    EXPECT_EQ(tokens(engine), 0x7FFFFFFFu);
}

TEST(ZelTaskTest, AnAnswerChannelNeedsContextAndFunctionTogether) {
    EXPECT_EQ(ZelTask::create("c", "t", 1, 10, true, makeTestContext(), nullptr), nullptr);
    EXPECT_EQ(ZelTask::create("c", "t", 1, 10, true, nullptr, &ZelApprovalRecorder::onApproved), nullptr);
    EXPECT_NE(ZelTask::create("c", "t", 1, 10, true, makeTestContext(), &ZelApprovalRecorder::onApproved),
              nullptr);
}

TEST(LockedTaskMapTest, FirstInsertWinsAndEraseReportsPresence) {
    LockedTaskMap table;
    auto first = ZelTask::create("c", "t", 0, 0, false, nullptr, nullptr);
    EXPECT_TRUE(table.insert({"c", "t"}, first));
    EXPECT_FALSE(table.insert({"c", "t"}, ZelTask::create("c", "t", 0, 0, false, nullptr, nullptr)));
    EXPECT_EQ(table.find({"c", "t"}), first);
    EXPECT_FALSE(table.erase({"c", "x"}));
    EXPECT_TRUE(table.erase({"c", "t"}));
    EXPECT_EQ(table.size(), 0u);
}

// A request that arrives during a purge waits until the condition variable
// is notified after the purge has ended; the end itself wakes nobody.
TEST(TaskManagerPurgeWaitTest, RequestsWaitForThePurgeAndTheNextNotification) {
    ZelTestRoot root;
    auto manager = makeTestManager(root, kTaskManagerPolicy, std::make_shared<ZelRecordingEventDispatcher>());
    std::atomic<bool> returned{false};
    std::thread requester;
    {
        // A purge as the reaper runs one; its end notifies nobody.
        ZelReaperSync::Reaper reaper;
        reaper.purge([&] {
            requester = std::thread([&] {
                (void)manager->taskStartRequested("sync", "index", false, 5000, nullptr, nullptr, 2);
                returned = true;
            });
            ASSERT_TRUE(eventually([] { return ZelReaperSync::state().waiting == 1; }));
        });
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_FALSE(returned);
    const ZelReaperSync::State stalled = ZelReaperSync::state();  // as the dump shows it
    EXPECT_FALSE(stalled.purging);
    EXPECT_EQ(stalled.waiting, 1);
    EXPECT_EQ(manager->getTask("sync", "index"), nullptr);

    ZelReaperSync::notify();
    requester.join();
    EXPECT_EQ(manager->getTask("sync", "index")->getState(), TASK_STATE_START_ALLOWED);
}

}  // namespace
