// "zelctl policy check" and "zelctl policy graph", the real binary on every
// case folder of tests/policy/cases, and the cycle and chain finders on a
// long chain.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "ZelLogText.h"
#include "ZelPolicyChains.h"
#include "ZelPolicyCycles.h"
#include "ZelScenario.h"
#include "ZelTestFiles.h"
#include "ZelTestProcess.h"

using ::testing::IsEmpty;

namespace {

const std::string kCases = ZELD_POLICY_CASES;

// The lines of a run's output with the case's path shown as "policy.json",
// log lines without their source line numbers, and only those `keep` says.
template <typename Keep>
std::string lines(const std::string& text, const std::string& path, Keep keep) {
    std::string out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        line = zelSubstitute(line, {{path, "policy.json"}});
        if (keep(line)) out += zelDropLineNumber(line) + "\n";
    }
    return out;
}

bool any(const std::string&) { return true; }
// What --quiet keeps: all but the loader's verbose, debug and info lines.
bool notVerbose(const std::string& line) {
    return line.size() < 2 || line[1] != '/' || std::string("VDI").find(line[0]) == std::string::npos;
}

ZelProgramRun zelctl(const std::vector<std::string>& args) { return runZelProgram(ZELCTL_PATH, args); }

class ZelctlPolicyCaseTest : public ::testing::TestWithParam<std::string> {};

// expected.txt is the check's whole output; --quiet and a refused graph show
// its warnings and errors only; an accepted graph matches graph.dot if the
// case has one.
TEST_P(ZelctlPolicyCaseTest, CheckPrintsTheExpectedTextAndGraphAgrees) {
    const std::string dir = kCases + "/" + GetParam();
    const std::string path = dir + "/policy.json";
    const ZelProgramRun check = zelctl({"policy", "check", path});
    const std::string text = lines(check.out, path, any);
    expectZelGolden(dir + "/expected.txt", text);
    const bool accepted = text.find("policy.json: accepted") != std::string::npos;
    EXPECT_EQ(check.status, accepted ? 0 : 1);
    EXPECT_THAT(check.err, IsEmpty());

    const ZelProgramRun quiet = zelctl({"policy", "check", "--quiet", path});
    EXPECT_EQ(lines(quiet.out, path, any), lines(text, path, notVerbose));

    const ZelProgramRun graph = zelctl({"policy", "graph", path});
    EXPECT_EQ(graph.status, accepted ? 0 : 1);
    if (!accepted) {
        EXPECT_THAT(graph.out, IsEmpty());
        EXPECT_EQ(lines(graph.err, path, any), lines(text, path, notVerbose));
    } else if (std::filesystem::exists(dir + "/graph.dot")) {
        expectZelGolden(dir + "/graph.dot", graph.out);
    }
}

INSTANTIATE_TEST_SUITE_P(Cases, ZelctlPolicyCaseTest, ::testing::ValuesIn(listZelTestCases(kCases)),
                         [](const auto& info) { return zelTestName(info.param); });

// Which cycles the check reports (one per group of mutually dependent tasks,
// the shortest way round it from its smallest key, none in a diamond) is in
// the lint-dependency-cycles case, and which deep chains in lint-deep-chain.
TEST(ZelPolicyCyclesTest, LongChainsNeitherOverflowNorReportFalseCycles) {
    ZelPolicyCycles::Graph chain;
    const int length = 100000;
    for (int i = 0; i + 1 < length; ++i) chain[{"c", std::to_string(i)}] = {{"c", std::to_string(i + 1)}};
    EXPECT_THAT(ZelPolicyCycles::find(chain), IsEmpty());
    const auto deep = ZelPolicyChains::deeperThan(chain, 5);
    ASSERT_EQ(deep.size(), 1u);
    EXPECT_EQ(deep[0].size(), static_cast<size_t>(length));
    EXPECT_EQ(deep[0].front(), TaskKey("c", "0"));
    chain[{"c", std::to_string(length - 1)}] = {{"c", "0"}};
    const auto cycles = ZelPolicyCycles::find(chain);
    ASSERT_EQ(cycles.size(), 1u);
    EXPECT_EQ(cycles[0].size(), static_cast<size_t>(length + 1));
}

}  // namespace
