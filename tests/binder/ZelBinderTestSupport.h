#pragma once

#include <signal.h>
#include <spawn.h>
#include <unistd.h>
#include <sys/wait.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <binder/IServiceManager.h>
#include <com/ostrel/zeld/test/IZelTestService.h>
#include <gtest/gtest.h>

#include "ZelTestRoot.h"

// One device root for the whole test program: the binder runtime of a
// process stays on the root it first used, so every test shares it and
// tells its services apart by name.
inline ZelTestRoot& binderTestRoot() {
    static ZelTestRoot* root = new ZelTestRoot();
    return *root;
}

// A service name unique to the running test, on the shared root.
inline std::string testServiceName() {
    binderTestRoot();
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    return std::string("zeld.test.") + info->test_suite_name() + "." + info->name();
}

inline android::sp<com::ostrel::zeld::test::IZelTestService> waitForTestService(const std::string& name) {
    android::sp<android::IServiceManager> sm = android::defaultServiceManager();
    if (sm == nullptr) return nullptr;
    return android::interface_cast<com::ostrel::zeld::test::IZelTestService>(
            sm->getService(android::String16(name.c_str())));
}

// Polls `done` until it holds or ten seconds pass; true when it held.
inline bool eventually(const std::function<bool()>& done) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

// Collects what arrives on binder threads, in arrival order.
template <typename T>
class Inbox {
public:
    void put(T value) {
        std::lock_guard<std::mutex> guard(mLock);
        mItems.push_back(std::move(value));
        mChanged.notify_all();
    }
    bool waitFor(size_t count) {
        std::unique_lock<std::mutex> lock(mLock);
        return mChanged.wait_for(lock, std::chrono::seconds(10), [&] { return mItems.size() >= count; });
    }
    std::vector<T> items() {
        std::lock_guard<std::mutex> guard(mLock);
        return mItems;
    }

private:
    std::mutex mLock;
    std::condition_variable mChanged;
    std::vector<T> mItems;
};

// A helper program run as a separate process; it inherits the environment
// (so ZELD_ROOT). The destructor kills it if it still runs.
class ZelPeerProcess {
public:
    ZelPeerProcess(std::string program, const std::vector<std::string>& args) {
        std::vector<std::string> strings{std::move(program)};
        strings.insert(strings.end(), args.begin(), args.end());
        std::vector<char*> argv;
        for (std::string& arg : strings) argv.push_back(arg.data());
        argv.push_back(nullptr);
        if (posix_spawn(&mPid, argv[0], nullptr, nullptr, argv.data(), environ) != 0) {
            throw std::runtime_error("cannot start " + strings[0]);
        }
    }
    ~ZelPeerProcess() {
        kill(SIGKILL);
        wait();
    }
    ZelPeerProcess(const ZelPeerProcess&) = delete;
    ZelPeerProcess& operator=(const ZelPeerProcess&) = delete;

    void kill(int signal) {
        if (mStatus < 0) ::kill(mPid, signal);
    }
    // Waits for the exit: the exit status, or 128 + signal number.
    int wait() {
        int status = 0;
        while (mStatus < 0 && waitpid(mPid, &status, 0) < 0 && errno == EINTR) {
        }
        if (mStatus < 0) mStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        return mStatus;
    }

private:
    pid_t mPid = -1;
    int mStatus = -1;
};
