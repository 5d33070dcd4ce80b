#pragma once

#include <memory>
#include <string>
#include <vector>

#include <log/log.h>
#include <zel/ZelHostLog.h>

#include "ZelPolicy.h"

// One load of a policy document with the lines it logged, each as
// "<level letter> <text>" (the "file::function:line - " prefix removed).
struct PolicyTestLoad {
    bool accepted = false;
    std::shared_ptr<ZelPolicy> policy;
    std::vector<std::string> log;
};

// Loads `text` with ZelPolicy::processJsonPolicyFromBuffer.
PolicyTestLoad loadPolicyText(const std::string& text);
// Loads a file with ZelPolicy::processJsonPolicyFromFile.
PolicyTestLoad loadPolicyFile(const std::string& path);

// "<level letter> <text>" for every captured line; with `withFunction`,
// "<level letter> <file>::<function> - <text>" (line numbers dropped).
std::vector<std::string> policyLogLines(const zel::hostlog::ZelLogCapture& capture,
                                        bool withFunction = false);

// A version 1.0 document with the JSON texts of its three arrays.
std::string policyDocument(const std::string& groups, const std::string& components,
                           const std::string& rules = "[]");
// A minimal valid document: group "g" (id 3) with event "e" (id 1), component
// "c" (process "p") with task "t"; `rules` is the JSON text of the rules array.
std::string policyWithRules(const std::string& rules);

std::string readTextFile(const std::string& path);
