#pragma once

#include <string>
#include <vector>

#include <log/log.h>
#include <zel/ZelHostLog.h>

// Log lines as tests compare them: without the source line number, which
// changes with every edit of the file that logs.

// "L" for a priority: V, D, I, W, E, F.
inline char zelLogLevelLetter(int priority) {
    static_assert(ANDROID_LOG_VERBOSE == 2 && ANDROID_LOG_FATAL == 7, "letters follow the priorities");
    return priority >= ANDROID_LOG_VERBOSE && priority <= ANDROID_LOG_FATAL ? "VDIWEF"[priority - 2] : '?';
}

// "file::function:12 - text" -> "file::function - text"; other text unchanged.
inline std::string zelDropLineNumber(std::string text) {
    const auto dash = text.find(" - ");
    const auto colon = dash == std::string::npos ? dash : text.rfind(':', dash);
    if (colon != std::string::npos && colon + 1 < dash &&
        text.find_first_not_of("0123456789", colon + 1) == dash) {
        text.erase(colon, dash - colon);
    }
    return text;
}

// The text after the "file::function:line - " prefix, trailing blanks dropped.
inline std::string zelLogMessageText(const zel::hostlog::LogLine& line) {
    const auto dash = line.message.find(" - ");
    std::string text = dash == std::string::npos ? line.message : line.message.substr(dash + 3);
    return text.erase(text.find_last_not_of(" \n") + 1);
}

// A capture's lines as "L text", in order.
inline std::vector<std::string> zelLogLines(const zel::hostlog::ZelLogCapture& capture) {
    std::vector<std::string> lines;
    for (const auto& line : capture.lines()) lines.push_back(zelLogLevelLetter(line.priority) + (" " + zelLogMessageText(line)));
    return lines;
}
