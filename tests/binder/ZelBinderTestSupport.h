#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <thread>

#include <binder/IServiceManager.h>
#include <com/ostrel/zeld/test/IZelTestService.h>

#include "ZelTestRoot.h"

// One device root for the whole test program: the binder runtime of a
// process stays on the root it first used, so every test shares it and
// tells its services apart by name.
inline ZelTestRoot& binderTestRoot() {
    static ZelTestRoot* root = new ZelTestRoot();
    return *root;
}

// A service name unique to the running test.
inline std::string testServiceName(const std::string& suffix = "") {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    return std::string("zeld.test.") + info->test_suite_name() + "." + info->name() + suffix;
}

inline android::sp<com::ostrel::zeld::test::IZelTestService> waitForTestService(const std::string& name) {
    android::sp<android::IServiceManager> sm = android::defaultServiceManager();
    if (sm == nullptr) return nullptr;
    return android::interface_cast<com::ostrel::zeld::test::IZelTestService>(
            sm->getService(android::String16(name.c_str())));
}

// Polls `done` until it holds or `timeout` passes; true when it held.
inline bool eventually(const std::function<bool()>& done,
                       std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}
