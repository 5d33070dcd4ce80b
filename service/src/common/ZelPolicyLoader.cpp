#include "ZelPolicyLoader.h"

#include <rapidjson/document.h>

#include "ZelPolicy.h"

// Interim: every document is refused until the walk lands.
bool ZelPolicyLoader::processJsonPolicyFromFile(const std::string&) { return false; }
bool ZelPolicyLoader::processJsonPolicyFromBuffer(const std::string&) { return false; }
bool ZelPolicyLoader::processJsonPolicy_v1_0(const rapidjson::Document&) { return false; }
