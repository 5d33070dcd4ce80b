#pragma once

#include <cstdint>
#include <string>

#include "PolicyPropertySetting.h"

// One component (client program) of the policy. Owned by ZelPolicy::components
// alone; its tasks refer to it weakly.
struct PolicyComponent {
    std::string identifier;
    std::string processName;
    uint32_t memoryRequirement = 0;
    PropertySetting startProperty;
    PropertySetting stopProperty;
    bool autostart = false;
};
