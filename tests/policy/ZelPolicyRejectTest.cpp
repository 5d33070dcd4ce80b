// Documents the loader refuses: each gives its one message at its level, and
// the complete log shows that nothing after the first fault was read.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "PolicyRapidJson.h"
#include "PolicyTestLoad.h"

using ::testing::ElementsAreArray;

namespace {

struct Refusal {
    const char* what;
    std::string document;
    std::vector<std::string> log;  // the complete log of the load
};

void expectRefusals(const std::vector<Refusal>& cases) {
    for (const Refusal& refusal : cases) {
        SCOPED_TRACE(refusal.what);
        const PolicyTestLoad load = loadPolicyText(refusal.document);
        EXPECT_FALSE(load.accepted);
        EXPECT_THAT(load.log, ElementsAreArray(refusal.log));
    }
}

std::vector<std::string> plus(std::vector<std::string> head, const std::vector<std::string>& tail) {
    head.insert(head.end(), tail.begin(), tail.end());
    return head;
}

// What policyWithRules() logs before its rules.
const std::vector<std::string> kBaseLog = {
        "D Added event group (g, 3)", "D Added event (e, 1) to eventGroup g",
        "I Parsed eventGroups and events", "I Added component (c, p)",
        "D Added task (t, normal) to component c"};

const std::string kValidRule =
        R"({"name": "later", "identifier": {"componentId": "c", "taskId": "t"},
            "actions": [{"message": "ZEL_TASK_STARTED",
                         "events": [{"eventGroup": "g", "eventName": "e"}]}]})";

}  // namespace

TEST(ZelPolicyRejectTest, UnparsableTextOrBadVersion) {
    const std::string format = "E Invalid ZEL policy file format";
    const std::string version = "E ZEL policy doc is missing version";
    const std::string tail = R"(, "eventGroups": [], "components": [], "rules": []})";
    expectRefusals({
            {"empty text", "", {format}},
            {"root array", "[]", {format}},
            {"root string", "\"policy\"", {format}},
            {"comment", "{\"version\": 1.0 /* one */" + tail, {format}},
            {"trailing comma", R"({"version": 1.0, "eventGroups": [], "components": [], "rules": [],})",
             {format}},
            {"NaN", R"({"version": NaN)" + tail, {format}},
            {"text after the root", R"({"version": 1.0)" + tail + " {}", {format}},
            {"raw control character", "{\"version\": 1.0, \"x\": \"a\tb\"" + tail, {format}},
            {"NUL before the end", std::string("{\"version\": 1.0\0", 16) + tail, {format}},
            {"no version", R"({"eventGroups": [], "components": [], "rules": []})", {version}},
            {"integer version", R"({"version": 1)" + tail, {version}},
            {"string version", R"({"version": "1.0")" + tail, {version}},
            {"Version in capitals", R"({"Version": 1.0)" + tail, {version}},
            {"version 2.0 is silent", R"({"version": 2.0)" + tail, {}},
            {"version 1.1 is silent", R"({"version": 1.1)" + tail, {}},
            {"silent even with bad sections", R"({"version": 0.5, "rules": 7})", {}},
    });
}

TEST(ZelPolicyRejectTest, MissingOrMistypedSections) {
    const std::string none = "E ZEL policy doc has no events, components, or rules";
    const std::string goodGroups = R"([{"groupName": "g", "groupId": 1, "events": []}])";
    expectRefusals({
            // All three are tested before the first group is read.
            {"no rules", R"({"version": 1.0, "eventGroups": )" + goodGroups +
                                 R"(, "components": []})", {none}},
            {"no components", R"({"version": 1.0, "eventGroups": [], "rules": []})", {none}},
            {"no groups", R"({"version": 1.0, "components": [], "rules": []})", {none}},
            {"groups not an array", policyDocument("{}", "[]"),
             {"E Invalid event group definition in ZEL policy document."}},
            {"components not an array", policyDocument(goodGroups, "7"),
             {"D Added event group (g, 1)", "I Parsed eventGroups and events",
              "E Invalid component definition in ZEL policy document."}},
            {"rules not an array", policyDocument("[]", "[]", "{}"),
             {"I Parsed eventGroups and events",
              "E Invalid rules definition in ZEL policy document."}},
    });
}

