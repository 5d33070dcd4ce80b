// "zelctl policy graph" on real files, and the cycle finder behind the check.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ZelPolicyCycles.h"
#include "ZelTestRoot.h"
#include "ZelctlRun.h"

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

TEST(ZelctlPolicyGraphTest, PrintsClustersNodesAndDependencyEdges) {
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
    const ZelctlRun run = ZelctlRun::run({"policy", "graph", root.at("/p.json")});
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
}

TEST(ZelctlPolicyGraphTest, RefusedPolicyPrintsNoGraph) {
    ZelTestRoot root;
    root.writeFile("/p.json", R"({"version": 1.0, "eventGroups": [], "components": {}, "rules": []})");
    const ZelctlRun run = ZelctlRun::run({"policy", "graph", root.at("/p.json")});
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
