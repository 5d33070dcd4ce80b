// "zelctl policy check" and "zelctl policy graph": the real binary on real
// files, and the cycle finder behind the check.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "ZelPolicyCycles.h"
#include "ZelTestRoot.h"

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace {

std::string readText(const std::string& path) {
    std::ifstream in(path);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

std::vector<std::string> splitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// One run of the real zelctl binary.
struct ZelctlRun {
    int status;
    std::string out, err;

    // Each of `args` is passed as one word.
    static ZelctlRun run(const std::vector<std::string>& args) {
        char outPath[] = "/tmp/zelctl-out-XXXXXX", errPath[] = "/tmp/zelctl-err-XXXXXX";
        close(mkstemp(outPath));
        close(mkstemp(errPath));
        std::string command = ZELCTL_PATH;
        for (const std::string& arg : args) {
            command += " '";
            for (char c : arg) command += c == '\'' ? std::string("'\\''") : std::string(1, c);
            command += "'";
        }
        const int status = std::system((command + " >" + outPath + " 2>" + errPath).c_str());
        ZelctlRun run{WIFEXITED(status) ? WEXITSTATUS(status) : -1, readText(outPath), readText(errPath)};
        unlink(outPath);
        unlink(errPath);
        return run;
    }
    // Lines with the source line number of a log line dropped: "f::g:12 - " -> "f::g - ".
    std::vector<std::string> outLines() const {
        std::vector<std::string> lines;
        for (std::string line : splitLines(out)) {
            const auto dash = line.find(" - ");
            const auto colon = dash == std::string::npos ? dash : line.rfind(':', dash);
            if (colon != std::string::npos && colon + 1 < dash &&
                line.find_first_not_of("0123456789", colon + 1) == dash) {
                line.erase(colon, dash - colon);
            }
            lines.push_back(line);
        }
        return lines;
    }
    std::vector<std::string> warnings() const {
        std::vector<std::string> found;
        for (const std::string& line : splitLines(out)) {
            if (line.rfind("warning: ", 0) == 0) found.push_back(line);
        }
        return found;
    }
};

class ZelctlPolicyCheckTest : public ::testing::Test {
protected:
    std::string write(const std::string& name, const std::string& text) {
        mRoot.writeFile("/" + name, text);
        return mRoot.at("/" + name);
    }
    // Checks `text` and expects acceptance with exactly `expected` warnings.
    void expectWarnings(const std::string& text, const std::vector<std::string>& expected) {
        const ZelctlRun run = ZelctlRun::run({"policy", "check", write("policy.json", text)});
        EXPECT_EQ(run.status, 0) << run.out;
        EXPECT_THAT(run.warnings(), ElementsAreArray(expected));
    }

    ZelTestRoot mRoot;
};

std::string policy(const std::string& groups, const std::string& components,
                   const std::string& rules = "[]") {
    return R"({"version": 1.0, "eventGroups": )" + groups + R"(, "components": )" + components +
           R"(, "rules": )" + rules + "}";
}

}  // namespace

TEST_F(ZelctlPolicyCheckTest, ExamplePolicyIsAcceptedWithTheLoadersLinesAndNoWarning) {
    const ZelctlRun run = ZelctlRun::run({"policy", "check", ZELD_EXAMPLE_POLICY});
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.err, IsEmpty());
    const auto lines = run.outLines();
    ASSERT_EQ(lines.size(), 57u);
    EXPECT_EQ(lines[0],
              std::string("D/zeld: ZelPolicy::processJsonPolicyFromFile - building ZelPolicy "
                          "from file '") + ZELD_EXAMPLE_POLICY + "'");
    EXPECT_EQ(lines[17],
              "I/zeld: ZelPolicy::processJsonPolicy_v1_0 - Parsed eventGroups and events");
    EXPECT_EQ(lines.back(), std::string(ZELD_EXAMPLE_POLICY) + ": accepted, 0 warnings");
    EXPECT_THAT(run.warnings(), IsEmpty());
}

