// zelctl against the real zeld: every file of tests/cli/cases is one case, a
// script of zelctl command lines with the exit status and output each must
// give. tests/cli/cases/README.md describes the format.

#include <cutils/properties.h>
#include <gtest/gtest.h>

#include <cctype>
#include <chrono>
#include <map>
#include <memory>
#include <sstream>

#include "ZelDaemonProcess.h"
#include "ZelMemoryReporter.h"
#include "ZelTestRoot.h"

namespace {

using Clock = std::chrono::steady_clock;
using Vars = std::map<std::string, std::string>;

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    std::istringstream in(text);
    for (std::string part; std::getline(in, part, separator);) {
        if (separator != ' ' || !part.empty()) parts.push_back(part);
    }
    return parts;
}

size_t nameEnd(const std::string& text, size_t at) {
    while (at < text.size() && (isupper(text[at]) || isdigit(text[at]) || text[at] == '_')) ++at;
    return at;
}

// Whether text[t..] matches pattern[p..]: "$*" matches any text, "$NAME" a
// whole number, the same one wherever NAME stands again.
bool matches(const std::string& pattern, size_t p, const std::string& text, size_t t, Vars& vars) {
    if (p == pattern.size()) return t == text.size();
    if (pattern.compare(p, 2, "$*") == 0) {
        for (size_t end = text.size() + 1; end-- > t;) {
            if (matches(pattern, p + 2, text, end, vars)) return true;
        }
        return false;
    }
    const size_t close = pattern[p] == '$' ? nameEnd(pattern, p + 1) : p + 1;
    if (close == p + 1) {
        return t < text.size() && pattern[p] == text[t] && matches(pattern, p + 1, text, t + 1, vars);
    }
    const std::string name = pattern.substr(p + 1, close - p - 1);
    const bool known = vars.count(name) != 0;
    size_t end = t + (t < text.size() && text[t] == '-');
    while (end < text.size() && isdigit(text[end])) ++end;
    const std::string value = known ? vars[name] : text.substr(t, end - t);
    if (value.empty() || text.compare(t, value.size(), value) != 0) return false;
    vars[name] = value;
    if (matches(pattern, close, text, t + value.size(), vars)) return true;
    if (!known) vars.erase(name);
    return false;
}

// One zelctl process and what the case expects of it.
struct Command {
    std::unique_ptr<ZelPeerProcess> process;
    std::string outPath, errPath;
    Clock::time_point started;
    Clock::duration took{};
    int status = -1;
    int expectedStatus = 0;
    std::vector<std::string> expectedLines;
    std::vector<std::string> expectedErrors;
    std::vector<std::string> expectedOutputs;
    long withinMs = 0;
    bool checked = false;

    void join() {
        if (process == nullptr) return;
        if (!eventually([&] { return !process->running(); })) process->kill(SIGKILL);
        status = process->wait();
        took = Clock::now() - started;
        process.reset();
    }
    void check(Vars& vars) {
        if (checked) return;
        checked = true;
        join();
        const std::string out = readZelTestFile(outPath);
        const std::string err = readZelTestFile(errPath);
        EXPECT_EQ(status, expectedStatus) << "stdout:\n" << out << "stderr:\n" << err;
        if (!expectedLines.empty()) {
            const std::vector<std::string> lines = split(out, '\n');
            EXPECT_EQ(lines.size(), expectedLines.size()) << out;
            for (size_t i = 0; i < lines.size() && i < expectedLines.size(); ++i) {
                EXPECT_TRUE(matches(expectedLines[i], 0, lines[i], 0, vars))
                        << "line " << i + 1 << ": " << lines[i] << "\nexpected: " << expectedLines[i];
            }
        }
        for (const std::string& text : expectedErrors) {
            EXPECT_NE(err.find(text), std::string::npos) << "stderr lacks: " << text << "\n" << err;
        }
        for (const std::string& text : expectedOutputs) {
            EXPECT_NE(out.find(text), std::string::npos) << "stdout lacks: " << text << "\n" << out;
        }
        if (withinMs > 0) {
            EXPECT_LT(took, std::chrono::milliseconds(withinMs));
        }
    }
};

class ZelctlCaseTest : public ::testing::TestWithParam<std::string> {
protected:
    // The example device, its monitor reporting, its auto-start done.
    void startDaemon() {
        mDaemon = std::make_unique<ZelDaemonProcess>(ZELD_PATH, mRoot);
        ASSERT_TRUE(mDaemon->waitUntilServing()) << mDaemon->log();
        if (mMonitor == nullptr) mMonitor = std::make_unique<ZelMemoryReporter>();
        mMonitor->report({1, 1, 200, 1000});
        ASSERT_TRUE(eventually([] {
            char value[PROPERTY_VALUE_MAX];
            return property_get("ctl.start", value, "") > 0 && std::string(value) == "navd";
        }));
    }

