#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>

#include "PolicyTask.h"
#include "PolicyTaskKey.h"

// Every task of every component, keyed by TaskKey. Each operation holds the
// mutex for its whole duration and for nothing else (a leaf lock).
class PolicyTaskTable {
public:
    // Keeps an existing entry (first wins); true when `task` was stored.
    bool insert(const TaskKey& key, std::shared_ptr<PolicyTask> task);
    // The task under `key`, or an empty reference.
    std::shared_ptr<PolicyTask> find(const TaskKey& key) const;
    std::size_t size() const;
    // Calls `visit` for every entry in key order, under the mutex: `visit`
    // must not call back into the table.
    void forEach(const std::function<void(const TaskKey&, const PolicyTask&)>& visit) const;

private:
    mutable std::mutex mLock;  // guards mTasks
    std::map<TaskKey, std::shared_ptr<PolicyTask>> mTasks;
};
