// Documents the loader accepts, and what the model holds afterwards.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "PolicyTestLoad.h"
#include "ZelTestRoot.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

const char* kFullDocument = R"({"version": 1.0,
  "eventGroups": [{"groupName": "taskEvents", "groupId": 3, "events": [
    {"eventName": "mediaScanStarted", "eventId": 1}, {"eventName": "mediaScanDone", "eventId": 2}]}],
  "components": [{"identifier": "mediaService", "processName": "mediaserviced", "memoryRequirement": 40,
    "startProperty": "ctl.start mediaserviced", "stopProperty": "ctl.stop mediaserviced", "autostart": true,
    "tasks": [{"identifier": "START_PROCESS", "priorityType": "ZEL_TASK_CRITICAL"},
              {"identifier": "mediaScan", "priorityType": "normal", "priorityValue": 2,
               "minimumGuaranteedRuntime": 600, "preempt": true}]}],
  "rules": [{"name": "scanAfterStart", "identifier": {"componentId": "mediaService", "taskId": "mediaScan"},
    "dependencies": {"allowlist": [{"componentId": "mediaService", "taskId": "START_PROCESS"}], "denylist": []},
    "actions": [
      {"message": "ZEL_TASK_STARTED", "events": [{"eventGroup": "taskEvents", "eventName": "mediaScanStarted"}]},
      {"message": "ZEL_TASK_COMPLETED", "events": [{"eventGroup": "taskEvents", "eventName": "mediaScanDone"}]}]}]
})";


}  // namespace

TEST(ZelPolicyLoadTest, CompleteDocumentFillsEveryPartOfTheModel) {
    const PolicyTestLoad load = loadPolicyText(kFullDocument);
    ASSERT_TRUE(load.accepted);
    EXPECT_THAT(load.log,
                ElementsAre("D Added event group (taskEvents, 3)",
                            "D Added event (mediaScanStarted, 1) to eventGroup taskEvents",
                            "D Added event (mediaScanDone, 2) to eventGroup taskEvents",
                            "I Parsed eventGroups and events",
                            "I Added component (mediaService, mediaserviced)",
                            "D Added task (START_PROCESS, ZEL_TASK_CRITICAL) to component mediaService",
                            "D Auto start task mediaService, in component START_PROCESS",
                            "D Added task (mediaScan, normal) to component mediaService",
                            "I Comp:mediaService, Task:mediaScan depends on Comp:mediaService, "
                            "Task:START_PROCESS",
                            "D Added start event (taskEvents, mediaScanStarted) to 'mediaScan'",
                            "D Added stop event (taskEvents, mediaScanDone) to 'mediaScan'"));

    const ZelPolicy& policy = *load.policy;
    EXPECT_EQ(policy.eventGroups.at("taskEvents"), 3);
    EXPECT_EQ(policy.groupEvents.at("taskEvents").at("mediaScanDone"), 2);
    EXPECT_EQ(policy.eventGroups.max_load_factor(), 1.0f);
    EXPECT_EQ(policy.groupEvents.at("taskEvents").max_load_factor(), 1.0f);

    ASSERT_EQ(policy.components.size(), 1u);
    const PolicyComponent& component = *policy.components.at("mediaService");
    EXPECT_EQ(component.processName, "mediaserviced");
    EXPECT_EQ(component.startProperty, (PropertySetting{"ctl.start", "mediaserviced"}));
    EXPECT_EQ(component.stopProperty, (PropertySetting{"ctl.stop", "mediaserviced"}));
    EXPECT_EQ(component.memoryRequirement, 40u);
    EXPECT_TRUE(component.autostart);

    ASSERT_EQ(policy.taskTable->size(), 2u);
    const auto scan = policy.taskTable->find({"mediaService", "mediaScan"});
    ASSERT_NE(scan, nullptr);
    EXPECT_EQ(scan->priorityType, "normal");
    EXPECT_EQ(scan->priorityValue, 2);
    EXPECT_EQ(scan->minimumGuaranteedRuntime, 600);
    EXPECT_TRUE(scan->preempt);
    EXPECT_EQ(scan->component.lock().get(), &component);
    EXPECT_THAT(scan->allowList, ElementsAre(TaskKey("mediaService", "START_PROCESS")));
    EXPECT_THAT(scan->denyList, IsEmpty());
    EXPECT_THAT(scan->startEvents, ElementsAre(PolicyEvent{3, 1}));
    EXPECT_THAT(scan->stopEvents, ElementsAre(PolicyEvent{3, 2}));

    const auto start = policy.taskTable->find({"mediaService", "START_PROCESS"});
    ASSERT_NE(start, nullptr);
    EXPECT_EQ(start->priorityType, "ZEL_TASK_CRITICAL");
    EXPECT_THAT(start->startEvents, IsEmpty());
    EXPECT_THAT(policy.autoStartTasks, ElementsAre(TaskKey("mediaService", "START_PROCESS")));
}

