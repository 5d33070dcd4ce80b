// The example policy shipped for the host demo: the daemon loads it without a
// warning, and its complete load log is fixed by a golden file. Set
// ZELD_UPDATE_GOLDEN=1 to rewrite the golden file after a deliberate change.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

#include "PolicyTestLoad.h"
#include "ZelDevicePath.h"
#include "ZelPolicyEngine.h"
#include "ZelTestRoot.h"

namespace {

const std::string kGoldenPath = std::string(ZELD_POLICY_GOLDEN_DIR) + "/example_policy_load.log";

std::string joinLines(const std::vector<std::string>& lines, const std::string& path) {
    std::string text;
    for (std::string line : lines) {
        for (auto at = line.find(path); at != std::string::npos; at = line.find(path)) {
            line.replace(at, path.size(), "$POLICY");
        }
        text += line + "\n";
    }
    return text;
}

}  // namespace

TEST(ZelPolicyExampleTest, LoadsWithoutWarningLogsTheGoldenLinesAndHoldsTheDemoComponents) {
    ZelTestRoot root;
    root.writeFile("/system/etc/zel_policy.json", readTextFile(ZELD_EXAMPLE_POLICY));
    const std::string path = zelDevicePath("/system/etc/zel_policy.json");

    zel::hostlog::ZelLogCapture capture;
    const auto engine = ZelPolicyEngine::create(path);
    ASSERT_NE(engine, nullptr);
    EXPECT_TRUE(capture.messages(ANDROID_LOG_WARN).empty());
    EXPECT_TRUE(capture.messages(ANDROID_LOG_ERROR).empty());

    const std::string log = joinLines(policyLogLines(capture, true), path);
    if (std::getenv("ZELD_UPDATE_GOLDEN") != nullptr) {
        std::ofstream(kGoldenPath, std::ios::binary | std::ios::trunc) << log;
    }
    EXPECT_EQ(log, readTextFile(kGoldenPath));

    // The components the host demo relies on.
    using ::testing::ElementsAre;
    EXPECT_THAT(engine->getAutoStartTasks(), ElementsAre(TaskKey("navigation", "START_PROCESS")));
    EXPECT_EQ(engine->getStartProperty("navigation", "START_PROCESS"),
              (PropertySetting{"ctl.start", "navd"}));
    EXPECT_EQ(engine->getPriorityType("diagnostics", "crashUpload"), "ZEL_TASK_CRITICAL");
    EXPECT_EQ(engine->getMemoryRequirement("mediaIndexer", "thumbnailCache"), 120u);
    EXPECT_TRUE(engine->isPreemptable("mediaIndexer", "thumbnailCache"));
    EXPECT_THAT(engine->getAllowList("systemUpdate", "updateInstall"),
                ElementsAre(TaskKey("systemUpdate", "updateDownload"),
                            TaskKey("navigation", "START_PROCESS")));
    EXPECT_THAT(engine->getAllowList("systemUpdate", "updateDownload"),
                ElementsAre(TaskKey("systemUpdate", "updateCheck")));
    EXPECT_THAT(engine->getStopEvents("navigation", "START_PROCESS"),
                ElementsAre(PolicyEvent{3, 2}));
}
