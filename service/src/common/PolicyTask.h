#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "PolicyComponent.h"
#include "PolicyEvent.h"
#include "PolicyTaskKey.h"

using TaskKeyList = std::vector<TaskKey>;
using PolicyEventList = std::vector<PolicyEvent>;

// One task of a component. Owned by the policy's task table; immutable once
// the load is done, so it is read without a lock through a shared reference.
struct PolicyTask {
    std::string identifier;
    std::string priorityType;
    int32_t priorityValue = 1;
    bool preempt = true;
    int32_t minimumGuaranteedRuntime = 5000;  // milliseconds
    // Expired when the component's identifier repeated an earlier one.
    std::weak_ptr<PolicyComponent> component;
    PolicyEventList startEvents;
    PolicyEventList stopEvents;
    TaskKeyList allowList;  // start dependencies, document order
    TaskKeyList denyList;   // kept in the model, offered by no query
};
