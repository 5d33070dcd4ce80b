#include "ZelDependencyCycleGuard.h"

namespace {
thread_local std::set<TaskKey> tKeysBeingDecided;
}  // namespace

ZelDependencyCycleGuard::ZelDependencyCycleGuard(const TaskKey& key) {
    auto inserted = tKeysBeingDecided.insert(key);
    mEntry = inserted.first;
    mOwnsEntry = inserted.second;
}

ZelDependencyCycleGuard::~ZelDependencyCycleGuard() {
    if (mOwnsEntry) tKeysBeingDecided.erase(mEntry);
}

bool ZelDependencyCycleGuard::isBeingDecided(const TaskKey& key) {
    return tKeysBeingDecided.count(key) != 0;
}

size_t ZelDependencyCycleGuard::depth() {
    return tKeysBeingDecided.size();
}
