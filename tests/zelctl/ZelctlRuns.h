#pragma once

// zelctl processes of an end-to-end table and what they printed: the steps
// `zelctl`, `zelctl& NAME`, `await`, `join`, `stop`, `kill` and the
// expectations `out`, `has`, `err`, `within` (scenarios/README.md).

#include <cctype>
#include <chrono>
#include <csignal>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "ZelScenario.h"
#include "ZelTestProcess.h"
#include "ZelTestRoot.h"
#include "ZelTestWait.h"

inline size_t zelctlNameEnd(const std::string& text, size_t at) {
    while (at < text.size() && (isupper(text[at]) || isdigit(text[at]) || text[at] == '_')) ++at;
    return at;
}

inline std::vector<std::string> zelctlLinesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

class ZelctlRuns {
public:
    ZelctlRuns(std::string zelctl, const ZelTestRoot& root) : mZelctl(std::move(zelctl)), mRoot(root) {}

    // Performs a zelctl step; false when `w` is none. `result` is the exit
    // status of a command run or joined, else empty.
    bool perform(const std::vector<std::string>& w, const std::string& text, std::string* result) {
        mCurrent = nullptr;
        const bool named = w.size() >= 2 && mRuns.count(w[1]) != 0;
        if (w[0] == "zelctl") {
            mCurrent = &launch("", {w.begin() + 1, w.end()});
        } else if (w[0] == "zelctl&" && w.size() >= 2) {
            launch(w[1], {w.begin() + 2, w.end()});
            return true;
        } else if ((w[0] == "join" || w[0] == "stop" || w[0] == "kill") && named) {
            mCurrent = &mRuns[w[1]];
            if (w[0] != "join" && mCurrent->process) mCurrent->process->kill(w[0] == "stop" ? SIGTERM : SIGKILL);
        } else if (w[0] == "await" && named) {
            const Run& run = mRuns[w[1]];
            const auto printed = [&] { return readZelTestFile(run.outPath) + readZelTestFile(run.errPath); };
            if (!eventually([&] { return printed().find(text) != std::string::npos; })) {
                zelScenarioRefuse("no '" + text + "' from " + w[1] + ":\n" + printed());
            }
            return true;
        } else {
            return false;
        }
        mCurrent->join();
        *result = std::to_string(mCurrent->status);
        return true;
    }

    // Checks an expectation about the command of the step; false when `w` is
    // none. `found` is empty when it holds.
    bool check(const std::vector<std::string>& w, const std::string& text, std::string* found) {
        if (w[0] != "out" && w[0] != "has" && w[0] != "err" && w[0] != "within") return false;
        if (mCurrent == nullptr) zelScenarioRefuse("no zelctl command in this step");
        const std::string out = readZelTestFile(mCurrent->outPath);
        const std::string err = readZelTestFile(mCurrent->errPath);
        if (w[0] == "out") {
            const std::vector<std::string> lines = zelctlLinesOf(out);
            const size_t at = mCurrent->outLinesMatched++;
            if (at >= lines.size()) {
                *found = "no line " + std::to_string(at + 1) + "; stdout:\n" + out;
            } else if (!matches(text, 0, lines[at], 0)) {
                *found = lines[at];
            }
        } else if (w[0] == "within") {
            const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(mCurrent->took).count();
            if (took >= std::stol(text)) *found = "took " + std::to_string(took) + " ms";
        } else {
            const std::string& printed = w[0] == "has" ? out : err;
            if (printed.find(bound(text)) == std::string::npos) *found = printed;
        }
        return true;
    }