TEST(ZelPolicyRejectTest, FaultyEventGroupsAndEvents) {
    const std::string group = "E Invalid event group definition in ZEL policy document.";
    const std::string event = "E Invalid event definition in ZEL policy document.";
    const std::string noEvents = "E Invalid event definition for eventGroup b";
    const std::string added = "D Added event group (b, 2)";
    // Group "a", then `faulty`, then a valid group that must never be read.
    auto afterA = [](const std::string& faulty) {
        return policyDocument(R"([{"groupName": "a", "groupId": 1, "events": []}, )" + faulty +
                                R"(, {"groupName": "next", "groupId": 9, "events": []}])", "[]");
    };
    auto only = [](const std::string& faulty) { return policyDocument("[" + faulty + "]", "[]"); };
    // Group "b" (id 2) with `events`.
    auto withEvents = [&](const std::string& events) {
        return only(R"({"groupName": "b", "groupId": 2, "events": )" + events + "}");
    };
    expectRefusals({
            {"group not an object", afterA("5"), {"D Added event group (a, 1)", group}},
            {"group without id", afterA(R"({"groupName": "b", "events": []})"),
             {"D Added event group (a, 1)", group}},
            {"group without name", only(R"({"groupId": 2, "events": []})"), {group}},
            {"group name a number", only(R"({"groupName": 4, "groupId": 2, "events": []})"), {group}},
            {"group id a fraction", only(R"({"groupName": "b", "groupId": 2.5, "events": []})"), {group}},
            {"group id beyond 32 bits", only(R"({"groupName": "b", "groupId": 4294967296, "events": []})"),
             {group}},
            {"group without events", only(R"({"groupName": "b", "groupId": 2})"), {added, noEvents}},
            {"events not an array", withEvents("{}"), {added, noEvents}},
            {"event without id",
             withEvents(R"([{"eventName": "x", "eventId": 1}, {"eventName": "y"}, {"eventName": "z", "eventId": 3}])"),
             {added, "D Added event (x, 1) to eventGroup b", event}},
            {"event name not a string", withEvents(R"([{"eventName": [], "eventId": 1}])"), {added, event}},
            {"event not an object", withEvents(R"(["x"])"), {added, event}},
    });
}

TEST(ZelPolicyRejectTest, FaultyComponentsAndTasks) {
    const std::string parsed = "I Parsed eventGroups and events";
    const std::vector<std::string> refused = {
            parsed, "E Invalid component definition in ZEL policy document."};
    const std::vector<std::string> noTasks = {parsed, "I Added component (c, p)",
                                              "E Invalid task definition for component c"};
    const std::vector<std::string> badTask = {
            parsed, "I Added component (c, p)", "D Added task (ok, x) to component c",
            "E Missing required task object members in ZEL policy document for component c"};
    const std::string next = R"(, {"identifier": "next", "processName": "n", "tasks": []}])";
    // Component "c" of process "p" with `members` added, then one that must never be read.
    auto component = [&](const std::string& members) {
        return policyDocument("[]", R"([{"identifier": "c", "processName": "p", )" + members + "}" + next);
    };
    auto withTask = [&](const std::string& task) {
        return component(R"("tasks": [{"identifier": "ok", "priorityType": "x"}, )" + task + "]");
    };
    expectRefusals({
            {"component not an object", policyDocument("[]", "[1" + next), refused},
            {"no processName", policyDocument("[]", R"([{"identifier": "c", "tasks": []})" + next), refused},
            {"no identifier", policyDocument("[]", R"([{"processName": "p", "tasks": []}])"), refused},
            {"identifier a number", policyDocument("[]", R"([{"identifier": 1, "processName": "p", "tasks": []}])"),
             refused},
            {"start property not a string", component(R"("startProperty": 1, "tasks": [])"), refused},
            {"stop property null", component(R"("stopProperty": null, "tasks": [])"), refused},
            {"negative memory requirement", component(R"("memoryRequirement": -1, "tasks": [])"), refused},
            {"memory requirement a fraction", component(R"("memoryRequirement": 1.5, "tasks": [])"), refused},
            {"no tasks", policyDocument("[]", R"([{"identifier": "c", "processName": "p"})" + next), noTasks},
            {"tasks an object", component(R"("tasks": {})"), noTasks},
            {"task not an object", withTask("3"), badTask},
            {"task without priority type", withTask(R"({"identifier": "t"})"), badTask},
            {"task without identifier", withTask(R"({"priorityType": "x"})"), badTask},
            {"priority type not a string", withTask(R"({"identifier": "t", "priorityType": 1})"), badTask},
            {"priority value a string",
             withTask(R"({"identifier": "t", "priorityType": "x", "priorityValue": "1"})"), badTask},
            {"run time a fraction",
             withTask(R"({"identifier": "t", "priorityType": "x", "minimumGuaranteedRuntime": 5000.0})"),
             badTask},
            {"run time beyond 32 bits",
             withTask(R"({"identifier": "t", "priorityType": "x", "minimumGuaranteedRuntime": 3000000000})"),
             badTask},
    });
}

