#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

// Polls `done` until it holds or `limit` passes; true when it held.
inline bool eventually(const std::function<bool()>& done,
                       std::chrono::milliseconds limit = std::chrono::seconds(10)) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

// Collects what arrives on binder threads, in arrival order.
template <typename T>
class Inbox {
public:
    void put(T value) {
        std::lock_guard<std::mutex> guard(mLock);
        mItems.push_back(std::move(value));
        mChanged.notify_all();
    }
    bool waitFor(size_t count) {
        std::unique_lock<std::mutex> lock(mLock);
        return mChanged.wait_for(lock, std::chrono::seconds(10), [&] { return mItems.size() >= count; });
    }
    std::vector<T> items() {
        std::lock_guard<std::mutex> guard(mLock);
        return mItems;
    }

private:
    std::mutex mLock;
    std::condition_variable mChanged;
    std::vector<T> mItems;
};