TEST_F(ZelctlPolicyCheckTest, RefusedDocumentsExitOneAfterTheLoadersLines) {
    const std::string tail = R"(, "eventGroups": [], "components": [], "rules": []})";
    std::string path = write("bad.json", R"({"version": 1)" + tail);
    ZelctlRun run = ZelctlRun::run({"policy", "check", path});
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.outLines(),
                ElementsAre("D/zeld: ZelPolicy::processJsonPolicyFromFile - building "
                            "ZelPolicy from file '" + path + "'",
                            "E/zeld: ZelPolicy::processJsonPolicyFromBuffer - ZEL policy doc "
                            "is missing version",
                            path + ": refused: the daemon would not start with this policy"));

    // The silent refusal still exits 1.
    path = write("v2.json", R"({"version": 2.0)" + tail);
    run = ZelctlRun::run({"policy", "check", path});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.outLines().size(), 2u);

    path = write("rule.json", policy("[]", R"([{"identifier": "c", "processName": "p", "tasks": []}])",
                                     R"([{"name": "r", "identifier": {"componentId": "c", "taskId": "t"},
                                          "actions": []}])"));
    run = ZelctlRun::run({"policy", "check", "--quiet", path});
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.outLines(),
                ElementsAre("W/zeld: ZelPolicy::processJsonPolicy_v1_0 - Rule 'r' definition "
                            "includes invalid component:c,task:t",
                            path + ": refused: the daemon would not start with this policy"));

    run = ZelctlRun::run({"policy", "check", mRoot.at("/missing.json")});
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.out, HasSubstr("E/zeld: ZelPolicy::processJsonPolicyFromFile:"));
    EXPECT_THAT(run.out, HasSubstr("Invalid ZEL policy file '" + mRoot.at("/missing.json") + "'"));
}

TEST_F(ZelctlPolicyCheckTest, QuietKeepsOnlyTheLoadersWarningsAndErrors) {
    const std::string path = write("skip.json", policy(
            "[]", R"([{"identifier": "c", "processName": "p", "tasks": [{"identifier": "t", "priorityType": "x"}]}])",
            R"([{"name": "r", "identifier": {"componentId": "c", "taskId": "t"}, "actions": [5]}])"));
    const ZelctlRun run = ZelctlRun::run({"policy", "check", "-q", path});
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.outLines(),
                ElementsAre("W/zeld: ZelPolicy::processJsonPolicy_v1_0 - Rule 'r' definition "
                            "doesn't includes actions member.",
                            path + ": accepted, 0 warnings"));
}

TEST_F(ZelctlPolicyCheckTest, WarnsAboutEachHazardTheLoaderAccepts) {
    const std::string task = R"({"identifier": "t", "priorityType": "x"})";
    const std::string plainTasks = "[" + task + R"(, {"identifier": "u", "priorityType": "x"}])";

    // Dependency cycle through two components, and a task that depends on itself.
    expectWarnings(
            policy("[]",
                   R"([{"identifier": "a", "processName": "p", "tasks": )" + plainTasks + R"(},
                       {"identifier": "b", "processName": "q", "tasks": )" + plainTasks + "}]",
                   R"([{"name": "r1", "identifier": {"componentId": "b", "taskId": "t"},
                        "dependencies": {"allowlist": [{"componentId": "a", "taskId": "u"}]}, "actions": []},
                       {"name": "r2", "identifier": {"componentId": "a", "taskId": "u"},
                        "dependencies": {"allowlist": [{"componentId": "b", "taskId": "t"}]}, "actions": []},
                       {"name": "r3", "identifier": {"componentId": "b", "taskId": "u"},
                        "dependencies": {"allowlist": [{"componentId": "b", "taskId": "u"}]}, "actions": []}])"),
            {"warning: component 'a', task 'u': dependency cycle a/u -> b/t -> a/u: the daemon "
             "refuses the nested start request that closes the cycle, so none of these tasks can "
             "be started while none of them runs",
             "warning: component 'b', task 'u': dependency cycle b/u -> b/u: the daemon refuses "
             "the nested start request that closes the cycle, so none of these tasks can be "
             "started while none of them runs"});

    // Repeated component identifier, and a task repeated inside it.
    expectWarnings(
            policy("[]", R"([{"identifier": "a", "processName": "p", "tasks": [)" + task + R"(]},
                            {"identifier": "a", "processName": "q", "tasks": )" + plainTasks + "}]"),
            {"warning: component 'a': the identifier repeats an earlier component; the daemon "
             "keeps the first definition and drops this one, so its tasks (t, u) lose their "
             "component: no autostart, no memory requirement, no start or stop property",
             "warning: component 'a', task 't': the task repeats an earlier task of this "
             "component; the daemon keeps the first definition and ignores this one"});

    // Property texts that do not split, and START_PROCESS without a start property.
    expectWarnings(
            policy("[]", R"([{"identifier": "a", "processName": "p", "startProperty": "ctl.start  svc",
                              "stopProperty": "ctl.stop svc", "tasks": [{"identifier": "START_PROCESS", "priorityType": "x"}]},
                             {"identifier": "b", "processName": "q", "startProperty": "ctl.start svc",
                              "stopProperty": "ctl.stop", "tasks": []}])"),
            {"warning: component 'a': startProperty \"ctl.start  svc\" does not split into a name "
             "and a value at one single space: nothing will be written",
             "warning: component 'a', task 'START_PROCESS': the component has no usable "
             "startProperty: starting this task cannot start the component's process",
             "warning: component 'b': stopProperty \"ctl.stop\" does not split into a name and a "
             "value at one single space: nothing will be written"});

    // Unknown action message, deny list, unenforced run time, autostart without START_PROCESS.
    expectWarnings(
            policy(R"([{"groupName": "g", "groupId": 2, "events": [{"eventName": "e", "eventId": 1}]}])",
                   R"([{"identifier": "a", "processName": "p", "autostart": true, "tasks": [
                         {"identifier": "t", "priorityType": "x", "minimumGuaranteedRuntime": 5001},
                         {"identifier": "u", "priorityType": "x", "minimumGuaranteedRuntime": 5000}]}])",
                   R"([{"name": "r", "identifier": {"componentId": "a", "taskId": "u"},
                        "dependencies": {"denylist": [{"componentId": "a", "taskId": "t"}]},
                        "actions": [{"message": "ZEL_TASK_START",
                                     "events": [{"eventGroup": "g", "eventName": "e"}]}]}])"),
            {"warning: component 'a': autostart is set but the component has no START_PROCESS "
             "task: nothing of it is started automatically",
             "warning: component 'a', task 'u': rule 'r' has the action message 'ZEL_TASK_START', "
             "which is neither ZEL_TASK_STARTED nor ZEL_TASK_COMPLETED: its events are never "
             "published",
             "warning: component 'a', task 't': minimumGuaranteedRuntime 5001 ms is above 5000 ms: "
             "a start granted more than 5000 ms (a client's request is granted the smaller of its "
             "own run time and this one) is never ended by the reaper",
             "warning: component 'a', task 'u': deny list (a/t) has no effect: the daemon never "
             "consults deny lists"});

    // Group ids beyond 8 bits and event id 0.
    expectWarnings(
            policy(R"([{"groupName": "wide", "groupId": 300, "events": []},
                       {"groupName": "zero", "groupId": 512, "events": [{"eventName": "e", "eventId": 0}]}])",
                   "[]"),
            {"warning: event group 'wide': group id 300 is carried in 8 bits as 44",
             "warning: event group 'zero': group id 512 is carried in 8 bits as 0: the daemon "
             "never publishes the group's events",
             "warning: event group 'zero': event 'e' has id 0: the daemon never publishes it"});
}

