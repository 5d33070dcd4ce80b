#include "ZelPolicy.h"

#include "ZelPolicyLoader.h"

ZelPolicy::ZelPolicy() : taskTable(std::make_shared<PolicyTaskTable>()) {
    eventGroups.max_load_factor(1.0f);
    groupEvents.max_load_factor(1.0f);
}

bool ZelPolicy::processJsonPolicyFromFile(const std::string& path) {
    return ZelPolicyLoader(*this).processJsonPolicyFromFile(path);
}

bool ZelPolicy::processJsonPolicyFromBuffer(const std::string& text) {
    return ZelPolicyLoader(*this).processJsonPolicyFromBuffer(text);
}

bool ZelPolicy::processJsonPolicy_v1_0(const rapidjson::Document& root) {
    return ZelPolicyLoader(*this).processJsonPolicy_v1_0(root);
}
