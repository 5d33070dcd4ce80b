// The daemon's entry sequence with stand-in parts: the start-up order, each
// failure's line and status, the signals blocked, and the orderly stop,
// reachable only with a listener that reports success.
#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <cutils/properties.h>
#include <gtest/gtest.h>
#include <log/log.h>

#include "ZelDaemon.h"
#include "ZelDevicePath.h"
#include "ZelTestRoot.h"
#include "zel/ZelHostLog.h"

// The program links with sigwait wrapped (CMakeLists.txt). While
// gSigwaitFails is set the first wait fails and every later one reports
// SIGTERM at once: a sequence that waited again would still end, and be seen.
std::atomic<bool> gSigwaitFails{false};
std::atomic<int> gSigwaitCalls{0};
extern "C" int __real_sigwait(const sigset_t* set, int* signal);
extern "C" int __wrap_sigwait(const sigset_t* set, int* signal) {
    if (!gSigwaitFails) return __real_sigwait(set, signal);
    if (gSigwaitCalls++ == 0) return EINVAL;
    *signal = SIGTERM;
    return 0;
}

namespace {

class StandInParts : public ZelDaemonParts {
public:
    explicit StandInParts(std::string failing = "", bool signalling = true)
        : mFailing(std::move(failing)), mSignalling(signalling) {
        // Neither signal is blocked before a run: what is blocked after is its doing.
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGTERM);
        sigaddset(&signals, SIGCHLD);
        pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
    }
    ~StandInParts() override {
        if (mSignaller.joinable()) mSignaller.join();
    }

    bool createEventDispatcher(const std::string& name) override { return step("dispatcher " + name); }
    bool createTaskManager(const std::string& policy) override { return step("taskmanager " + policy); }
    bool createActivityListener(const std::string& name) override { return step("listener " + name); }
    bool startActivityListener() override {
        if (!step("start")) return false;
        if (!mSignalling) return true;
        // Made after the mask is set, as every thread of the daemon is.
        mSignaller = std::thread([this] {
            sigset_t mask;
            pthread_sigmask(SIG_BLOCK, nullptr, &mask);
            mBothBlocked = sigismember(&mask, SIGTERM) == 1 && sigismember(&mask, SIGCHLD) == 1;
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
    std::atomic<bool> mBothBlocked{false};

private:
    bool step(const std::string& call) {
        calls.push_back(call);
        return call.rfind(mFailing, 0) != 0 || mFailing.empty();
    }
    const std::string mFailing;
    const bool mSignalling;
    std::thread mSignaller;
};

TEST(ZelDaemonMainTest, EachStartUpFailureIsLoggedAndEndsWithStatusOne) {
    // The override switch set to "false" keeps the system policy.
    const ZelTestRoot root;
    property_set("zeld.config.policy.override", "false");
    const std::string policy = "taskmanager " + zelDevicePath("/system/etc/zel_policy.json");
    // The dispatcher's and the task manager's failures, and the override
    // switch set, are run against the real binary by the end-to-end tables.
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
    EXPECT_TRUE(parts.mBothBlocked) << "a thread made after start-up blocks SIGTERM and SIGCHLD";
    EXPECT_TRUE(parts.mStillWaitingAfterSigchld) << "SIGCHLD is consumed and ignored";
    const std::vector<std::string> tail(parts.calls.begin() + 4, parts.calls.end());
    EXPECT_EQ(tail, (std::vector<std::string>{"stop taskmanager", "stop listener", "stop dispatcher",
                                              "release"}));
    const std::vector<std::string> info = log.messages(ANDROID_LOG_INFO);
    ASSERT_EQ(info.size(), 2u);
    EXPECT_NE(info[0].find("ZEL daemon is starting"), std::string::npos);
    EXPECT_NE(info[1].find("ZEL daemon has stopped"), std::string::npos);
}

TEST(ZelDaemonMainTest, AFailedSignalWaitEndsTheWaitAndStopsInOrder) {
    gSigwaitFails = true;
    StandInParts parts("", false);
    EXPECT_EQ(ZelDaemon::run(parts), 0);
    EXPECT_EQ(gSigwaitCalls, 1) << "a failed wait is not tried again";
    const std::vector<std::string> tail(parts.calls.begin() + 4, parts.calls.end());
    EXPECT_EQ(tail, (std::vector<std::string>{"stop taskmanager", "stop listener", "stop dispatcher",
                                              "release"}));
}

}  // namespace
