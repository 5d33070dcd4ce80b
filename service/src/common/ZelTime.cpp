#include "ZelTime.h"

#include <atomic>
#include <ctime>

namespace {

int64_t realMonotonicNanos() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000000000LL + now.tv_nsec;
}

std::atomic<ZelTime::MonotonicSource> gSource{realMonotonicNanos};

}  // namespace

namespace ZelTime {

int64_t monotonicNanos() { return gSource.load(std::memory_order_relaxed)(); }

int64_t monotonicSeconds() { return monotonicNanos() / 1000000000LL; }

int64_t elapsedMillis(int64_t startNanos) { return (monotonicNanos() - startNanos) / 1000000LL; }

void setMonotonicSource(MonotonicSource source) {
    gSource.store(source != nullptr ? source : realMonotonicNanos, std::memory_order_relaxed);
}

}  // namespace ZelTime
