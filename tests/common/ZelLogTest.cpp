#include <gtest/gtest.h>

#include <log/log.h>

#include <cstdio>
#include <string>
#include <vector>

#include "ZelLog.h"
#include "ZelTestProcess.h"
#include "zel/ZelHostLog.h"

using zel::hostlog::ZelLogCapture;

namespace {
void logFromHelperFunction() { ZEL_LOGW("from %s", "helper"); }
}  // namespace

TEST(ZelLog, LinesCarryTagLevelAndFileFunctionLinePrefix) {
    ZelLogCapture capture;
    const int line = __LINE__ + 1;
    ZEL_LOGI("hello %d", 42);
    ZEL_LOGD("plain");
    ZEL_LOGE("%s:%d failed", "fn", 7);
    logFromHelperFunction();
    ZEL_LOGD_AS("ZelOther", "operation", "as %s", "another");

    const auto lines = capture.lines();
    std::vector<int> priorities;
    for (const auto& logged : lines) priorities.push_back(logged.priority);
    ASSERT_EQ(priorities, (std::vector<int>{ANDROID_LOG_INFO, ANDROID_LOG_DEBUG, ANDROID_LOG_ERROR, ANDROID_LOG_WARN, ANDROID_LOG_DEBUG}));
    EXPECT_EQ(lines[0].message, "ZelLogTest::TestBody:" + std::to_string(line) + " - hello 42");
    EXPECT_EQ(lines[0].tag, "zeld");
    EXPECT_EQ(lines[0].bufferId, LOG_ID_SYSTEM);
    EXPECT_EQ(lines[1].message, "ZelLogTest::TestBody:" + std::to_string(line + 1) + " - plain");
    EXPECT_EQ(lines[2].message.substr(lines[2].message.find(" - ")), " - fn:7 failed");
    EXPECT_EQ(lines[3].message.rfind("ZelLogTest::logFromHelperFunction:", 0), 0u);
    EXPECT_EQ(lines[4].message, "ZelOther::operation:" + std::to_string(line + 4) + " - as another");
}

TEST(ZelLog, CapturesNestAndLongLinesSurviveWhole) {
    ZelLogCapture outer;
    ZEL_LOGI("first");
    const std::string longText(5000, 'x');
    {
        ZelLogCapture inner;
        ZEL_LOGI("%s", longText.c_str());
        ASSERT_EQ(inner.lines().size(), 1u);
        EXPECT_NE(inner.lines()[0].message.find(longText), std::string::npos);
    }
    ZEL_LOGI("last");
    EXPECT_EQ(outer.lines().size(), 3u);
    EXPECT_TRUE(outer.contains(ANDROID_LOG_INFO, "last"));
    EXPECT_FALSE(outer.contains(ANDROID_LOG_ERROR, "last"));
}

namespace {
// What the probe program writes to stderr under ZELD_LOG_LEVEL=level.
std::string runProbe(const std::string& level) {
    setenv("ZELD_LOG_LEVEL", level.c_str(), 1);
    const ZelProgramRun run = runZelProgram(ZELD_LOG_PROBE_PATH, {});
    unsetenv("ZELD_LOG_LEVEL");
    return run.err;
}
bool has(const std::string& text, const std::string& needle) {
    return text.find(needle) != std::string::npos;
}
}  // namespace

TEST(ZelLog, EnvironmentChoosesStartLevelDefaultingToDebug) {
    const std::string all = runProbe("");
    EXPECT_TRUE(has(all, "probe-debug") && has(all, "probe-error")) << all;

    const std::string info = runProbe("info");
    EXPECT_FALSE(has(info, "probe-debug"));
    EXPECT_TRUE(has(info, "probe-info"));

    const std::string error = runProbe("e");
    EXPECT_FALSE(has(error, "probe-warn"));
    EXPECT_TRUE(has(error, " E zeld: zeld_log_probe::main:"));

    EXPECT_EQ(runProbe("silent"), "");
}
