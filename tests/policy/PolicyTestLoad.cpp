#include "PolicyTestLoad.h"

#include <log/log.h>

#include <fstream>
#include <sstream>

namespace {

char levelLetter(int priority) {
    static_assert(ANDROID_LOG_VERBOSE == 2 && ANDROID_LOG_FATAL == 7, "letters follow the priorities");
    static const char kLetters[] = "??VDIWEF";
    return priority >= 0 && priority < 8 ? kLetters[priority] : '?';
}

template <typename Load>
PolicyTestLoad runLoad(Load load) {
    zel::hostlog::ZelLogCapture capture;
    PolicyTestLoad result;
    result.policy = std::make_shared<ZelPolicy>();
    result.accepted = load(*result.policy);
    result.log = policyLogLines(capture);
    return result;
}

}  // namespace

std::vector<std::string> policyLogLines(const zel::hostlog::ZelLogCapture& capture,
                                        bool withFunction) {
    std::vector<std::string> lines;
    for (const auto& line : capture.lines()) {
        const std::string& message = line.message;
        const auto dash = message.find(" - ");
        std::string text(1, levelLetter(line.priority));
        text += ' ';
        if (withFunction && dash != std::string::npos) {
            const auto lineColon = message.rfind(':', dash);
            text += message.substr(0, lineColon) + " - ";
        }
        text += dash == std::string::npos ? message : message.substr(dash + 3);
        lines.push_back(text);
    }
    return lines;
}

PolicyTestLoad loadPolicyText(const std::string& text) {
    return runLoad([&](ZelPolicy& policy) { return policy.processJsonPolicyFromBuffer(text); });
}

PolicyTestLoad loadPolicyFile(const std::string& path) {
    return runLoad([&](ZelPolicy& policy) { return policy.processJsonPolicyFromFile(path); });
}

std::string policyDocument(const std::string& groups, const std::string& components,
                           const std::string& rules) {
    return R"({"version": 1.0, "eventGroups": )" + groups + R"(, "components": )" + components +
           R"(, "rules": )" + rules + "}";
}

std::string policyWithRules(const std::string& rules) {
    return policyDocument(
            R"([{"groupName": "g", "groupId": 3, "events": [{"eventName": "e", "eventId": 1}]}])",
            R"([{"identifier": "c", "processName": "p",
                 "tasks": [{"identifier": "t", "priorityType": "normal"}]}])",
            rules);
}

std::string readTextFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}
