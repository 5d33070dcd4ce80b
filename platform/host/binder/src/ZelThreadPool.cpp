#include "ZelThreadPool.h"

#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>

#include <binder/IPCThreadState.h>

#include "ZelBinderLog.h"

namespace zel::binder {

using android::NO_INIT;
using android::OK;
using android::status_t;

namespace {

// The kind in the top byte of an epoll tag, the id below.
constexpr int kTagShift = 56;
constexpr uint64_t kIdMask = (uint64_t{1} << kTagShift) - 1;

constexpr size_t kDefaultMaxThreads = 15;
// A spawned pool thread leaves once, for this long, another thread has always
// been idle when it woke: its spare capacity went unused.
constexpr int kIdleExitMs = 2000;

}  // namespace

ZelThreadPool::ZelThreadPool(pid_t pid) : mPid(pid), mMaxThreads(kDefaultMaxThreads) {}

uint64_t ZelThreadPool::tag(ZelSource source, uint64_t id) {
    return (static_cast<uint64_t>(source) << kTagShift) | (id & kIdMask);
}

status_t ZelThreadPool::init(Dispatch dispatch) {
    mDispatch = std::move(dispatch);
    mEpollFd.reset(epoll_create1(EPOLL_CLOEXEC));
    mWakeFd.reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (mEpollFd.get() < 0 || mWakeFd.get() < 0) return NO_INIT;
    epoll_event wake{};
    wake.events = EPOLLIN;  // level-triggered: wakes every pool thread
    wake.data.u64 = tag(ZelSource::WAKE, 0);
    return epoll_ctl(mEpollFd.get(), EPOLL_CTL_ADD, mWakeFd.get(), &wake) == 0 ? OK : NO_INIT;
}

bool ZelThreadPool::add(int fd, uint32_t events, ZelSource source, uint64_t id) {
    epoll_event ev{};
    ev.events = events;
    ev.data.u64 = tag(source, id);
    return epoll_ctl(mEpollFd.get(), EPOLL_CTL_ADD, fd, &ev) == 0;
}

void ZelThreadPool::modify(int fd, uint32_t events, ZelSource source, uint64_t id) {
    epoll_event ev{};
    ev.events = events;
    ev.data.u64 = tag(source, id);
    epoll_ctl(mEpollFd.get(), EPOLL_CTL_MOD, fd, &ev);
}

void ZelThreadPool::remove(int fd) { epoll_ctl(mEpollFd.get(), EPOLL_CTL_DEL, fd, nullptr); }

bool ZelThreadPool::markStarted() {
    std::lock_guard<std::mutex> guard(mLock);
    return !mStarted.exchange(true);
}

void ZelThreadPool::spawn(bool isMain) {
    // As on a device, a first thread the system will not make is logged and
    // the process goes on; only a thread that joins the pool serves it then.
    const int error = startThread(isMain ? &threadMain<true, false> : &threadMain<false, false>);
    if (error != 0) ZEL_BINDER_LOGE("cannot start the binder thread pool: %s", strerror(error));
}

void ZelThreadPool::join(bool isMain) {
    {
        std::lock_guard<std::mutex> guard(mLock);
        mStarted = true;
    }
    loop(isMain, false);
}

void ZelThreadPool::stop() {
    mStopping = true;
    if (mWakeFd.get() >= 0) {
        const uint64_t one = 1;
        (void)!write(mWakeFd.get(), &one, sizeof(one));
    }
}

status_t ZelThreadPool::setMaxThreads(size_t maxThreads) {
    if (maxThreads == 0) return android::BAD_VALUE;
    mMaxThreads = maxThreads;
    return OK;
}

void ZelThreadPool::spareThreadIfNeeded() {
    if (mIdle.load() > 0) return;
    {
        std::lock_guard<std::mutex> guard(mLock);
        if (!mStarted || mStopping || mSpawned.load() >= mMaxThreads.load()) return;
        mSpawned += 1;
    }
    if (startThread(&threadMain<false, true>) != 0) mSpawned -= 1;
}

// pthread_create, not std::thread: a thread that cannot be made now (a
// thread or memory limit) is no reason to end the process, and at its
// descriptor limit a process must not need one more descriptor to start a
// thread (the sanitizers' check of std::thread's state object opens a pipe).
int ZelThreadPool::startThread(void* (*main)(void*)) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_t thread;
    const int error = pthread_create(&thread, &attributes, main, this);
    pthread_attr_destroy(&attributes);
    return error;
}

template <bool isMain, bool counted>
void* ZelThreadPool::threadMain(void* pool) {
    static_cast<ZelThreadPool*>(pool)->loop(isMain, counted);
    return nullptr;
}

void ZelThreadPool::loop(bool isMain, bool counted) {
    static std::atomic<int> sThreadNumber{0};
    char name[16];
    snprintf(name, sizeof(name), "binder:%d_%X", static_cast<int>(mPid), ++sThreadNumber);
    pthread_setname_np(pthread_self(), name);
    android::IPCThreadState::self();

    mThreads += 1;
    // Timing out alone is not enough: a trickle of work (a memory report a
    // second) shared round-robin among the waiting threads would keep every
    // spawned thread from ever waiting its full time.
    auto neededAt = std::chrono::steady_clock::now();
    while (!mStopping) {
        mIdle += 1;
        epoll_event ev;
        const int n = epoll_wait(mEpollFd.get(), &ev, 1, isMain ? -1 : kIdleExitMs);
        const size_t othersIdle = --mIdle;
        if (mStopping) break;
        bool leave = false;
        if (!isMain) {
            const auto now = std::chrono::steady_clock::now();
            if (othersIdle == 0) {
                neededAt = now;
            } else {
                leave = now - neededAt >= std::chrono::milliseconds(kIdleExitMs);
            }
        }
        if (n > 0 && static_cast<ZelSource>(ev.data.u64 >> kTagShift) != ZelSource::WAKE) {
            mDispatch(static_cast<ZelSource>(ev.data.u64 >> kTagShift), ev.data.u64 & kIdMask, ev.events);
        }
        if (leave) break;
    }
    mThreads -= 1;
    if (counted) mSpawned -= 1;
}

}  // namespace zel::binder
