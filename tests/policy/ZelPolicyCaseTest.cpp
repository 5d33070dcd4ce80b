// Every folder of cases/ holds a policy document (policy.json) and what
// "zelctl policy check" prints for it (expected.txt): the loader's lines and
// the outcome. This runner loads the document with the daemon's loader and
// compares those lines and that outcome; for an accepted document it also
// compares the engine's answers for every task with model.txt.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <sstream>

#include "ZelRapidJson.h"
#include "ZelLogText.h"
#include "ZelPolicyEngine.h"
#include "ZelScenario.h"
#include "ZelTestFiles.h"
#include "ZelTestRoot.h"

namespace {

const std::string kCases = zelTestDataPath(ZELD_POLICY_CASES);

// In double quotes, with quotes, backslashes and control characters escaped.
std::string quoted(const std::string& text) {
    std::string out = "\"";
    for (unsigned char c : text) {
        char escaped[8];
        std::snprintf(escaped, sizeof(escaped), c < 0x20 ? "\\x%02x" : c == '"' || c == '\\' ? "\\%c" : "%c", c);
        out += escaped;
    }
    return out + "\"";
}

template <typename List, typename Format>
std::string joined(const List& items, Format format) {
    std::string out;
    for (const auto& item : items) out += (out.empty() ? "" : ",") + format(item);
    return out.empty() ? "-" : out;
}

std::string keyText(const TaskKey& key) { return key.first + "/" + key.second; }
std::string eventText(const PolicyEvent& event) {
    return std::to_string(event.groupId) + ":" + std::to_string(event.eventId);
}
std::string propertyText(const PropertySetting& property) {
    return quoted(property.name) + " " + quoted(property.value);
}

// The loaded model, its tasks as the engine answers for them.
std::string describe(const ZelPolicy& policy, const ZelPolicyEngine& engine) {
    std::ostringstream out;
    const std::map<std::string, int32_t> groups(policy.eventGroups.begin(), policy.eventGroups.end());
    for (const auto& [name, id] : groups) {
        const auto& events = policy.groupEvents.at(name);
        out << "group " << quoted(name) << " " << id << ": "
            << joined(std::map<std::string, int32_t>(events.begin(), events.end()),
                      [](const auto& event) { return event.first + "=" + std::to_string(event.second); })
            << "\n";
    }
    for (const auto& [id, component] : policy.components) {
        out << "component " << quoted(id) << " process " << quoted(component->processName) << "\n";
    }
    policy.taskTable->forEach([&](const TaskKey& key, const PolicyTask& task) {
        const std::string& c = key.first;
        const std::string& t = key.second;
        out << "task " << keyText(key) << " " << quoted(engine.getPriorityType(c, t)) << " value=" << task.priorityValue
            << " runtime=" << engine.getMinimumGuaranteedRuntime(c, t) << " preempt=" << engine.isPreemptable(c, t)
            << " autostart=" << engine.isAutoStart(c, t) << " memory=" << engine.getMemoryRequirement(c, t)
            << " start=" << propertyText(engine.getStartProperty(c, t))
            << " stop=" << propertyText(engine.getStopProperty(c, t))
            << " allow=" << joined(engine.getAllowList(c, t), keyText) << " deny=" << joined(task.denyList, keyText)
            << " start-events=" << joined(engine.getStartEvents(c, t), eventText)
            << " stop-events=" << joined(engine.getStopEvents(c, t), eventText) << "\n";
    });
    for (const TaskKey& key : engine.getAutoStartTasks()) out << "autostart " << keyText(key) << "\n";
    return out.str();
}

class ZelPolicyCaseTest : public ::testing::TestWithParam<std::string> {};

TEST_P(ZelPolicyCaseTest, LoaderLogsTheExpectedLinesAndEngineAnswersAsTheModel) {
    const std::string dir = kCases + "/" + GetParam();
    const std::string path = dir + "/policy.json";
    zel::hostlog::ZelLogCapture capture;
    ZelPolicy policy;
    const bool accepted = policy.processJsonPolicyFromFile(path);

    std::string log;
    for (const auto& line : capture.lines()) {
        log += zelLogLevelLetter(line.priority) + ("/" + line.tag + ": ") + zelDropLineNumber(line.message) + "\n";
    }
    std::string expectedLog;
    std::istringstream expected(readZelTestFile(dir + "/expected.txt"));
    for (std::string line; std::getline(expected, line);) {
        if (line.size() > 2 && line[1] == '/') expectedLog += line + "\n";
    }
    EXPECT_EQ(zelSubstitute(log, {{path, "policy.json"}}), expectedLog);
    EXPECT_EQ(accepted, expected.str().find("policy.json: accepted") != std::string::npos);

    const std::string model = dir + "/model.txt";
    if (!accepted) {
        if (gZelRegenerateGolden) std::filesystem::remove(model);
        EXPECT_FALSE(std::filesystem::exists(model)) << "a refused document has no model";
        return;
    }
    EXPECT_EQ(policy.eventGroups.max_load_factor(), 1.0f);
    EXPECT_EQ(policy.groupEvents.max_load_factor(), 1.0f);
    for (const auto& group : policy.groupEvents) EXPECT_EQ(group.second.max_load_factor(), 1.0f);
    zel::hostlog::setStderrMinPriority(ANDROID_LOG_WARN);
    const auto engine = ZelPolicyEngine::create(path);
    ASSERT_NE(engine, nullptr);
    expectZelGolden(model, describe(policy, *engine));
}

INSTANTIATE_TEST_SUITE_P(Cases, ZelPolicyCaseTest, ::testing::ValuesIn(listZelTestCases(kCases)),
                         [](const auto& info) { return zelTestName(info.param); });

// Generated here rather than kept as a case: a text longer than one read
// chunk, with nesting deeper than a recursive parser's stack allows.
TEST(ZelPolicyLoadTest, LargeAndDeeplyNestedDocumentsLoad) {
    ZelTestRoot root;
    std::string components = "[";
    for (int i = 0; i < 2000; ++i) {
        components += (i ? "," : "") + std::string(R"({"identifier": "c)") + std::to_string(i) +
                      R"(", "processName": "p", "tasks": []})";
    }
    root.writeFile("/big.json", R"({"version": 1.0, "deep": )" + std::string(100000, '[') +
                                        std::string(100000, ']') + R"(, "eventGroups": [], "components": )" +
                                        components + R"(], "rules": []})");
    zel::hostlog::setStderrMinPriority(ANDROID_LOG_WARN);
    ZelPolicy policy;
    EXPECT_TRUE(policy.processJsonPolicyFromFile(root.at("/big.json")));
    EXPECT_EQ(policy.components.size(), 2000u);
}

TEST(ZelPolicyLoadTest, WalkOfANonObjectDocumentIsRefused) {
    rapidjson::Document document;
    document.Parse("[1, 2]");
    ZelPolicy policy;
    EXPECT_FALSE(policy.processJsonPolicy_v1_0(document));
}

}  // namespace
