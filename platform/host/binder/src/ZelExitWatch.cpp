#include "ZelExitWatch.h"

#include <errno.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "ZelRuntimeLimits.h"

namespace zel::binder {

namespace {

// True once the process behind `pidfd` has exited.
bool processExited(int pidfd) {
    pollfd exited{pidfd, POLLIN, 0};
    return poll(&exited, 1, 0) > 0;
}

}  // namespace

ZelExitWatch::ZelExitWatch(ZelThreadPool& pool, std::atomic<uint64_t>& ids, Gone gone)
    : mPool(pool), mIds(ids), mGone(std::move(gone)) {}

bool ZelExitWatch::addToExistingLocked(const std::string& endpoint, pid_t pid, bool* overBound) {
    auto of = mWatchOf.find(pid);
    if (of == mWatchOf.end()) return false;
    Watch& watch = mWatches.at(of->second);
    if (processExited(watch.pidfd.get())) {
        mWatchOf.erase(of);  // an earlier process of that pid; its exit is on its way
        return false;
    }
    // The same process: its one pidfd.
    *overBound = watch.endpoints.count(endpoint) == 0 && watch.endpoints.size() >= kZelMaxEndpointsPerProcess;
    if (!*overBound) watch.endpoints.insert(endpoint);
    return true;
}

void ZelExitWatch::watch(const std::string& endpoint, pid_t pid) {
    if (pid <= 0) return;
    bool overBound = false;
    {
        std::lock_guard<std::mutex> guard(mLock);
        if (addToExistingLocked(endpoint, pid, &overBound) && !overBound) return;
    }
    if (overBound) return mGone(endpoint);
    android::base::unique_fd pidfd(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
    if (pidfd.get() < 0) {
        if (errno == ESRCH) mGone(endpoint);
        return;
    }
    std::lock_guard<std::mutex> guard(mLock);
    auto of = mWatchOf.find(pid);
    if (of != mWatchOf.end()) {  // made meanwhile by another thread
        mWatches.at(of->second).endpoints.insert(endpoint);
        return;
    }
    const uint64_t id = mIds++;
    if (!mPool.add(pidfd.get(), EPOLLIN | EPOLLONESHOT, ZelSource::EXIT, id)) return;
    mWatchOf[pid] = id;
    mWatches[id] = Watch{std::move(pidfd), pid, {endpoint}};
}

void ZelExitWatch::onExit(uint64_t id) {
    std::set<std::string> endpoints;
    {
        std::lock_guard<std::mutex> guard(mLock);
        auto it = mWatches.find(id);
        if (it == mWatches.end()) return;
        endpoints = std::move(it->second.endpoints);
        auto of = mWatchOf.find(it->second.pid);
        if (of != mWatchOf.end() && of->second == id) mWatchOf.erase(of);
        mWatches.erase(it);  // closes the pidfd
    }
    for (const std::string& endpoint : endpoints) mGone(endpoint);
}

}  // namespace zel::binder