TEST(ZelPolicyLoadTest, EmptySectionsGiveAnEmptyPolicyWithVersionInEveryDoubleSpellingOfOne) {
    for (const char* version : {"1.0", "1.00", "1e0", "10e-1", "0.1e1"}) {
        SCOPED_TRACE(version);
        const PolicyTestLoad load = loadPolicyText(std::string(R"({"version": )") + version +
                                                   R"(, "eventGroups": [], "components": [], "rules": []})");
        ASSERT_TRUE(load.accepted);
        EXPECT_THAT(load.log, ElementsAre("I Parsed eventGroups and events"));
        EXPECT_TRUE(load.policy->eventGroups.empty());
        EXPECT_TRUE(load.policy->components.empty());
        EXPECT_EQ(load.policy->taskTable->size(), 0u);
        EXPECT_TRUE(load.policy->autoStartTasks.empty());
    }
}

TEST(ZelPolicyLoadTest, OptionalMembersTakeTheirDefaultsAndFlagsNeedTheLiteralTrue) {
    const PolicyTestLoad load = loadPolicyText(policyDocument("[]", R"([
      {"identifier": "plain", "processName": "p",
       "tasks": [{"identifier": "t", "priorityType": "x"}]},
      {"identifier": "flags", "processName": "p", "autostart": 1,
       "tasks": [{"identifier": "START_PROCESS", "priorityType": "x", "preempt": 0},
                 {"identifier": "s", "priorityType": "x", "preempt": "true"},
                 {"identifier": "f", "priorityType": "x", "preempt": false},
                 {"identifier": "n", "priorityType": "x", "preempt": null}]},
      {"identifier": "textFlag", "processName": "p", "autostart": "true",
       "tasks": [{"identifier": "START_PROCESS", "priorityType": "x"}]}])"));
    ASSERT_TRUE(load.accepted);
    const ZelPolicy& policy = *load.policy;

    const PolicyComponent& plain = *policy.components.at("plain");
    EXPECT_EQ(plain.memoryRequirement, 0u);
    EXPECT_TRUE(plain.startProperty.empty());
    EXPECT_TRUE(plain.stopProperty.empty());
    EXPECT_FALSE(plain.autostart);
    const auto task = policy.taskTable->find({"plain", "t"});
    EXPECT_EQ(task->priorityValue, 1);
    EXPECT_EQ(task->minimumGuaranteedRuntime, 5000);
    EXPECT_TRUE(task->preempt);

    EXPECT_FALSE(policy.components.at("flags")->autostart);
    EXPECT_FALSE(policy.components.at("textFlag")->autostart);
    for (const char* id : {"START_PROCESS", "s", "f", "n"}) {
        SCOPED_TRACE(id);
        EXPECT_FALSE(policy.taskTable->find({"flags", id})->preempt);
    }
    EXPECT_TRUE(policy.autoStartTasks.empty());
}

TEST(ZelPolicyLoadTest, PropertiesSplitOnlyIntoExactlyTwoPartsOnSingleSpaces) {
    const PolicyTestLoad load = loadPolicyText(policyDocument("[]", R"([
      {"identifier": "a", "processName": "p", "startProperty": "persist.sys.x 1",
       "stopProperty": "persist.sys.x", "tasks": []},
      {"identifier": "b", "processName": "p", "startProperty": "a b c",
       "stopProperty": "a  b", "tasks": []},
      {"identifier": "c", "processName": "p", "startProperty": "",
       "stopProperty": "ctl.stop svc", "tasks": []}])"));
    ASSERT_TRUE(load.accepted);
    const auto& components = load.policy->components;
    EXPECT_EQ(components.at("a")->startProperty, (PropertySetting{"persist.sys.x", "1"}));
    EXPECT_TRUE(components.at("a")->stopProperty.empty());
    EXPECT_TRUE(components.at("b")->startProperty.empty());
    EXPECT_TRUE(components.at("b")->stopProperty.empty());
    EXPECT_TRUE(components.at("c")->startProperty.empty());
    EXPECT_EQ(components.at("c")->stopProperty, (PropertySetting{"ctl.stop", "svc"}));

    // A leading or trailing space still makes two parts, one of them empty.
    EXPECT_EQ(PropertySetting::fromDocumentText(" v"), (PropertySetting{"", "v"}));
    EXPECT_EQ(PropertySetting::fromDocumentText("n "), (PropertySetting{"n", ""}));
    EXPECT_TRUE(PropertySetting::fromDocumentText(" ").empty());
    EXPECT_TRUE(PropertySetting::fromDocumentText("a\tb").empty());
}

