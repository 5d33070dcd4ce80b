#include "LockedTaskMap.h"

#include <utility>

#include "ZelTrace.h"

std::shared_ptr<ZelTask> LockedTaskMap::find(const TaskKey& key) const {
    std::lock_guard<std::mutex> guard(mLock);
    auto it = mTaskMap.find(key);
    return it == mTaskMap.end() ? nullptr : it->second;
}

bool LockedTaskMap::insert(const TaskKey& key, std::shared_ptr<ZelTask> task) {
    std::lock_guard<std::mutex> guard(mLock);
    const bool added = mTaskMap.try_emplace(key, std::move(task)).second;
    if (added) countLocked();
    return added;
}

bool LockedTaskMap::erase(const TaskKey& key) {
    std::shared_ptr<ZelTask> removed;  // destroyed after the guard
    std::lock_guard<std::mutex> guard(mLock);
    auto it = mTaskMap.find(key);
    if (it == mTaskMap.end()) return false;
    removed = std::move(it->second);
    mTaskMap.erase(it);
    countLocked();
    return true;
}

LockedTaskMap::Map LockedTaskMap::snapshot() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mTaskMap;
}

std::size_t LockedTaskMap::size() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mTaskMap.size();
}

void LockedTaskMap::countLocked() const {
    if (mCounter != nullptr) zelTraceCounter(mCounter, static_cast<int64_t>(mTaskMap.size()));
}
