// The task record, its tokens, the resource status store, the task table and
// the purge wait.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>
#include <vector>

#include "ZelResourceStatus.h"
#include "ZelTaskManagerTestSupport.h"

namespace {

// The token that the `draws`-th draw from a freshly seeded engine gives: the
// low 31 bits of an engine output plus 1, all-ones being drawn again.
uint32_t firstDrawWithSeed(uint32_t seed, int draws = 1) {
    std::mt19937 engine(seed);
    uint32_t value = 0;
    for (int i = 0; i < draws; ++i) {
        do {
            value = static_cast<uint32_t>(engine()) & 0x7FFFFFFFu;
        } while (value == 0x7FFFFFFFu);
        ++value;
    }
    return value;
}

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
    EXPECT_EQ(gTokenDistribution.a(), 1u);
    EXPECT_EQ(gTokenDistribution.b(), 0x7FFFFFFFu);
    ScriptedEngine engine({0xFFFFFFFFu, 0x7FFFFFFFu, 0x80000000u, 0x80000005u, 0x7FFFFFFEu});
    EXPECT_EQ(gTokenDistribution(engine), 1u);  // two all-ones draws rejected, top bit dropped
    EXPECT_EQ(engine.used(), 3u);
    EXPECT_EQ(gTokenDistribution(engine), 6u);
    EXPECT_EQ(gTokenDistribution(engine), 0x7FFFFFFFu);
    EXPECT_EQ(engine.used(), 5u);
}

void seedTokens(uint32_t seed) {
    std::lock_guard<std::mutex> guard(gTokenLock);
    gTokenEngine.seed(seed);
}

TEST(ZelTaskTest, FactoryNeedsContextAndCallbackTogetherAndDrawsOnlyForARecord) {
    ZelFakeClock clock;
    zel::hostlog::ZelLogCapture log;
    seedTokens(42);
    EXPECT_EQ(ZelTask::create("c", "t", 1, 10, true, makeTestContext(), nullptr), nullptr);
    EXPECT_EQ(ZelTask::create("c", "t", 1, 10, true, nullptr, &ZelApprovalRecorder::onApproved),
              nullptr);
    EXPECT_TRUE(log.lines().empty());

    auto withChannel = ZelTask::create("c", "t", 1, 10, true, makeTestContext(),
                                       &ZelApprovalRecorder::onApproved);
    ASSERT_NE(withChannel, nullptr);
    EXPECT_EQ(withChannel->getToken(), firstDrawWithSeed(42));  // the refusals drew nothing
    auto without = ZelTask::create("comp", "task", 0, -1, false, nullptr, nullptr);
    EXPECT_EQ(without->getToken(), firstDrawWithSeed(42, 2));
    EXPECT_EQ(without->getState(), TASK_STATE_CREATED);
    EXPECT_EQ(without->getStartTime(), 0);

    char text[128];
    snprintf(text, sizeof(text),
             " - New task (comp,task), notify=0, token=%x, duration=-1 , ensureRunTime=0\n",
             without->getToken());
    const std::string message = log.messages(ANDROID_LOG_DEBUG).back();
    EXPECT_EQ(message.rfind("ZelTask::ZelTask:", 0), 0u) << message;
    ASSERT_GE(message.size(), strlen(text));
    EXPECT_EQ(message.substr(message.size() - strlen(text)), text) << message;
}

TEST(ZelTaskTest, RenewalDrawsAfreshToken) {
    seedTokens(7);
    auto task = ZelTask::create("c", "t", 0, 0, false, nullptr, nullptr);
    auto context = makeTestContext();
    task->renewRequest(1, context, &ZelApprovalRecorder::onApproved);
    EXPECT_EQ(task->getToken(), firstDrawWithSeed(7, 2));
    EXPECT_EQ(task->getNotify(), 1);
    EXPECT_EQ(task->getTaskContext(), context);
    EXPECT_EQ(task->getCallback(), &ZelApprovalRecorder::onApproved);
    task->setState(TASK_STATE_RUNNING);  // state changes never draw
    EXPECT_EQ(task->getToken(), firstDrawWithSeed(7, 2));
}

