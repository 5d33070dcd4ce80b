#include <gtest/gtest.h>

#include <log/log.h>

#include <cstdio>
#include <string>

#include "ZelLog.h"
#include "zel/ZelHostLog.h"

using zel::hostlog::ZelLogCapture;

static_assert(zel::log::baseNameLength("/a/b/ZelTaskManager.cpp") == 14);
static_assert(zel::log::baseNameOffset("/a/b/ZelTaskManager.cpp") == 5);
static_assert(zel::log::baseNameLength("main.cpp") == 4);
static_assert(zel::log::baseNameLength("dir/noext") == 5);
static_assert(zel::log::baseNameLength("dir/x.tar.gz") == 5);  // up to the last dot
static_assert(zel::log::baseNameLength("dir.d/file") == 4);    // a dot in a folder is no extension

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

    const auto lines = capture.lines();
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0].message, "ZelLogTest::TestBody:" + std::to_string(line) + " - hello 42");
    EXPECT_EQ(lines[0].priority, ANDROID_LOG_INFO);
    EXPECT_EQ(lines[0].tag, "zeld");
    EXPECT_EQ(lines[0].bufferId, LOG_ID_SYSTEM);
    EXPECT_EQ(lines[1].priority, ANDROID_LOG_DEBUG);
    EXPECT_EQ(lines[1].message, "ZelLogTest::TestBody:" + std::to_string(line + 1) + " - plain");
    EXPECT_EQ(lines[2].priority, ANDROID_LOG_ERROR);
    EXPECT_EQ(lines[2].message.substr(lines[2].message.find(" - ")), " - fn:7 failed");
    EXPECT_EQ(lines[3].priority, ANDROID_LOG_WARN);
    EXPECT_EQ(lines[3].message.rfind("ZelLogTest::logFromHelperFunction:", 0), 0u);
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

// The minimum level gates stderr only; captures still see every line.
TEST(ZelLog, MinimumLevelFiltersStderr) {
    FILE* sink = tmpfile();
    ASSERT_NE(sink, nullptr);
    const int savedStderr = dup(STDERR_FILENO);
    dup2(fileno(sink), STDERR_FILENO);
    const int savedLevel = zel::hostlog::stderrMinPriority();
    zel::hostlog::setStderrMinPriority(ANDROID_LOG_WARN);
    ZelLogCapture capture;
    ZEL_LOGD("debug-line");
    ZEL_LOGI("info-line");
    ZEL_LOGW("warn-line");
    ZEL_LOGE("error-line");
    zel::hostlog::setStderrMinPriority(savedLevel);
    dup2(savedStderr, STDERR_FILENO);
    close(savedStderr);

    std::string written;
    rewind(sink);
    char buffer[512];
    while (size_t n = fread(buffer, 1, sizeof(buffer), sink)) written.append(buffer, n);
    fclose(sink);

    EXPECT_EQ(written.find("debug-line"), std::string::npos);
    EXPECT_EQ(written.find("info-line"), std::string::npos);
    EXPECT_NE(written.find(" W zeld: ZelLogTest::TestBody:"), std::string::npos) << written;
    EXPECT_NE(written.find("warn-line\n"), std::string::npos);
    EXPECT_NE(written.find(" E zeld: "), std::string::npos);
    EXPECT_EQ(capture.lines().size(), 4u);
}

namespace {
std::string runProbe(const std::string& level) {
    const std::string command = "ZELD_LOG_LEVEL=" + level + " " ZELD_LOG_PROBE_PATH " 2>&1";
    FILE* pipe = popen(command.c_str(), "r");
    std::string output;
    char buffer[512];
    while (size_t n = fread(buffer, 1, sizeof(buffer), pipe)) output.append(buffer, n);
    pclose(pipe);
    return output;
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
