#pragma once

#include <vector>

#include "ZelPolicyCycles.h"

// Long dependency chains of a policy's allow lists. The daemon decides a
// start request by one nested start request per level of the chain below the
// task, all on the binder thread that took the request.
class ZelPolicyChains {
public:
    using Graph = ZelPolicyCycles::Graph;  // task -> its allow list

    // For each task whose longest chain is more than `limit` levels deep and
    // that no other such task depends on: that chain, the task first. In key
    // order. An edge that closes a cycle adds no level (the daemon's cycle
    // guard stops there). Long chains cannot exhaust the stack.
    static std::vector<TaskKeyList> deeperThan(const Graph& graph, size_t limit);
};