    std::string substitute(const std::string& word) {
        std::string result;
        for (size_t at = 0; at < word.size();) {
            const size_t end = word[at] == '$' ? nameEnd(word, at + 1) : at + 1;
            const std::string name = word.substr(at + 1, end - at - 1);
            if (end > at + 1 && mVars.count(name) != 0) {
                result += mVars[name];
            } else if (name == "ROOT") {
                result += mRoot.path();
            } else {
                result += word.substr(at, end - at);
            }
            at = end;
        }
        return result;
    }

    Command& launch(const std::string& name, const std::vector<std::string>& words) {
        if (mDaemon == nullptr && !mNoDaemon) startDaemon();
        Command& command = mCommands[name];
        command = Command();
        const std::string base = mRoot.at("/zelctl-" + std::to_string(++mLaunched));
        command.outPath = base + ".out";
        command.errPath = base + ".err";
        std::vector<std::string> args;
        for (const std::string& word : words) args.push_back(substitute(word));
        command.started = Clock::now();
        command.process = std::make_unique<ZelPeerProcess>(
                ZELCTL_PATH, args, ZelOutputTo(command.outPath, command.errPath).get());
        return command;
    }

    void step(const std::string& line) {
        std::vector<std::string> words = split(line, ' ');
        const std::string verb = words.front();
        const std::string rest = line.size() > verb.size() + 1 ? line.substr(verb.size() + 1) : "";
        words.erase(words.begin());
        if (verb == "exit" || verb == ">" || verb == "!" || verb == "~" || verb == "within") {
            ASSERT_NE(mCurrent, nullptr) << "an expectation before any command";
            if (verb == "exit") mCurrent->expectedStatus = std::stoi(rest);
            if (verb == ">") mCurrent->expectedLines.push_back(rest);
            if (verb == "!") mCurrent->expectedErrors.push_back(substitute(rest));
            if (verb == "~") mCurrent->expectedOutputs.push_back(substitute(rest));
            if (verb == "within") mCurrent->withinMs = std::stol(rest);
            return;
        }
        if (mCurrent != nullptr) mCurrent->check(mVars);
        if (verb == "daemon" && rest == "off") {
            mNoDaemon = true;
        } else if (verb == "$") {
            mCurrent = &launch("", words);
            mCurrent->join();
        } else if (verb == "&") {
            const std::string name = words.front();
            launch(name, std::vector<std::string>(words.begin() + 1, words.end()));
            mCurrent = nullptr;
        } else if (verb == "join" || verb == "stop" || verb == "kill") {
            mCurrent = &mCommands.at(rest);
            if (verb != "join" && mCurrent->process) mCurrent->process->kill(verb == "stop" ? SIGTERM : SIGKILL);
            mCurrent->join();
        } else if (verb == "await") {
            const Command& command = mCommands.at(words.front());
            const std::string text = rest.substr(words.front().size() + 1);
            const auto printed = [&] {
                return readZelTestFile(command.outPath) + readZelTestFile(command.errPath);
            };
            ASSERT_TRUE(eventually([&] { return printed().find(text) != std::string::npos; }))
                    << "no '" << text << "' from " << words.front() << ":\n" << printed();
        } else if (verb == "restart") {
            mDaemon.reset();
            startDaemon();
        } else if (verb == "log") {
            ASSERT_TRUE(mDaemon->waitForLog(substitute(rest))) << "not in the daemon's log: " << rest;
        } else if (verb == "report") {
            mMonitor->report({1, static_cast<uint8_t>(std::stoi(words.at(0))), std::stoull(words.at(1)),
                              std::stoull(words.at(2))});
        } else {
            FAIL() << "unknown step: " << line;
        }
    }

    ZelTestRoot mRoot;
    std::unique_ptr<ZelDaemonProcess> mDaemon;
    std::unique_ptr<ZelMemoryReporter> mMonitor;
    bool mNoDaemon = false;
    std::map<std::string, Command> mCommands;
    Command* mCurrent = nullptr;
    Vars mVars;
    int mLaunched = 0;
};

TEST_P(ZelctlCaseTest, Runs) {
    mRoot.writeFile("/system/etc/zel_policy.json", readZelTestFile(ZELD_EXAMPLE_POLICY));
    const std::string path = std::string(ZELD_CLI_CASE_DIR) + "/" + GetParam() + ".case";
    const std::vector<std::string> lines = split(readZelTestFile(path), '\n');
    for (size_t i = 0; i < lines.size() && !HasFatalFailure(); ++i) {
        if (lines[i].empty() || lines[i][0] == '#') continue;
        SCOPED_TRACE(path + ":" + std::to_string(i + 1) + ": " + lines[i]);
        step(lines[i]);
    }
    if (mCurrent != nullptr && !HasFatalFailure()) mCurrent->check(mVars);
}

INSTANTIATE_TEST_SUITE_P(Cases, ZelctlCaseTest, ::testing::ValuesIn(split(ZELD_CLI_CASES, ';')),
                         [](const auto& info) { return info.param; });

}  // namespace
