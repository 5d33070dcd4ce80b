// The engine's factory and queries over policies loaded from real files.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "PolicyTestLoad.h"
#include "ZelPolicyEngine.h"
#include "ZelTestRoot.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

const char* kPolicy = R"({"version": 1.0,
  "eventGroups": [{"groupName": "g", "groupId": 300,
                   "events": [{"eventName": "on", "eventId": 1}, {"eventName": "off", "eventId": 2}]}],
  "components": [
    {"identifier": "svc", "processName": "svcd", "startProperty": "ctl.start svcd",
     "stopProperty": "ctl.stop svcd", "memoryRequirement": 64, "autostart": true,
     "tasks": [{"identifier": "START_PROCESS", "priorityType": "ZEL_TASK_CRITICAL", "preempt": false},
               {"identifier": "sync", "priorityType": "Normal Priority ",
                "minimumGuaranteedRuntime": 1500}]},
    {"identifier": "svc", "processName": "again", "memoryRequirement": 99, "autostart": true,
     "startProperty": "ctl.start again",
     "tasks": [{"identifier": "orphan", "priorityType": "low", "preempt": true}]}],
  "rules": [
    {"name": "syncAfterStart", "identifier": {"componentId": "svc", "taskId": "sync"},
     "dependencies": {"allowlist": [{"componentId": "svc", "taskId": "START_PROCESS"}],
                      "denylist": [{"componentId": "svc", "taskId": "orphan"}]},
     "actions": [{"message": "ZEL_TASK_STARTED", "events": [{"eventGroup": "g", "eventName": "on"}]},
                 {"message": "ZEL_TASK_COMPLETED", "events": [{"eventGroup": "g", "eventName": "off"},
                                                              {"eventGroup": "g", "eventName": "on"}]}]},
    {"name": "orphanAfterSync", "identifier": {"componentId": "svc", "taskId": "orphan"},
     "dependencies": {"allowlist": [{"componentId": "svc", "taskId": "sync"}]},
     "actions": [{"message": "ZEL_TASK_STARTED", "events": [{"eventGroup": "g", "eventName": "on"}]}]}]
})";

class ZelPolicyEngineTest : public ::testing::Test {
protected:
    std::shared_ptr<ZelPolicyEngine> createFrom(const std::string& text) {
        mRoot.writeFile("/system/etc/zel_policy.json", text);
        return ZelPolicyEngine::create(mPath);
    }

    ZelTestRoot mRoot;
    const std::string mPath = mRoot.at("/system/etc/zel_policy.json");
};

}  // namespace

TEST_F(ZelPolicyEngineTest, CreateFailsWithOneErrorAfterTheLoadersCause) {
    const std::string missing = mRoot.at("/missing.json");
    {
        zel::hostlog::ZelLogCapture capture;
        EXPECT_EQ(ZelPolicyEngine::create(missing), nullptr);
        EXPECT_THAT(policyLogLines(capture),
                    ElementsAre("D creating ZelPolicyEngine", "D building ZelPolicy from file '" + missing + "'",
                                "E Invalid ZEL policy file '" + missing + "'",
                                "E Failed to construct ZEL policy"));
    }
    zel::hostlog::ZelLogCapture capture;
    EXPECT_EQ(createFrom(R"({"version": 2.0})"), nullptr);
    EXPECT_THAT(policyLogLines(capture),
                ElementsAre("D creating ZelPolicyEngine", "D building ZelPolicy from file '" + mPath + "'",
                            "E Failed to construct ZEL policy"));
}

