#include "ZelPolicyFile.h"

#include "ZelDevicePath.h"
#include "ZelSystemProperty.h"

namespace {

constexpr const char* kDefaultPolicyFile = "/system/etc/zel_policy.json";
constexpr const char* kOverridePolicyFile = "/data/zeld/zel_policy.json";
constexpr const char* kOverrideProperty = "zeld.config.policy.override";

}  // namespace

ZelPolicyFile ZelPolicyFile::choose() {
    ZelPolicyFile file;
    file.override = ZelSystemProperty::getProperty(kOverrideProperty, file.override);
    file.path = zelDevicePath(file.override ? kOverridePolicyFile : kDefaultPolicyFile);
    return file;
}
