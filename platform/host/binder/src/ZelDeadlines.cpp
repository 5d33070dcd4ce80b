#include "ZelDeadlines.h"

#include <errno.h>
#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <unistd.h>

namespace zel::binder {

using android::OK;
using android::status_t;

namespace {
// The steady clock is CLOCK_MONOTONIC: its time points are the timer's.
itimerspec at(ZelDeadlines::Clock::time_point when) {
    const auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(when.time_since_epoch()).count();
    itimerspec spec{};
    spec.it_value.tv_sec = static_cast<time_t>(ns / 1000000000);
    spec.it_value.tv_nsec = static_cast<long>(ns % 1000000000);
    if (spec.it_value.tv_sec == 0 && spec.it_value.tv_nsec == 0) spec.it_value.tv_nsec = 1;  // 0 disarms
    return spec;
}
}  // namespace

status_t ZelDeadlines::init(int epollFd, uint64_t tag) {
    mEpollFd = epollFd;
    mTag = tag;
    mTimerFd.reset(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC));
    epoll_event ev{};
    ev.events = EPOLLIN | EPOLLONESHOT;
    ev.data.u64 = tag;
    if (mTimerFd.get() < 0 || epoll_ctl(epollFd, EPOLL_CTL_ADD, mTimerFd.get(), &ev) != 0) return -errno;
    return OK;
}

void ZelDeadlines::set(Key key, Clock::time_point when) {
    std::lock_guard<std::mutex> guard(mLock);
    auto found = mByKey.find(key);
    if (found != mByKey.end()) mByTime.erase(found->second);
    mByKey[key] = mByTime.emplace(when, key);
    if (when < mArmedFor) armLocked();
}

void ZelDeadlines::clear(uint64_t id) {
    std::lock_guard<std::mutex> guard(mLock);
    for (auto it = mByKey.lower_bound(Key{id, Kind::INPUT}); it != mByKey.end() && it->first.id == id;) {
        mByTime.erase(it->second);
        it = mByKey.erase(it);
    }
}

std::vector<ZelDeadlines::Key> ZelDeadlines::takeExpired() {
    uint64_t expirations;
    (void)!read(mTimerFd.get(), &expirations, sizeof(expirations));
    std::vector<Key> expired;
    std::lock_guard<std::mutex> guard(mLock);
    const Clock::time_point now = Clock::now();
    while (!mByTime.empty() && mByTime.begin()->first <= now) {
        expired.push_back(mByTime.begin()->second);
        mByKey.erase(mByTime.begin()->second);
        mByTime.erase(mByTime.begin());
    }
    armLocked();
    epoll_event ev{};
    ev.events = EPOLLIN | EPOLLONESHOT;
    ev.data.u64 = mTag;
    epoll_ctl(mEpollFd, EPOLL_CTL_MOD, mTimerFd.get(), &ev);
    return expired;
}

void ZelDeadlines::armLocked() {
    mArmedFor = mByTime.empty() ? Clock::time_point::max() : mByTime.begin()->first;
    const itimerspec spec = mByTime.empty() ? itimerspec{} : at(mArmedFor);
    timerfd_settime(mTimerFd.get(), TFD_TIMER_ABSTIME, &spec, nullptr);
}

}  // namespace zel::binder
