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
    // The deepest dependency chain the check lets pass. Every level is a
    // nested start request; one that meets a purge waits for the next memory
    // report, and the purge that report starts meets the next level, so a
    // request can take a report per level while every other client waits.
    // Five levels at the device monitor's one report a second fill the
    // reaper's own 5-second period.
    static constexpr size_t kDeepestChain = 5;
    // From here the daemon refuses the start: it decides at most 128 starts
    // nested on one thread (the requested task's included), to keep inside
    // the binder thread's stack; a chain this many levels below the
    // requested task needs one more.
    static constexpr size_t kStackChain = 128;

private:
    using Findings = std::vector<ZelPolicyFinding>;

    static void checkDependencies(const ZelPolicy& policy, Findings& findings);
    static void checkComponents(const rapidjson::Document& document, Findings& findings);
    static void checkActionMessages(const rapidjson::Document& document, Findings& findings);
    static void checkTasks(const ZelPolicy& policy, Findings& findings);
    static void checkEventIds(const ZelPolicy& policy, Findings& findings);
};
