#pragma once

// zelctl processes of an end-to-end table and what they printed: the steps
// `zelctl`, `zelctl& NAME`, `await`, `join`, `stop`, `kill` and the
// expectations `out`, `has`, `err`, `within` (scenarios/README.md).

#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "ZelTestRoot.h"
#include "ZelTestProcess.h"

class ZelctlRuns {
public:
    ZelctlRuns(std::string zelctl, const ZelTestRoot& root) : mZelctl(std::move(zelctl)), mRoot(root) {}

    // Performs a zelctl step; false when `words` is none. `result` is the
    // exit status of a command run or joined, else empty.
    bool perform(const std::vector<std::string>& words, const std::string& text, std::string* result);
    // Checks an expectation about the command of the step; false when
    // `words` is none. `found` is empty when it holds.
    bool check(const std::vector<std::string>& words, const std::string& text, std::string* found);
    // After a step: empty unless its `out` lines left some of its output unmatched.
    std::string stepEnd();

private:
    struct Run {
        std::unique_ptr<ZelPeerProcess> process;
        std::string outPath, errPath;
        std::chrono::steady_clock::time_point started;
        std::chrono::steady_clock::duration took{};
        int status = -1;
        size_t outLinesMatched = 0;
        void join();
    };

    Run& launch(const std::string& name, const std::vector<std::string>& args);
    // `text` with every bound $NAME and $ROOT in place.
    std::string bound(const std::string& text) const;
    bool matches(const std::string& pattern, size_t p, const std::string& text, size_t t);

    const std::string mZelctl;
    const ZelTestRoot& mRoot;
    std::map<std::string, Run> mRuns;  // by name; "" is the last foreground one
    Run* mCurrent = nullptr;           // the command of the current step
    std::map<std::string, std::string> mVars;
    int mLaunched = 0;
};
