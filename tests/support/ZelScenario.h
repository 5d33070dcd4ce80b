#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "ZelTestFiles.h"

// A scenario table (format: tests/taskmanager/scenarios/README.md), parsed
// without knowing what its steps mean: a driver gives them their meaning, so
// the same table can run in-process or against the real daemon.

// One word-split cell with the line it came from.
struct ZelScenarioCell {
    int line = 0;
    std::string text;                // trimmed
    std::vector<std::string> words;  // split at spaces

    // The text after the first `count` words, spacing kept.
    std::string after(size_t count) const;
    // Words from `from` on as name=value options ("" for a bare word).
    std::map<std::string, std::string> options(size_t from) const;
    // Empty when the words from `from` on are exactly `found`, else `found`.
    std::string listIs(const std::vector<std::string>& found, size_t from) const;
};

// Finds `wanted` among `lines` at or after `cursor` and moves the cursor past
// it: empty when found, else every line, for the failure message. A `wanted`
// ending in '*' matches every line that begins with the text before it.
std::string zelFindLineInOrder(const std::vector<std::string>& lines, size_t& cursor, const std::string& wanted);

struct ZelScenarioStep {
    ZelScenarioCell action;               // "request sync/index notify"
    std::string result;                   // expected result, empty when not checked
    std::vector<ZelScenarioCell> expect;  // in table order
};

struct ZelScenario {
    std::string path;
    std::vector<ZelScenarioStep> steps;

    // Reads and parses a file; a malformed table fails the test that reads it.
    static ZelScenario read(const std::string& path);
};

// Gives a scenario's steps and expectations their meaning.
class ZelScenarioDriver {
public:
    virtual ~ZelScenarioDriver() = default;
    // Performs one step and returns its result text; throws
    // std::invalid_argument for a step it does not know.
    virtual std::string perform(const ZelScenarioCell& action) = 0;
    // After its step: empty when the expectation holds, else what was found.
    // Throws std::invalid_argument for an expectation it does not know.
    virtual std::string check(const ZelScenarioCell& expectation) = 0;
    // After a step's expectations: empty, or what the step left unchecked.
    virtual std::string stepEnd() { return ""; }
};

// Helpers for drivers.
// Thrown for a step or expectation the driver cannot read.
[[noreturn]] void zelScenarioRefuse(const std::string& what);
// "a/b" (a component/task, a used/threshold) as {a, b}; refuses other words.
std::pair<std::string, std::string> zelScenarioPair(const std::string& word);
// A memory report's status word: "critical" (4), "normal" (1) or a number.
int zelScenarioMemoryStatus(const std::string& word);
// Lower-case hexadecimal, as the daemon logs tokens.
std::string zelHex(uint32_t value);
// `text` with every "{name}" of `values` replaced by its value.
std::string zelSubstitute(std::string text, const std::map<std::string, std::string>& values);

// Runs every step through the driver; each mismatch is a test failure
// located at its line of the table.
void runZelScenario(const ZelScenario& scenario, ZelScenarioDriver& driver);

// One test per table (*.scenario) of the folder `dir`, named after it
// (Scenarios/<Suite>.Holds/<table>), each run by a fresh Driver{args...}.
#define ZEL_SCENARIO_TESTS(Suite, dir, Driver, ...)                                                          \
    class Suite : public ::testing::TestWithParam<std::string> {};                                           \
    TEST_P(Suite, Holds) {                                                                                   \
        Driver driver{__VA_ARGS__};                                                                          \
        runZelScenario(ZelScenario::read(std::string(dir) + "/" + GetParam() + ".scenario"), driver);        \
    }                                                                                                        \
    INSTANTIATE_TEST_SUITE_P(Scenarios, Suite, ::testing::ValuesIn(listZelTestCases(dir, ".scenario")),      \
                             [](const auto& info) { return zelTestName(info.param); })