TEST(ZelPolicyLoadTest, RepeatedNamesKeepTheirFirstDefinition) {
    const PolicyTestLoad load = loadPolicyText(policyDocument(
            R"([{"groupName": "g", "groupId": 1, "events": [{"eventName": "a", "eventId": 10}]},
                {"groupName": "g", "groupId": 2, "events": [{"eventName": "a", "eventId": 20},
                                                            {"eventName": "b", "eventId": 30}]}])",
            R"([{"identifier": "c", "processName": "first", "memoryRequirement": 7, "autostart": true,
                 "tasks": [{"identifier": "t", "priorityType": "one"},
                           {"identifier": "t", "priorityType": "two"}]},
                {"identifier": "c", "processName": "second", "memoryRequirement": 9,
                 "tasks": [{"identifier": "t", "priorityType": "three"},
                           {"identifier": "u", "priorityType": "four"}]}])"));
    ASSERT_TRUE(load.accepted);
    EXPECT_THAT(load.log,
                ElementsAre("D Added event group (g, 1)", "D Added event (a, 10) to eventGroup g",
                            "D Added event group (g, 2)", "D Added event (a, 20) to eventGroup g",
                            "D Added event (b, 30) to eventGroup g",
                            "I Parsed eventGroups and events", "I Added component (c, first)",
                            "D Added task (t, one) to component c",
                            "D Added task (t, two) to component c",
                            "I Added component (c, second)",
                            "D Added task (t, three) to component c",
                            "D Added task (u, four) to component c"));
    const ZelPolicy& policy = *load.policy;
    EXPECT_EQ(policy.eventGroups.at("g"), 1);
    EXPECT_EQ(policy.groupEvents.at("g").at("a"), 10);
    EXPECT_EQ(policy.groupEvents.at("g").at("b"), 30);

    ASSERT_EQ(policy.components.size(), 1u);
    EXPECT_EQ(policy.components.at("c")->processName, "first");
    EXPECT_EQ(policy.taskTable->size(), 2u);
    EXPECT_EQ(policy.taskTable->find({"c", "t"})->priorityType, "one");
    EXPECT_EQ(policy.taskTable->find({"c", "t"})->component.lock().get(), policy.components.at("c").get());
    // The second component's new task points at the dropped record.
    const auto orphan = policy.taskTable->find({"c", "u"});
    ASSERT_NE(orphan, nullptr);
    EXPECT_TRUE(orphan->component.expired());
}

TEST(ZelPolicyLoadTest, GroupIdsAreNarrowedToEightBitsAndEventIdsKeptWhole) {
    const PolicyTestLoad load = loadPolicyText(policyDocument(
            R"([{"groupName": "wide", "groupId": 300,
                 "events": [{"eventName": "big", "eventId": 2147483647}]},
                {"groupName": "negative", "groupId": -1,
                 "events": [{"eventName": "low", "eventId": -5}]}])",
            R"([{"identifier": "c", "processName": "p",
                 "tasks": [{"identifier": "t", "priorityType": "x"}]}])",
            R"([{"name": "r", "identifier": {"componentId": "c", "taskId": "t"},
                 "actions": [{"message": "ZEL_TASK_STARTED",
                              "events": [{"eventGroup": "wide", "eventName": "big"},
                                         {"eventGroup": "negative", "eventName": "low"}]}]}])"));
    ASSERT_TRUE(load.accepted);
    EXPECT_EQ(load.policy->eventGroups.at("wide"), 300);
    EXPECT_THAT(load.policy->taskTable->find({"c", "t"})->startEvents,
                ElementsAre(PolicyEvent{44, 2147483647}, PolicyEvent{255, -5}));
}

