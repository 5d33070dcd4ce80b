#pragma once

#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "ZelPolicy.h"
#include "ZelctlLogTap.h"

// A policy file loaded by the daemon's own loader, with every line it logged.
struct ZelctlPolicyLoad {
    bool accepted = false;
    std::shared_ptr<ZelPolicy> policy;
    std::vector<ZelctlLogLine> log;

    static ZelctlPolicyLoad fromFile(const std::string& path);

    // Writes the logged lines in logcat's brief form ("D/zeld: ..."), those
    // below `minPriority` left out.
    void printLog(std::ostream& stream, int minPriority) const;
};