TEST(ZelPolicyRejectTest, FaultyRules) {
    // `faulty` before a valid rule that must never be read.
    auto rules = [](const std::string& faulty) {
        return policyWithRules("[" + faulty + ", " + kValidRule + "]");
    };
    // Rule "r" on c/t with `members`.
    auto rule = [&](const std::string& members) {
        return rules(R"({"name": "r", "identifier": {"componentId": "c", "taskId": "t"}, )" + members + "}");
    };
    auto refused = [](const std::vector<std::string>& tail) { return plus(kBaseLog, tail); };
    const std::string noDeps = "I Rule 'r' definition doesn't has any dependencies defined";
    const std::string noAllow = "I Rule 'r' definition doesn't include allowList member.";
    const std::string badRule = "E Invalid rule definition in ZEL policy document.";
    const std::string badId = "W Rule 'r' definition includes invalid indentifier member.";
    const std::string badActions = "W Rule 'r' definition includes invalid actions member.";
    auto withList = [&](const char* key, const std::string& entries) {
        return rule(R"("dependencies": {")" + std::string(key) + R"(": )" + entries + R"(}, "actions": [])");
    };
    auto withEvents = [&](const std::string& events) {
        return rule(R"("actions": [{"message": "ZEL_TASK_STARTED", "events": )" + events + "}]");
    };
    const std::string badEvent = "W Action 'ZEL_TASK_STARTED' definition includes invalid event";
    expectRefusals({
            {"rule not an object", rules("[]"), refused({badRule})},
            {"rule name not a string",
             rules(R"({"name": 5, "identifier": {"componentId": "c", "taskId": "t"}, "actions": []})"),
             refused({badRule})},
            {"no identifier", rules(R"({"name": "r", "actions": []})"),
             refused({"W Rule 'r' definition does not include indentifier member."})},
            {"no name and no identifier", rules(R"({"actions": []})"),
             refused({"W Rule '' definition does not include indentifier member."})},
            {"identifier a string", rules(R"({"name": "r", "identifier": "c/t", "actions": []})"),
             refused({badId})},
            {"identifier without task",
             rules(R"({"name": "r", "identifier": {"componentId": "c"}, "actions": []})"), refused({badId})},
            {"identifier task a number",
             rules(R"({"name": "r", "identifier": {"componentId": "c", "taskId": 1}, "actions": []})"),
             refused({badId})},
            {"unknown task",
             rules(R"({"name": "r", "identifier": {"componentId": "c", "taskId": "T"}, "actions": []})"),
             refused({"W Rule 'r' definition includes invalid component:c,task:T"})},
            {"allow entry without task", withList("allowlist", R"([{"componentId": "c"}])"),
             refused({"W Rule 'r' definition includes invalid allowList member."})},
            {"allow entry not an object", withList("allowlist", R"(["c/t"])"),
             refused({"W Rule 'r' definition includes invalid allowList member."})},
            {"allow entry unknown",
             withList("allowlist", R"([{"componentId": "c", "taskId": "t"}, {"componentId": "x", "taskId": "t"}])"),
             refused({"I Comp:c, Task:t depends on Comp:c, Task:t",
                      "W Rule 'r' definition includes invalid allowList component/task(x,t)"})},
            {"deny entry malformed", withList("denylist", R"([{"taskId": "t"}])"),
             refused({noAllow, "W Rule 'r' definition includes invalid denyList member."})},
            {"deny entry unknown", withList("denylist", R"([{"componentId": "c", "taskId": "u"}])"),
             refused({noAllow, "W Rule 'r' definition includes invalid denyList component/task(c,u)"})},
            {"no actions", rules(R"({"name": "r", "identifier": {"componentId": "c", "taskId": "t"}})"),
             refused({noDeps, badActions})},
            {"actions an object", rule(R"("actions": {})"), refused({noDeps, badActions})},
            {"action message not a string", rule(R"("actions": [{"message": 1, "events": []}])"),
             refused({noDeps, "W Rule 'r' definition doesn't includes actions member."})},
            {"unknown event group",
             withEvents(R"([{"eventGroup": "g", "eventName": "e"}, {"eventGroup": "G", "eventName": "e"}])"),
             refused({noDeps, "D Added start event (g, e) to 't'", badEvent + " group 'G'."})},
            {"unknown event", withEvents(R"([{"eventGroup": "g", "eventName": "E"}])"),
             refused({noDeps, badEvent + " 'E'."})},
            {"event name not a string", withEvents(R"([{"eventGroup": "g", "eventName": 1}])"),
             refused({noDeps, badEvent + "."})},
    });
}

TEST(ZelPolicyRejectTest, RefusedLoadStopsFillingTheModel) {
    const PolicyTestLoad load = loadPolicyText(policyDocument(
            R"([{"groupName": "a", "groupId": 1, "events": []}])",
            R"([{"identifier": "c", "processName": "p", "tasks": [{"identifier": "t", "priorityType": "x"}]},
                {"identifier": "d", "processName": "q", "tasks": [{"identifier": "u"}]},
                {"identifier": "e", "processName": "r", "tasks": []}])"));
    ASSERT_FALSE(load.accepted);
    // What came before the fault stays in the discarded model; nothing after.
    EXPECT_EQ(load.policy->eventGroups.count("a"), 1u);
    EXPECT_EQ(load.policy->components.count("d"), 1u);
    EXPECT_EQ(load.policy->components.count("e"), 0u);
    EXPECT_EQ(load.policy->taskTable->size(), 1u);
}

TEST(ZelPolicyRejectTest, WalkOfANonObjectDocumentIsRefused) {
    zel::hostlog::ZelLogCapture capture;
    rapidjson::Document document;
    document.Parse("[1, 2]");
    ZelPolicy policy;
    EXPECT_FALSE(policy.processJsonPolicy_v1_0(document));
    EXPECT_THAT(policyLogLines(capture),
                ElementsAreArray({"E ZEL policy doc has no events, components, or rules"}));
}