TEST(ZelPolicyLoadTest, RulesAttachToAnyDefinedTaskAndAppendInDocumentOrder) {
    const PolicyTestLoad load = loadPolicyText(policyDocument(
            R"([{"groupName": "g", "groupId": 3, "events": [{"eventName": "e1", "eventId": 1},
                                                            {"eventName": "e2", "eventId": 2}]}])",
            R"([{"identifier": "early", "processName": "p",
                 "tasks": [{"identifier": "t", "priorityType": "x"}]},
                {"identifier": "late", "processName": "q",
                 "tasks": [{"identifier": "u", "priorityType": "x"}]}])",
            R"([{"name": "first", "identifier": {"componentId": "early", "taskId": "t"},
                 "dependencies": {"allowlist": [{"componentId": "late", "taskId": "u"},
                                                {"componentId": "early", "taskId": "t"}],
                                  "denylist": [{"componentId": "late", "taskId": "u"}]},
                 "actions": [{"message": "ZEL_TASK_STARTED",
                              "events": [{"eventGroup": "g", "eventName": "e2"}]},
                             {"message": "ZEL_TASK_PAUSED",
                              "events": [{"eventGroup": "g", "eventName": "e1"}]}]},
                {"name": "second", "identifier": {"componentId": "early", "taskId": "t"},
                 "dependencies": {"allowlist": [{"componentId": "late", "taskId": "u"}]},
                 "actions": [{"message": "ZEL_TASK_STARTED",
                              "events": [{"eventGroup": "g", "eventName": "e1"}]}]}])"));
    ASSERT_TRUE(load.accepted);
    const auto task = load.policy->taskTable->find({"early", "t"});
    EXPECT_THAT(task->allowList,
                ElementsAre(TaskKey("late", "u"), TaskKey("early", "t"), TaskKey("late", "u")));
    EXPECT_THAT(task->denyList, ElementsAre(TaskKey("late", "u")));
    EXPECT_THAT(task->startEvents, ElementsAre(PolicyEvent{3, 2}, PolicyEvent{3, 1}));
    EXPECT_THAT(task->stopEvents, IsEmpty());

    // The unknown message is neither stored nor reported.
    const std::vector<std::string> ruleLines(load.log.begin() + 8, load.log.end());
    EXPECT_THAT(ruleLines,
                ElementsAre("I Comp:early, Task:t depends on Comp:late, Task:u",
                            "I Comp:early, Task:t depends on Comp:early, Task:t",
                            "I Comp:early, Task:t depends on Comp:late, Task:u",
                            "D Added start event (g, e2) to 't'",
                            "I Comp:early, Task:t depends on Comp:late, Task:u",
                            "I Rule 'second' definition doesn't include denyList member.",
                            "D Added start event (g, e1) to 't'"));
}

TEST(ZelPolicyLoadTest, OnlyStartProcessOfAutoStartComponentsIsListedInDocumentOrder) {
    const PolicyTestLoad load = loadPolicyText(policyDocument("[]", R"([
      {"identifier": "zeta", "processName": "p", "autostart": true,
       "tasks": [{"identifier": "work", "priorityType": "x"},
                 {"identifier": "START_PROCESS", "priorityType": "x"}]},
      {"identifier": "alpha", "processName": "p", "autostart": true,
       "tasks": [{"identifier": "START_PROCESS", "priorityType": "x"}]},
      {"identifier": "manual", "processName": "p",
       "tasks": [{"identifier": "START_PROCESS", "priorityType": "x"}]},
      {"identifier": "lower", "processName": "p", "autostart": true,
       "tasks": [{"identifier": "start_process", "priorityType": "x"}]}])"));
    ASSERT_TRUE(load.accepted);
    EXPECT_THAT(load.policy->autoStartTasks,
                ElementsAre(TaskKey("zeta", "START_PROCESS"), TaskKey("alpha", "START_PROCESS")));
    EXPECT_THAT(load.log, ::testing::Contains("D Auto start task alpha, in component START_PROCESS"));
}

