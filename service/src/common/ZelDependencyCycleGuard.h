#pragma once

#include <set>

#include "PolicyTaskKey.h"

// Marks a task's start as being decided on the current thread's call stack
// for the guard's lifetime. A dependency check that meets a key already
// marked has found a cycle in the policy's allow lists: requesting it again
// would recurse without end. Acyclic policies never meet a marked key.
class ZelDependencyCycleGuard {
public:
    explicit ZelDependencyCycleGuard(const TaskKey& key);
    ~ZelDependencyCycleGuard();
    ZelDependencyCycleGuard(const ZelDependencyCycleGuard&) = delete;
    ZelDependencyCycleGuard& operator=(const ZelDependencyCycleGuard&) = delete;

    // Whether the key's start is being decided further up this thread's stack.
    static bool isBeingDecided(const TaskKey& key);
    // How many starts are being decided on this thread's stack: the depth of
    // nested dependency requests, each of which takes stack.
    static size_t depth();

private:
    std::set<TaskKey>::iterator mEntry;
    bool mOwnsEntry;
};
