#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <mutex>

#include "PolicyTaskKey.h"
#include "ZelTask.h"

// One task table of the task manager: records by TaskKey. Each operation holds
// mLock for its whole duration and calls nothing outside the map but the
// trace's counter (whose back end takes only a leaf lock of its own), so a
// table mutex never nests with another table's or is held while a record is
// locked.
class LockedTaskMap {
public:
    using Map = std::map<TaskKey, std::shared_ptr<ZelTask>>;

    // `counter`: a string literal naming the trace counter that follows the
    // table's size as it changes (written under mLock, so in the order of the
    // changes), or none.
    explicit LockedTaskMap(const char* counter = nullptr) : mCounter(counter) {}

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
    // The size on the trace's counter; under mLock.
    void countLocked() const;

    const char* const mCounter;
    mutable std::mutex mLock;
    Map mTaskMap;
};
