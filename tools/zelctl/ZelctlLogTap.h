#pragma once

#include <memory>
#include <string>
#include <vector>

// One line the daemon's code logged: its priority (ANDROID_LOG_*) and the
// complete message, "file::function:line - text".
struct ZelctlLogLine {
    int priority;
    std::string message;
};

// Collects what the daemon's code logs while the tap lives, instead of letting
// it reach the log's usual destination, so zelctl can print it itself. The
// platform-specific part is the tap's implementation file alone.
class ZelctlLogTap {
public:
    ZelctlLogTap();
    ~ZelctlLogTap();
    ZelctlLogTap(const ZelctlLogTap&) = delete;
    ZelctlLogTap& operator=(const ZelctlLogTap&) = delete;

    std::vector<ZelctlLogLine> lines() const;

private:
    struct State;
    std::unique_ptr<State> mState;
};

// "D", "I", "W", "E" for the log priorities the daemon uses.
char zelctlLevelLetter(int priority);
