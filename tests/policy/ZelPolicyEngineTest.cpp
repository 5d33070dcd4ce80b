// The engine's answers for tasks the policy does not know; its answers for
// known tasks are in the model.txt of each case, its failure to load is an
// end-to-end table (start-up).
#include <gtest/gtest.h>

#include "ZelLogText.h"
#include "ZelPolicyEngine.h"
#include "ZelTestFiles.h"

namespace {

TEST(ZelPolicyEngineTest, UnknownTasksGetNeutralValuesWithoutLogging) {
    const auto engine = ZelPolicyEngine::create(zelTestDataPath(ZELD_POLICY_CASES "/complete-document/policy.json"));
    ASSERT_NE(engine, nullptr);
    zel::hostlog::ZelLogCapture capture;
    for (const auto& [c, t] : std::vector<TaskKey>{{"mediaService", "nope"}, {"nope", "mediaScan"}, {"", ""},
                                                   {"MEDIASERVICE", "mediaScan"}, {"mediaServicemediaScan", ""}}) {
        SCOPED_TRACE(c + "/" + t);
        EXPECT_EQ(engine->findTask(c, t), nullptr);
        EXPECT_FALSE(engine->isValidTask(c, t) || engine->isPreemptable(c, t) || engine->isAutoStart(c, t));
        EXPECT_EQ(engine->getPriorityType(c, t), "");
        EXPECT_EQ(engine->getMinimumGuaranteedRuntime(c, t), 0);
        EXPECT_EQ(engine->getMemoryRequirement(c, t), 0u);
        EXPECT_TRUE(engine->getAllowList(c, t).empty() && engine->getStartEvents(c, t).empty() &&
                    engine->getStopEvents(c, t).empty());
        EXPECT_TRUE(engine->getStartProperty(c, t).empty() && engine->getStopProperty(c, t).empty());
    }
    EXPECT_TRUE(capture.lines().empty());
}

}  // namespace
