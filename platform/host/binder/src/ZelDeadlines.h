#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <vector>

#include <android-base/unique_fd.h>
#include <utils/Errors.h>

namespace zel::binder {

// The deadlines of the runtime's connections on one timer: a timerfd in the
// runtime's epoll set (one-shot) that fires at the earliest of them. A
// deadline that fires is a prompt to look again, not a verdict: whoever set
// it decides then whether it still applies.
class ZelDeadlines {
public:
    using Clock = std::chrono::steady_clock;
    enum class Kind : uint8_t { INPUT, OUTPUT, ACCEPT };
    struct Key {
        uint64_t id;
        Kind kind;
        bool operator<(const Key& o) const { return id != o.id ? id < o.id : kind < o.kind; }
    };

    // Creates the timer and adds it to `epollFd` under `tag`.
    [[nodiscard]] android::status_t init(int epollFd, uint64_t tag);
    // Sets or moves the deadline of `key`.
    void set(Key key, Clock::time_point when);
    // Forgets every deadline of `id`.
    void clear(uint64_t id);
    // Takes the deadlines that have passed and arms the timer for the next
    // one; called by the thread the timer woke.
    std::vector<Key> takeExpired();

private:
    using ByTime = std::multimap<Clock::time_point, Key>;
    void armLocked();

    int mEpollFd = -1;
    uint64_t mTag = 0;
    android::base::unique_fd mTimerFd;
    std::mutex mLock;  // leaf lock; guards the fields below
    ByTime mByTime;
    std::map<Key, ByTime::iterator> mByKey;
    Clock::time_point mArmedFor = Clock::time_point::max();
};

}  // namespace zel::binder