TEST(ZelPolicyLoadTest, FaultyRulePiecesAreSkippedWithTheirMessage) {
    const PolicyTestLoad load = loadPolicyText(policyWithRules(R"([
      {"name": "bare", "identifier": {"componentId": "c", "taskId": "t"}, "actions": []},
      {"name": "listDeps", "identifier": {"componentId": "c", "taskId": "t"},
       "dependencies": [], "actions": []},
      {"name": "noLists", "identifier": {"componentId": "c", "taskId": "t"},
       "dependencies": {"allowlist": {}, "denylist": "none"},
       "actions": [
         "notAnObject",
         {"message": "ZEL_TASK_STARTED"},
         {"events": []},
         {"message": "ZEL_TASK_STARTED", "events": {}},
         {"message": "ZEL_TASK_COMPLETED",
          "events": [7, {"eventGroup": "g"}, {"eventName": "e"},
                     {"eventGroup": "g", "eventName": "e"}]}]}])"));
    ASSERT_TRUE(load.accepted);
    const std::vector<std::string> ruleLines(load.log.begin() + 5, load.log.end());
    EXPECT_THAT(ruleLines,
                ElementsAre("I Rule 'bare' definition doesn't has any dependencies defined",
                            "I Rule 'listDeps' definition doesn't has any dependencies defined",
                            "I Rule 'noLists' definition doesn't include allowList member.",
                            "I Rule 'noLists' definition doesn't include denyList member.",
                            "W Rule 'noLists' definition doesn't includes actions member.",
                            "W Rule 'noLists' definition doesn't includes actions member.",
                            "W Rule 'noLists' definition doesn't includes actions member.",
                            "W Action 'ZEL_TASK_STARTED' definition doesn't includes events member.",
                            "W Action 'ZEL_TASK_COMPLETED' definition includes invalid event.",
                            "W Action 'ZEL_TASK_COMPLETED' definition includes invalid event.",
                            "W Action 'ZEL_TASK_COMPLETED' definition includes invalid event.",
                            "D Added stop event (g, e) to 't'"));
    EXPECT_THAT(load.policy->taskTable->find({"c", "t"})->stopEvents,
                ElementsAre(PolicyEvent{3, 1}));
}

TEST(ZelPolicyLoadTest, JsonDetailsFollowTheParser) {
    // A repeated key reads its first occurrence.
    PolicyTestLoad load = loadPolicyText(policyDocument("[]", R"([
      {"identifier": "first", "identifier": "second", "processName": "p", "tasks": []}])"));
    ASSERT_TRUE(load.accepted);
    EXPECT_EQ(load.policy->components.count("first"), 1u);

    // The document ends at the first NUL byte.
    std::string text = policyDocument("[]", "[]");
    text += std::string("\0 trailing garbage", 18);
    EXPECT_TRUE(loadPolicyText(text).accepted);

    // Escaped NUL characters stay inside names.
    load = loadPolicyText(policyDocument("[]", R"([
      {"identifier": "a\u0000b", "processName": "p", "tasks": []}])"));
    ASSERT_TRUE(load.accepted);
    EXPECT_EQ(load.policy->components.count(std::string("a\0b", 3)), 1u);

    // Deep nesting in an unread member neither crashes nor changes the outcome.
    const std::string deep = std::string(100000, '[') + std::string(100000, ']');
    EXPECT_TRUE(loadPolicyText(R"({"version": 1.0, "deep": )" + deep +
                               R"(, "eventGroups": [], "components": [], "rules": []})")
                        .accepted);
}

TEST(ZelPolicyLoadTest, FileIsReadWholeAndLoadedOrReportedMissing) {
    ZelTestRoot root;
    const std::string path = root.at("/system/etc/zel_policy.json");
    root.writeFile("/system/etc/zel_policy.json", policyDocument("[]", "[]"));
    PolicyTestLoad load = loadPolicyFile(path);
    EXPECT_TRUE(load.accepted);
    EXPECT_THAT(load.log, ElementsAre("D building ZelPolicy from file '" + path + "'",
                                      "I Parsed eventGroups and events"));

    // A text larger than one read chunk.
    std::string big = "[";
    for (int i = 0; i < 5000; ++i) {
        big += std::string(i ? "," : "") + R"({"identifier": "c)" + std::to_string(i) +
               R"(", "processName": "p", "tasks": []})";
    }
    root.writeFile("/system/etc/zel_policy.json", policyDocument("[]", big + "]"));
    load = loadPolicyFile(path);
    EXPECT_TRUE(load.accepted);
    EXPECT_EQ(load.policy->components.size(), 5000u);

    const std::string missing = root.at("/data/zeld/zel_policy.json");
    load = loadPolicyFile(missing);
    EXPECT_FALSE(load.accepted);
    EXPECT_THAT(load.log, ElementsAre("D building ZelPolicy from file '" + missing + "'",
                                      "E Invalid ZEL policy file '" + missing + "'"));
}
