#pragma once

#include <string>

#include <rapidjson/fwd.h>

class ZelPolicy;

// Reads a policy document into a ZelPolicy. Strict: the first fault that
// rejects the document ends the load, and nothing after it is read. Runs once,
// single-threaded, before anyone else can see the policy.
class ZelPolicyLoader {
public:
    explicit ZelPolicyLoader(ZelPolicy& policy) : mPolicy(policy) {}

    bool processJsonPolicyFromFile(const std::string& path);
    bool processJsonPolicyFromBuffer(const std::string& text);
    bool processJsonPolicy_v1_0(const rapidjson::Document& root);

private:
    ZelPolicy& mPolicy;  // the policy being filled; outlives the loader
};
