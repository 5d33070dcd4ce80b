#include "ZelMetricsRegistry.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <thread>
#include <tuple>

namespace {

enum SlotState : uint32_t { kFree = 0, kClaimed = 1, kReady = 2 };

constexpr size_t kKeyBytes = 48;  // module and name each; longer ones are cut

// Eight bytes at a time: recording hashes its key on every call.
uint64_t mix(uint64_t hash, const std::string& text) {
    constexpr uint64_t kMultiplier = 0x9E3779B97F4A7C15ull;
    size_t at = 0;
    for (; at + 8 <= text.size(); at += 8) {
        uint64_t word = 0;
        std::memcpy(&word, text.data() + at, 8);
        hash = (hash ^ word) * kMultiplier;
        hash ^= hash >> 29;
    }
    uint64_t tail = static_cast<uint64_t>(text.size()) << 56;  // ("ab","c") is not ("a","bc")
    std::memcpy(&tail, text.data() + at, text.size() - at);
    hash = (hash ^ tail) * kMultiplier;
    return hash ^ (hash >> 32);
}

uint64_t hashOf(const std::string& module, const std::string& name) {
    return mix(mix(0, module), name);
}

void copyKey(char (&to)[kKeyBytes], const std::string& from) {
    const size_t length = std::min(from.size(), kKeyBytes - 1);
    std::memcpy(to, from.data(), length);
    to[length] = '\0';
}

bool sameKey(const char (&stored)[kKeyBytes], const std::string& key) {
    return std::strncmp(stored, key.c_str(), kKeyBytes - 1) == 0 &&
           (key.size() >= kKeyBytes - 1 || stored[key.size()] == '\0');
}

}  // namespace

// The key fields are written once by the claiming thread before it publishes
// kReady (release); others read them only after seeing kReady (acquire).
struct ZelMetricsRegistry::Slot {
    std::atomic<uint32_t> state{kFree};
    uint64_t hash = 0;
    char module[kKeyBytes] = {};
    char name[kKeyBytes] = {};
    bool timing = false;
    std::atomic<int64_t> count{0};
    std::atomic<int64_t> sum{0};
    std::atomic<int64_t> buckets[kBuckets] = {};
};

ZelMetricsRegistry::ZelMetricsRegistry() : mSlots(new Slot[kSlots]) {}

ZelMetricsRegistry& ZelMetricsRegistry::instance() {
    // Never destroyed: threads may record during process exit.
    static ZelMetricsRegistry* const registry = new ZelMetricsRegistry();
    return *registry;
}

ZelMetricsRegistry::Slot* ZelMetricsRegistry::find(const std::string& module,
                                                   const std::string& name) {
    const uint64_t hash = hashOf(module, name);
    for (size_t probe = 0; probe < kSlots; ++probe) {
        Slot& slot = mSlots[(hash + probe) % kSlots];
        uint32_t state = slot.state.load(std::memory_order_acquire);
        if (state == kFree) {
            if (slot.state.compare_exchange_strong(state, kClaimed, std::memory_order_acquire)) {
                slot.hash = hash;
                copyKey(slot.module, module);
                copyKey(slot.name, name);
                slot.timing = isTiming(name);
                slot.state.store(kReady, std::memory_order_release);
                return &slot;
            }
        }
        // Another thread is writing this slot's key: only on a name's first use.
        while (state == kClaimed) {
            std::this_thread::yield();
            state = slot.state.load(std::memory_order_acquire);
        }
        if (slot.hash == hash && sameKey(slot.module, module) && sameKey(slot.name, name)) {
            return &slot;
        }
    }
    return nullptr;
}

void ZelMetricsRegistry::record(const std::string& module, const std::string& name,
                                int64_t value) {
    Slot* slot = find(module, name);
    if (slot == nullptr) {
        mDropped.fetch_add(1, std::memory_order_relaxed);
        return;
    }
    if (!slot->timing) {
        slot->count.fetch_add(value, std::memory_order_relaxed);
        return;
    }
    slot->count.fetch_add(1, std::memory_order_relaxed);
    slot->sum.fetch_add(value, std::memory_order_relaxed);
    slot->buckets[bucketOf(value)].fetch_add(1, std::memory_order_relaxed);
}

std::vector<ZelMetricsRegistry::Value> ZelMetricsRegistry::snapshot() const {
    std::vector<Value> values;
    for (size_t i = 0; i < kSlots; ++i) {
        const Slot& slot = mSlots[i];
        if (slot.state.load(std::memory_order_acquire) != kReady) continue;
        Value value;
        value.module = slot.module;
        value.name = slot.name;
        value.timing = slot.timing;
        value.count = slot.count.load(std::memory_order_relaxed);
        value.sum = slot.sum.load(std::memory_order_relaxed);
        for (size_t b = 0; b < kBuckets; ++b) {
            value.buckets[b] = slot.buckets[b].load(std::memory_order_relaxed);
        }
        values.push_back(std::move(value));
    }
    std::sort(values.begin(), values.end(), [](const Value& a, const Value& b) {
        return std::tie(a.module, a.name) < std::tie(b.module, b.name);
    });
    return values;
}

int64_t ZelMetricsRegistry::dropped() const {
    return mDropped.load(std::memory_order_relaxed);
}

size_t ZelMetricsRegistry::bucketOf(int64_t millis) {
    size_t bucket = 0;
    for (uint64_t rest = millis > 0 ? static_cast<uint64_t>(millis) : 0; rest != 0; rest >>= 1) {
        ++bucket;
    }
    return std::min(bucket, kBuckets - 1);
}

int64_t ZelMetricsRegistry::bucketFloor(size_t bucket) {
    return bucket == 0 ? 0 : int64_t{1} << (bucket - 1);
}

bool ZelMetricsRegistry::isTiming(const std::string& name) {
    static const std::string kSuffix = "Time";
    return name.size() >= kSuffix.size() &&
           name.compare(name.size() - kSuffix.size(), kSuffix.size(), kSuffix) == 0;
}
