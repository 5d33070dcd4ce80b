#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <mutex>

#include "PolicyTaskKey.h"
#include "ZelTask.h"

// One task table of the task manager: records by TaskKey. Each operation holds
// mLock for its whole duration and calls nothing outside the map, so a table
// mutex never nests with another table's or is held while a record is locked.
class LockedTaskMap {
public:
    using Map = std::map<TaskKey, std::shared_ptr<ZelTask>>;

    // The record under the key, or empty.
    std::shared_ptr<ZelTask> find(const TaskKey& key) const;
    // Adds the entry when the key is absent; an existing entry wins.
    bool insert(const TaskKey& key, std::shared_ptr<ZelTask> task);
    // Whether an entry was there. A record losing its last reference here is
    // released after mLock.
    bool erase(const TaskKey& key);
    // A copy of the whole table, for walking it without holding mLock.
    Map snapshot() const;
    std::size_t size() const;

private:
    mutable std::mutex mLock;
    Map mTaskMap;
};