// The golden log of the example policy shows what a successful create logs.
TEST_F(ZelPolicyEngineTest, TaskQueriesAnswerFromTheModelWithoutLogging) {
    const auto engine = createFrom(kPolicy);
    ASSERT_NE(engine, nullptr);
    zel::hostlog::ZelLogCapture capture;

    EXPECT_TRUE(engine->isValidTask("svc", "sync"));
    EXPECT_EQ(engine->getPriorityType("svc", "sync"), "Normal Priority ");
    EXPECT_EQ(engine->getPriorityType("svc", "START_PROCESS"), "ZEL_TASK_CRITICAL");
    EXPECT_EQ(engine->getMinimumGuaranteedRuntime("svc", "sync"), 1500);
    EXPECT_EQ(engine->getMinimumGuaranteedRuntime("svc", "START_PROCESS"), 5000);
    EXPECT_TRUE(engine->isPreemptable("svc", "sync"));
    EXPECT_FALSE(engine->isPreemptable("svc", "START_PROCESS"));
    EXPECT_THAT(engine->getAllowList("svc", "sync"), ElementsAre(TaskKey("svc", "START_PROCESS")));
    EXPECT_THAT(engine->getAllowList("svc", "START_PROCESS"), IsEmpty());
    EXPECT_THAT(engine->getStartEvents("svc", "sync"), ElementsAre(PolicyEvent{44, 1}));
    EXPECT_THAT(engine->getStopEvents("svc", "sync"),
                ElementsAre(PolicyEvent{44, 2}, PolicyEvent{44, 1}));
    EXPECT_TRUE(engine->isAutoStart("svc", "sync"));
    EXPECT_EQ(engine->getMemoryRequirement("svc", "sync"), 64u);
    EXPECT_EQ(engine->getStartProperty("svc", "sync"), (PropertySetting{"ctl.start", "svcd"}));
    EXPECT_EQ(engine->getStopProperty("svc", "START_PROCESS"), (PropertySetting{"ctl.stop", "svcd"}));
    EXPECT_THAT(engine->getAutoStartTasks(), ElementsAre(TaskKey("svc", "START_PROCESS")));

    // Results are copies: changing one leaves the policy as it was.
    auto allow = engine->getAllowList("svc", "sync");
    allow.clear();
    EXPECT_EQ(engine->getAllowList("svc", "sync").size(), 1u);

    EXPECT_TRUE(capture.lines().empty());
}

TEST_F(ZelPolicyEngineTest, UnknownTasksGetNeutralValuesWithoutLogging) {
    const auto engine = createFrom(kPolicy);
    ASSERT_NE(engine, nullptr);
    zel::hostlog::ZelLogCapture capture;
    for (const auto& [comp, task] : std::vector<TaskKey>{{"svc", "nope"}, {"nope", "sync"},
                                                         {"", ""}, {"SVC", "sync"}, {"svcsync", ""}}) {
        SCOPED_TRACE(comp + "/" + task);
        EXPECT_EQ(engine->findTask(comp, task), nullptr);
        EXPECT_FALSE(engine->isValidTask(comp, task));
        EXPECT_EQ(engine->getPriorityType(comp, task), "");
        EXPECT_EQ(engine->getMinimumGuaranteedRuntime(comp, task), 0);
        EXPECT_FALSE(engine->isPreemptable(comp, task));
        EXPECT_THAT(engine->getAllowList(comp, task), IsEmpty());
        EXPECT_THAT(engine->getStartEvents(comp, task), IsEmpty());
        EXPECT_THAT(engine->getStopEvents(comp, task), IsEmpty());
        EXPECT_FALSE(engine->isAutoStart(comp, task));
        EXPECT_EQ(engine->getMemoryRequirement(comp, task), 0u);
        EXPECT_TRUE(engine->getStartProperty(comp, task).empty());
        EXPECT_TRUE(engine->getStopProperty(comp, task).empty());
    }
    EXPECT_TRUE(capture.lines().empty());
}

TEST_F(ZelPolicyEngineTest, TaskOfADroppedComponentAnswersComponentQueriesNeutrally) {
    const auto engine = createFrom(kPolicy);
    ASSERT_NE(engine, nullptr);
    EXPECT_TRUE(engine->isValidTask("svc", "orphan"));
    EXPECT_EQ(engine->getPriorityType("svc", "orphan"), "low");
    EXPECT_TRUE(engine->isPreemptable("svc", "orphan"));
    EXPECT_THAT(engine->getAllowList("svc", "orphan"), ElementsAre(TaskKey("svc", "sync")));
    EXPECT_THAT(engine->getStartEvents("svc", "orphan"), ElementsAre(PolicyEvent{44, 1}));
    EXPECT_FALSE(engine->isAutoStart("svc", "orphan"));
    EXPECT_EQ(engine->getMemoryRequirement("svc", "orphan"), 0u);
    EXPECT_TRUE(engine->getStartProperty("svc", "orphan").empty());
    EXPECT_TRUE(engine->getStopProperty("svc", "orphan").empty());
}

TEST_F(ZelPolicyEngineTest, QueriesFromManyThreadsSeeTheSameAnswers) {
    const auto engine = createFrom(kPolicy);
    ASSERT_NE(engine, nullptr);
    std::atomic<int> mismatches{0};
    auto query = [&] {
        for (int i = 0; i < 2000; ++i) {
            mismatches += engine->getMemoryRequirement("svc", "sync") != 64u ||
                          engine->getAllowList("svc", "sync").size() != 1u ||
                          engine->isValidTask("svc", "missing") || engine->getAutoStartTasks().size() != 1u ||
                          engine->getStopProperty("svc", "sync").value != "svcd";
        }
    };
    std::thread a(query), b(query), c(query), d(query);
    for (std::thread* thread : {&a, &b, &c, &d}) thread->join();
    EXPECT_EQ(mismatches.load(), 0);
}
