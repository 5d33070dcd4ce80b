#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>

#include <android-base/unique_fd.h>
#include <utils/Errors.h>

namespace zel::binder {

// What a source in the pool's epoll set is: its kind, and an id within it.
enum class ZelSource : uint8_t { LISTENER = 1, WAKE, INCOMING, PEER, EXIT, TIMER };

// The binder thread pool of one process and the epoll set its threads wait
// on together. Every source of work (the listening socket, connections,
// pidfds, the deadline timer) is added to that set, one-shot, under its kind
// and id; the thread it wakes is handed the kind, the id and the events.
// `startThreadPool()` starts the first thread, `joinThreadPool()` adds the
// caller; when every thread is busy another is spawned, up to the maximum
// (those that joined as main threads not counted). Spawned threads leave
// once their spare capacity has gone unused for a while.
class ZelThreadPool {
public:
    using Dispatch = std::function<void(ZelSource source, uint64_t id, uint32_t events)>;

    explicit ZelThreadPool(pid_t pid);

    // Creates the epoll set and the wake-up; NO_INIT when they cannot be made.
    [[nodiscard]] android::status_t init(Dispatch dispatch);
    int epollFd() const { return mEpollFd.get(); }
    static uint64_t tag(ZelSource source, uint64_t id);
    // Adds, re-arms or removes a source of the epoll set.
    [[nodiscard]] bool add(int fd, uint32_t events, ZelSource source, uint64_t id);
    void modify(int fd, uint32_t events, ZelSource source, uint64_t id);
    void remove(int fd);

    // True the first time: startThreadPool starts one thread, once.
    bool markStarted();
    void spawn(bool isMain);
    void join(bool isMain);
    // Ends the pool for good: every thread returns.
    void stop();
    [[nodiscard]] android::status_t setMaxThreads(size_t maxThreads);
    size_t maxThreads() const { return mMaxThreads.load(); }
    // True while pool threads serve the epoll set.
    bool serving() const { return mStarted.load() && !mStopping.load(); }
    // Work is about to keep a thread busy: spawns one if none would be left
    // idle. When the system makes no thread now, the work waits for one of
    // the threads there are.
    void spareThreadIfNeeded();
    size_t threads() const { return mThreads.load(); }

private:
    void loop(bool isMain, bool counted);
    // Starts a detached thread running `main(this)`: 0, or pthread_create's error.
    int startThread(void* (*main)(void*));
    // A pool thread's start routine: loop(isMain, counted) on `pool`.
    template <bool isMain, bool counted>
    static void* threadMain(void* pool);

    const pid_t mPid;
    android::base::unique_fd mEpollFd;
    android::base::unique_fd mWakeFd;  // readable once stop() ran
    Dispatch mDispatch;

    std::mutex mLock;  // leaf lock; guards spawning decisions
    std::atomic<bool> mStarted{false};  // set under mLock
    std::atomic<size_t> mMaxThreads;
    std::atomic<size_t> mSpawned{0};  // on-demand threads, bounded by mMaxThreads
    std::atomic<size_t> mThreads{0};
    std::atomic<size_t> mIdle{0};
    std::atomic<bool> mStopping{false};
};

}  // namespace zel::binder