    // After a step: empty unless its `out` lines left some of its output unmatched.
    std::string stepEnd() {
        if (mCurrent == nullptr || mCurrent->outLinesMatched == 0) return "";
        const std::string out = readZelTestFile(mCurrent->outPath);
        const size_t lines = zelctlLinesOf(out).size();
        if (lines <= mCurrent->outLinesMatched) return "";
        return "stdout has " + std::to_string(lines) + " lines, the table gives " +
               std::to_string(mCurrent->outLinesMatched) + ":\n" + out;
    }

private:
    struct Run {
        std::unique_ptr<ZelPeerProcess> process;
        std::string outPath, errPath;
        std::chrono::steady_clock::time_point started;
        std::chrono::steady_clock::duration took{};
        int status = -1;
        size_t outLinesMatched = 0;
        void join() {
            if (process == nullptr) return;
            if (!eventually([&] { return !process->running(); })) process->kill(SIGKILL);
            status = process->wait();
            took = std::chrono::steady_clock::now() - started;
            process.reset();
        }
    };

    Run& launch(const std::string& name, const std::vector<std::string>& args) {
        Run& run = mRuns[name];
        run = Run();
        const std::string base = mRoot.at("/zelctl-" + std::to_string(++mLaunched));
        run.outPath = base + ".out";
        run.errPath = base + ".err";
        // Leading NAME=value words set the environment, as in a shell.
        std::vector<std::string> bargs;
        size_t at = 0;
        const auto assignment = [](const std::string& word) {
            const size_t name = zelctlNameEnd(word, 0);
            return name > 0 && name < word.size() && word[name] == '=';
        };
        while (at < args.size() && assignment(args[at])) bargs.push_back(bound(args[at++]));
        const bool env = !bargs.empty();
        if (env) bargs.push_back(mZelctl);
        for (; at < args.size(); ++at) bargs.push_back(bound(args[at]));
        run.started = std::chrono::steady_clock::now();
        run.process = std::make_unique<ZelPeerProcess>(env ? "/usr/bin/env" : mZelctl, bargs,
                                                       ZelOutputTo(run.outPath, run.errPath).get());
        return run;
    }

    // `text` with every bound $NAME and $ROOT in place.
    std::string bound(const std::string& text) const {
        std::string result;
        for (size_t at = 0; at < text.size();) {
            const size_t end = text[at] == '$' ? zelctlNameEnd(text, at + 1) : at + 1;
            const std::string name = text.substr(at + 1, end - at - 1);
            if (end > at + 1 && mVars.count(name) != 0) {
                result += mVars.at(name);
            } else if (name == "ROOT") {
                result += mRoot.path();
            } else {
                result += text.substr(at, end - at);
            }
            at = end;
        }
        return result;
    }

    // Whether text[t..] matches pattern[p..]: "$*" matches any text, "$NAME" a
    // whole number, the same one wherever NAME stands again.
    bool matches(const std::string& pattern, size_t p, const std::string& text, size_t t) {
        if (p == pattern.size()) return t == text.size();
        if (pattern.compare(p, 2, "$*") == 0) {
            for (size_t end = text.size() + 1; end-- > t;) {
                if (matches(pattern, p + 2, text, end)) return true;
            }
            return false;
        }
        const size_t close = pattern[p] == '$' ? zelctlNameEnd(pattern, p + 1) : p + 1;
        if (close == p + 1) return t < text.size() && pattern[p] == text[t] && matches(pattern, p + 1, text, t + 1);
        const std::string name = pattern.substr(p + 1, close - p - 1);
        const bool known = mVars.count(name) != 0;
        size_t end = t + (t < text.size() && text[t] == '-');
        while (end < text.size() && isdigit(text[end])) ++end;
        const std::string value = name == "ROOT" ? mRoot.path() : known ? mVars[name] : text.substr(t, end - t);
        if (value.empty() || text.compare(t, value.size(), value) != 0) return false;
        if (name != "ROOT") mVars[name] = value;
        if (matches(pattern, close, text, t + value.size())) return true;
        if (!known && name != "ROOT") mVars.erase(name);
        return false;
    }

    const std::string mZelctl;
    const ZelTestRoot& mRoot;
    std::map<std::string, Run> mRuns;  // by name; "" is the last foreground one
    Run* mCurrent = nullptr;           // the command of the current step
    std::map<std::string, std::string> mVars;
    int mLaunched = 0;
};