TEST_F(ZelctlPolicyCheckTest, FindsPlantedFaultsInAnOtherwiseCleanPolicy) {
    std::string text = readText(ZELD_EXAMPLE_POLICY);
    // A cycle: the update check now waits for the install that waits for it.
    const std::string rules = R"("rules": [)";
    text.replace(text.find(rules), rules.size(), rules + R"(
        { "name": "planted", "identifier": { "componentId": "systemUpdate", "taskId": "updateCheck" },
          "dependencies": { "allowlist": [ { "componentId": "systemUpdate", "taskId": "updateInstall" } ] },
          "actions": [] },)");
    const std::string components = R"("components": [)";
    text.replace(text.find(components), components.size(), components + R"(
        { "identifier": "diagnostics", "processName": "diagd2", "stopProperty": "ctl.stop=diagd",
          "tasks": [] },)");
    const ZelctlRun run = ZelctlRun::run({"policy", "check", write("planted.json", text)});
    EXPECT_EQ(run.status, 0);
    const auto warnings = run.warnings();
    ASSERT_EQ(warnings.size(), 3u) << run.out;
    EXPECT_THAT(warnings[0], HasSubstr("dependency cycle systemUpdate/updateCheck -> "
                                       "systemUpdate/updateInstall -> systemUpdate/updateDownload "
                                       "-> systemUpdate/updateCheck"));
    EXPECT_THAT(warnings[1], HasSubstr("component 'diagnostics': stopProperty \"ctl.stop=diagd\""));
    EXPECT_THAT(warnings[2], HasSubstr("component 'diagnostics': the identifier repeats"));
}

