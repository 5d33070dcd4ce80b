#pragma once

#include <map>
#include <vector>

#include "PolicyTask.h"

// Dependency cycles of a policy's allow lists. Starting a task makes the
// daemon start its allow-listed tasks first, so a cycle means a start request
// that never finishes deciding.
class ZelPolicyCycles {
public:
    using Graph = std::map<TaskKey, TaskKeyList>;  // task -> its allow list

    // One cycle for every group of tasks that depend on each other (including
    // a task that depends on itself): the keys along the cycle, the first key
    // repeated at the end. Groups come in key order of their smallest task,
    // and each cycle starts there.
    static std::vector<TaskKeyList> find(const Graph& graph);

    // The graph's tasks (dependencies included) numbered in key order, and
    // each one's allow list by number.
    struct Numbered {
        std::vector<TaskKey> keys;
        std::vector<std::vector<int>> edges;
    };
    static Numbered number(const Graph& graph);
};
