#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>

#include <android-base/unique_fd.h>

#include "ZelThreadPool.h"

namespace zel::binder {

// Processes that closed their connections to this one while they may still
// hold its objects: what they held is forgotten once they have exited. Each
// process costs one pidfd in the pool's epoll set, whatever number of
// endpoint names it used (at most kZelMaxEndpointsPerProcess are
// remembered; a further name is given up at once).
class ZelExitWatch {
public:
    using Gone = std::function<void(const std::string& endpoint)>;

    ZelExitWatch(ZelThreadPool& pool, std::atomic<uint64_t>& ids, Gone gone);

    // The process `pid` closed a connection it named `endpoint`.
    void watch(const std::string& endpoint, pid_t pid);
    // Pool threads: the pidfd `id` became readable, its process has exited.
    void onExit(uint64_t id);

private:
    struct Watch {
        android::base::unique_fd pidfd;
        pid_t pid = 0;
        std::set<std::string> endpoints;  // names the process used
    };
    // The pid's watch, or false when it needs a new one; sets `*overBound`
    // when the process has used too many names to remember this one.
    bool addToExistingLocked(const std::string& endpoint, pid_t pid, bool* overBound);

    ZelThreadPool& mPool;
    std::atomic<uint64_t>& mIds;
    const Gone mGone;

    std::mutex mLock;  // leaf lock; guards the maps below
    std::map<uint64_t, Watch> mWatches;
    std::map<pid_t, uint64_t> mWatchOf;  // pid -> id in mWatches
};

}  // namespace zel::binder
