// Host implementation of ZelctlLogTap: the host log's capture hook, with its
// stderr writer silenced while the tap lives.

#include "ZelctlLogTap.h"

#include <log/log.h>
#include <zel/ZelHostLog.h>

struct ZelctlLogTap::State {
    int previousStderrPriority = zel::hostlog::stderrMinPriority();
    zel::hostlog::ZelLogCapture capture;
};

ZelctlLogTap::ZelctlLogTap() : mState(std::make_unique<State>()) {
    zel::hostlog::setStderrMinPriority(ANDROID_LOG_SILENT);
}

ZelctlLogTap::~ZelctlLogTap() {
    zel::hostlog::setStderrMinPriority(mState->previousStderrPriority);
}

std::vector<ZelctlLogLine> ZelctlLogTap::lines() const {
    std::vector<ZelctlLogLine> result;
    for (const auto& line : mState->capture.lines()) result.push_back({line.priority, line.message});
    return result;
}

char zelctlLevelLetter(int priority) {
    static_assert(ANDROID_LOG_VERBOSE == 2 && ANDROID_LOG_FATAL == 7, "letters follow the priorities");
    static const char kLetters[] = "??VDIWEF";
    return priority >= 0 && priority < 8 ? kLetters[priority] : '?';
}
