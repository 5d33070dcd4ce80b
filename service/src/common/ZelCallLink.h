#pragma once

#include <condition_variable>
#include <mutex>

// How functions held elsewhere reach an object that may go away first: while
// the link is attached, call() runs a function on the target; detach() waits
// for the calls under way and turns every later one into nothing. Whoever
// holds such a function holds the link by shared pointer, never the target.
// detach() must not be called from inside a call through the same link.
template <typename Target>
class ZelCallLink {
public:
    explicit ZelCallLink(Target* target) : mTarget(target) {}
    ZelCallLink(const ZelCallLink&) = delete;
    ZelCallLink& operator=(const ZelCallLink&) = delete;

    // Runs `call(target)` unless detached, without holding mLock.
    template <typename Call>
    void call(Call&& call) {
        Target* target = nullptr;
        {
            std::lock_guard<std::mutex> guard(mLock);
            if (mTarget == nullptr) return;
            target = mTarget;
            ++mActive;
        }
        call(*target);
        std::lock_guard<std::mutex> guard(mLock);
        if (--mActive == 0) mIdle.notify_all();
    }

    void detach() {
        std::unique_lock<std::mutex> lock(mLock);
        mTarget = nullptr;
        mIdle.wait(lock, [this] { return mActive == 0; });
    }

private:
    std::mutex mLock;  // a leaf: guards mTarget and mActive
    std::condition_variable mIdle;
    Target* mTarget;
    int mActive = 0;
};
