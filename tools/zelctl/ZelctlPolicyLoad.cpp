#include "ZelctlPolicyLoad.h"

ZelctlPolicyLoad ZelctlPolicyLoad::fromFile(const std::string& path) {
    ZelctlPolicyLoad load;
    load.policy = std::make_shared<ZelPolicy>();
    ZelctlLogTap tap;
    load.accepted = load.policy->processJsonPolicyFromFile(path);
    load.log = tap.lines();
    return load;
}

void ZelctlPolicyLoad::printLog(std::ostream& stream, int minPriority) const {
    for (const ZelctlLogLine& line : log) {
        if (line.priority < minPriority) continue;
        stream << zelctlLevelLetter(line.priority) << "/zeld: " << line.message << "\n";
    }
}
