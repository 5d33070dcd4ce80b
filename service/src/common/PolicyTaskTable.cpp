#include "PolicyTaskTable.h"

#include <utility>

bool PolicyTaskTable::insert(const TaskKey& key, std::shared_ptr<PolicyTask> task) {
    std::lock_guard<std::mutex> guard(mLock);
    return mTasks.emplace(key, std::move(task)).second;
}

std::shared_ptr<PolicyTask> PolicyTaskTable::find(const TaskKey& key) const {
    std::lock_guard<std::mutex> guard(mLock);
    auto it = mTasks.find(key);
    return it == mTasks.end() ? nullptr : it->second;
}

std::size_t PolicyTaskTable::size() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mTasks.size();
}

void PolicyTaskTable::forEach(
        const std::function<void(const TaskKey&, const PolicyTask&)>& visit) const {
    std::lock_guard<std::mutex> guard(mLock);
    for (const auto& [key, task] : mTasks) visit(key, *task);
}
