// The daemon's entry sequence with stand-in parts: the start-up order, each
// failure's line and status, and the orderly stop, reachable only with a
// listener that reports success.
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <log/log.h>

#include "ZelDaemon.h"
#include "ZelDevicePath.h"
#include "zel/ZelHostLog.h"

namespace {

class StandInParts : public ZelDaemonParts {
public:
    explicit StandInParts(std::string failing = "") : mFailing(std::move(failing)) {}
    ~StandInParts() override {
        if (mSignaller.joinable()) mSignaller.join();
    }

    bool createEventDispatcher(const std::string& name) override { return step("dispatcher " + name); }
    bool createTaskManager(const std::string& policy) override { return step("taskmanager " + policy); }
    bool createActivityListener(const std::string& name) override { return step("listener " + name); }
    bool startActivityListener() override {
        if (!step("start")) return false;
        // Made after the mask is set, as every thread of the daemon is.
        mSignaller = std::thread([this] {
            kill(getpid(), SIGCHLD);
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            mStillWaitingAfterSigchld = !mStopped.load();
            kill(getpid(), SIGTERM);
        });
        return true;
    }
    void stopTaskManager() override {
        mStopped = true;
        calls.push_back("stop taskmanager");
    }
    void stopActivityListener() override { calls.push_back("stop listener"); }
    void stopEventDispatcher() override { calls.push_back("stop dispatcher"); }
    void release() override { calls.push_back("release"); }

    std::vector<std::string> calls;  // written by the sequence's thread only
    // Signals carry no happens-before a race detector can see: atomics.
    std::atomic<bool> mStopped{false};
    std::atomic<bool> mStillWaitingAfterSigchld{false};

private:
    bool step(const std::string& call) {
        calls.push_back(call);
        return call.rfind(mFailing, 0) != 0 || mFailing.empty();
    }
    const std::string mFailing;
    std::thread mSignaller;
};

TEST(ZelDaemonMainTest, EachStartUpFailureIsLoggedAndEndsWithStatusOne) {
    const std::string policy = "taskmanager " + zelDevicePath("/system/etc/zel_policy.json");
    // The dispatcher's and the task manager's failures, and the override
    // switch, are run against the real binary by the end-to-end tables.
    const struct {
        const char* failing;
        const char* message;
        std::vector<std::string> calls;
    } cases[] = {
            {"listener", "Failed to create ZelActivityListener",
             {"dispatcher COM_OSTREL_ZELD", policy, "listener COM_OSTREL_ZELD"}},
            {"start", "Failed to start ZelActivityListener",
             {"dispatcher COM_OSTREL_ZELD", policy, "listener COM_OSTREL_ZELD", "start"}},
    };
    for (const auto& c : cases) {
        zel::hostlog::ZelLogCapture log;
        StandInParts parts(c.failing);
        EXPECT_EQ(ZelDaemon::run(parts), 1) << c.failing;
        EXPECT_EQ(parts.calls, c.calls) << c.failing;
        const std::vector<std::string> errors = log.messages(ANDROID_LOG_ERROR);
        ASSERT_EQ(errors.size(), 1u) << c.failing;
        // "<file>::<function>:<line> - <function>:<line> <message>"
        EXPECT_NE(errors[0].find(" - main:"), std::string::npos) << errors[0];
        EXPECT_NE(errors[0].find(c.message), std::string::npos) << errors[0];
        EXPECT_EQ(log.messages(ANDROID_LOG_INFO).size(), 1u) << "only the start line: no override";
    }
}

TEST(ZelDaemonMainTest, ASuccessfulStartWaitsForSigtermThenStopsInOrder) {
    zel::hostlog::ZelLogCapture log;
    StandInParts parts;
    EXPECT_EQ(ZelDaemon::run(parts), 0);
    EXPECT_TRUE(parts.mStillWaitingAfterSigchld) << "SIGCHLD is consumed and ignored";
    const std::vector<std::string> tail(parts.calls.begin() + 4, parts.calls.end());
    EXPECT_EQ(tail, (std::vector<std::string>{"stop taskmanager", "stop listener", "stop dispatcher",
                                              "release"}));
    const std::vector<std::string> info = log.messages(ANDROID_LOG_INFO);
    ASSERT_EQ(info.size(), 2u);
    EXPECT_NE(info[0].find("ZEL daemon is starting"), std::string::npos);
    EXPECT_NE(info[1].find("ZEL daemon has stopped"), std::string::npos);
}

}  // namespace
