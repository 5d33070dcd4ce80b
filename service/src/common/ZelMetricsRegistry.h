#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// The process's store of recorded metrics, behind ZelMetrics::addCount.
// A counter adds its values; a timing (a name ending in "Time", milliseconds)
// keeps a count, a sum and a histogram in power-of-two millisecond buckets.
//
// Recording takes no lock: a fixed table of slots, each claimed once for a
// (module, name) by compare-and-swap and then updated with relaxed atomic
// adds. Readers copy without stopping writers, so a copy may show a timing's
// count one ahead of its sum; nothing else tears.
class ZelMetricsRegistry {
public:
    static constexpr size_t kSlots = 128;
    // Bucket 0 holds 0 ms; bucket b holds [2^(b-1), 2^b) ms; the last is open.
    static constexpr size_t kBuckets = 16;

    struct Value {
        std::string module;
        std::string name;
        bool timing = false;
        int64_t count = 0;  // a counter's total, or a timing's number of values
        int64_t sum = 0;    // a timing's total milliseconds
        std::array<int64_t, kBuckets> buckets{};
    };

    static ZelMetricsRegistry& instance();

    void record(const std::string& module, const std::string& name, int64_t value);
    // Every recorded metric, by module then name.
    std::vector<Value> snapshot() const;
    // Values dropped because every slot was taken.
    int64_t dropped() const;

    static size_t bucketOf(int64_t millis);
    // The lowest value of a bucket (0, 1, 2, 4, ...).
    static int64_t bucketFloor(size_t bucket);
    static bool isTiming(const std::string& name);

private:
    struct Slot;
    ZelMetricsRegistry();
    Slot* find(const std::string& module, const std::string& name);

    Slot* const mSlots;  // kSlots of them, never freed
    std::atomic<int64_t> mDropped{0};
};
