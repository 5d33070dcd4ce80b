#pragma once

#include <string>

#include <binder/IServiceManager.h>
#include <com/ostrel/zeld/test/IZelTestService.h>
#include <gtest/gtest.h>

#include "ZelTestProcess.h"
#include "ZelTestRoot.h"
#include "ZelTestWait.h"

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