TEST_F(ZelctlPolicyCheckTest, UsageErrorsExitTwoWithAMessage) {
    const std::string path = write("ok.json", policy("[]", "[]"));
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
            {{}, "zelctl: missing command"},
            {{"polciy", "check", path}, "zelctl: unknown command 'polciy'"},
            {{"policy"}, "zelctl policy: missing subcommand"},
            {{"policy", "lint", path}, "zelctl policy: unknown subcommand 'lint'"},
            {{"policy", "check"}, "zelctl policy: expected exactly one FILE"},
            {{"policy", "check", path, path}, "zelctl policy: expected exactly one FILE"},
            {{"policy", "check", "--strict", path}, "zelctl policy: unknown option '--strict'"},
            {{"policy", "graph", "--quiet", path}, "zelctl policy: unknown option '--quiet'"},
    };
    for (const auto& [args, message] : cases) {
        SCOPED_TRACE(message);
        const ZelctlRun run = ZelctlRun::run(args);
        EXPECT_EQ(run.status, 2);
        EXPECT_THAT(run.out, IsEmpty());
        EXPECT_THAT(run.err, HasSubstr(message + "\n"));
        EXPECT_THAT(run.err, HasSubstr("usage:"));
    }
    const ZelctlRun help = ZelctlRun::run({"help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_THAT(help.out, HasSubstr("zelctl policy check [--quiet] FILE"));
}

TEST(ZelctlPolicyGraphTest, PrintsClustersNodesAndDependencyEdgesOrNothingWhenRefused) {
    ZelTestRoot root;
    root.writeFile("/p.json", R"({"version": 1.0, "eventGroups": [],
      "components": [
        {"identifier": "svc \"one\"", "processName": "p", "startProperty": "ctl.start p", "autostart": true,
         "tasks": [{"identifier": "START_PROCESS", "priorityType": "ZEL_TASK_CRITICAL"},
                   {"identifier": "work", "priorityType": "normal"}]},
        {"identifier": "other", "processName": "q",
         "tasks": [{"identifier": "job", "priorityType": "normal"}]}],
      "rules": [
        {"name": "r", "identifier": {"componentId": "other", "taskId": "job"},
         "dependencies": {"allowlist": [{"componentId": "svc \"one\"", "taskId": "work"},
                                        {"componentId": "svc \"one\"", "taskId": "START_PROCESS"}],
                          "denylist": [{"componentId": "other", "taskId": "job"}]},
         "actions": []}]})");
    ZelctlRun run = ZelctlRun::run({"policy", "graph", root.at("/p.json")});
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.err, IsEmpty());
    EXPECT_EQ(run.out,
              "digraph zel_policy {\n"
              "  rankdir=LR;\n"
              "  node [shape=box];\n"
              "  subgraph cluster_0 {\n"
              "    label=\"other\";\n"
              "    t0 [label=\"job\"];\n"
              "  }\n"
              "  subgraph cluster_1 {\n"
              "    label=\"svc \\\"one\\\"\";\n"
              "    t1 [label=\"START_PROCESS\", peripheries=2, color=red];\n"
              "    t2 [label=\"work\"];\n"
              "  }\n"
              "  t0 -> t2;\n"
              "  t0 -> t1;\n"
              "  t0 -> t0 [style=dashed, label=\"deny\"];\n"
              "}\n");

    // A refused policy prints no graph.
    root.writeFile("/p.json", R"({"version": 1.0, "eventGroups": [], "components": {}, "rules": []})");
    run = ZelctlRun::run({"policy", "graph", root.at("/p.json")});
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.out, IsEmpty());
    EXPECT_THAT(run.err, HasSubstr("E/zeld: ZelPolicy::processJsonPolicy_v1_0:"));
    EXPECT_THAT(run.err, HasSubstr("- Invalid component definition in ZEL policy document.\n"));
}

TEST(ZelPolicyCyclesTest, ReportsOneCyclePerGroupOfMutuallyDependentTasks) {
    const TaskKey a{"c", "a"}, b{"c", "b"}, c{"c", "c"}, d{"d", "d"}, e{"d", "e"};
    // Acyclic diamond: no cycle.
    EXPECT_THAT(ZelPolicyCycles::find({{a, {b, c}}, {b, {d}}, {c, {d}}}), IsEmpty());
    // Two groups: a <-> b (with c hanging off it), and a self-dependency on e.
    EXPECT_THAT(ZelPolicyCycles::find({{e, {e}}, {b, {c, a}}, {a, {b}}, {c, {d}}}),
                ElementsAre(TaskKeyList{a, b, a}, TaskKeyList{e, e}));
    // The shortest way round a group is reported, starting at its smallest key.
    EXPECT_THAT(ZelPolicyCycles::find({{d, {a}}, {a, {b, d}}, {b, {c}}, {c, {d}}}),
                ElementsAre(TaskKeyList{a, d, a}));
}

TEST(ZelPolicyCyclesTest, LongChainsNeitherOverflowNorReportFalseCycles) {
    ZelPolicyCycles::Graph chain;
    const int length = 100000;
    for (int i = 0; i + 1 < length; ++i) {
        chain[{"c", std::to_string(i)}] = {{"c", std::to_string(i + 1)}};
    }
    EXPECT_THAT(ZelPolicyCycles::find(chain), IsEmpty());
    chain[{"c", std::to_string(length - 1)}] = {{"c", "0"}};
    const auto cycles = ZelPolicyCycles::find(chain);
    ASSERT_EQ(cycles.size(), 1u);
    EXPECT_EQ(cycles[0].size(), static_cast<size_t>(length + 1));
}