TEST(ZelTaskTest, StateStampsFollowTheClock) {
    ZelFakeClock clock;
    auto task = ZelTask::create("c", "START_PROCESS", 0, 100, false, nullptr, nullptr);
    EXPECT_TRUE(task->isProcessStartTask());
    EXPECT_FALSE(ZelTask::create("c", "START_PROCESS2", 0, 0, false, nullptr, nullptr)
                         ->isProcessStartTask());

    task->resetRunTime(700, true);
    EXPECT_EQ(task->getStartTime(), 1000);
    EXPECT_EQ(task->getDuration(), 700);
    EXPECT_EQ(task->getEnsureRunTime(), 1);

    ZelFakeClock::advance(5);
    for (int32_t state : {TASK_STATE_CREATED, TASK_STATE_START_ALLOWED, TASK_STATE_START_PENDING}) {
        task->setState(state);
        EXPECT_EQ(task->getStartTime(), 1000);
        EXPECT_EQ(task->getEndTime(), 0);
    }
    task->setState(TASK_STATE_RUNNING);
    EXPECT_EQ(task->getStartTime(), 1005);
    task->setState(TASK_STATE_COMPLETED);
    EXPECT_EQ(task->getEndTime(), 1005);
    ZelFakeClock::advance(3);
    task->setState(TASK_STATE_COMPLETED);  // stamped again
    EXPECT_EQ(task->getEndTime(), 1008);
    EXPECT_EQ(task->getStartTime(), 1005);
}

TEST(ZelResourceStatusTest, ThresholdIsStrictAndOnlyAfterAReport) {
    ZelResourceStatus status;
    EXPECT_FALSE(status.isThresholdExceeded(0, UINT64_MAX));
    EXPECT_EQ(status.getStatus(0), 1u);
    EXPECT_EQ(status.getTimestamp(0), 0);

    status.update(0, 4, 700, 1000, 55);
    EXPECT_FALSE(status.isThresholdExceeded(0, 300));
    EXPECT_TRUE(status.isThresholdExceeded(0, 301));
    EXPECT_EQ(status.getStatus(0), 4u);
    EXPECT_EQ(status.getTimestamp(0), 55);

    status.update(1, 2, 0, 0, 99);  // untracked index: nothing stored
    EXPECT_EQ(status.getStatus(0), 4u);
    EXPECT_EQ(status.getStatus(1), 0u);
    EXPECT_EQ(status.getTimestamp(1), 0);
    EXPECT_FALSE(status.isThresholdExceeded(1, UINT64_MAX));
}

TEST(LockedTaskMapTest, FirstInsertWinsAndEraseReportsPresence) {
    LockedTaskMap table;
    auto first = ZelTask::create("c", "t", 0, 0, false, nullptr, nullptr);
    auto second = ZelTask::create("c", "t", 0, 0, false, nullptr, nullptr);
    EXPECT_TRUE(table.insert({"c", "t"}, first));
    EXPECT_FALSE(table.insert({"c", "t"}, second));
    EXPECT_EQ(table.find({"c", "t"}), first);
    EXPECT_EQ(second.use_count(), 1);  // the losing record is not kept

    auto snapshot = table.snapshot();
    EXPECT_FALSE(table.erase({"c", "x"}));
    EXPECT_EQ(table.size(), 1u);
    EXPECT_TRUE(table.erase({"c", "t"}));
    EXPECT_EQ(table.find({"c", "t"}), nullptr);
    EXPECT_EQ(snapshot.at({"c", "t"}), first);  // a snapshot outlives the change
}

void setPurgeInProgress(int value) {
    std::lock_guard<std::mutex> guard(gReaperMutex);
    gPurgeInProgress = value;
}

// A request that arrives during a purge waits until the condition variable
// is notified after the purge has ended; the end itself wakes nobody.
TEST_F(TaskManagerTest, RequestsWaitForThePurgeAndTheNextNotification) {
    setPurgeInProgress(1);
    std::atomic<bool> returned{false};
    std::thread requester([&] {
        request("sync", "index");
        returned = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_FALSE(returned);
    setPurgeInProgress(0);  // as the reaper ends a purge: no notification
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_FALSE(returned);
    EXPECT_EQ(task("sync", "index"), nullptr);

    ZelReaperSync::notify();
    requester.join();
    EXPECT_TRUE(returned);
    EXPECT_EQ(task("sync", "index")->getState(), TASK_STATE_START_ALLOWED);

    // With no purge running the wait passes at once (this would hang otherwise).
    EXPECT_EQ(mManager->taskCompleted("sync", "index"), 0);
}

}  // namespace
