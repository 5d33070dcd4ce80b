#pragma once

#include <vector>

#include <rapidjson/fwd.h>

#include "ZelPolicy.h"
#include "ZelPolicyFinding.h"

// Finds what the loader accepts but what would hurt on a device. Works on a
// document that the loader accepted and on the policy it built from it: the
// model answers what the daemon will do, the document keeps what the model
// drops (repeated identifiers, property texts, unknown action messages).
class ZelPolicyLint {
public:
    static std::vector<ZelPolicyFinding> run(const rapidjson::Document& document,
                                             const ZelPolicy& policy);

    // The reaper enforces no run time above this many milliseconds.
    static constexpr int32_t kLongestEnforcedRuntimeMs = 5000;
    // The run time the reaper leaves alone: no limit.
    static constexpr int32_t kUnlimitedRuntimeMs = -1;

private:
    using Findings = std::vector<ZelPolicyFinding>;

    static void checkCycles(const ZelPolicy& policy, Findings& findings);
    static void checkComponents(const rapidjson::Document& document, Findings& findings);
    static void checkActionMessages(const rapidjson::Document& document, Findings& findings);
    static void checkTasks(const ZelPolicy& policy, Findings& findings);
    static void checkEventIds(const ZelPolicy& policy, Findings& findings);
};
