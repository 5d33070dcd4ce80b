#include <gtest/gtest.h>

#include <map>
#include <thread>
#include <vector>

#include "ZelMetrics.h"
#include "ZelMetricsRecorder.h"
#include "ZelMetricsRegistry.h"
#include "ZelTime.h"

namespace {
int64_t gFakeNanos = 0;
int64_t fakeClock() { return gFakeNanos; }
}  // namespace

TEST(ZelTime, WholeSecondsAndTruncatedMillisecondsFromAReplaceableClock) {
    ZelTime::setMonotonicSource(fakeClock);
    gFakeNanos = 4'999'999'999;
    EXPECT_EQ(ZelTime::monotonicSeconds(), 4);
    const int64_t start = ZelTime::monotonicNanos();
    gFakeNanos += 1'999'999;
    EXPECT_EQ(ZelTime::elapsedMillis(start), 1);
    gFakeNanos += 1;
    EXPECT_EQ(ZelTime::elapsedMillis(start), 2);
    EXPECT_EQ(ZelTime::monotonicSeconds(), 5);
    ZelTime::setMonotonicSource(nullptr);
    EXPECT_NE(ZelTime::monotonicNanos(), gFakeNanos);  // the real clock again
}

// Counts from many threads reach both the observer and the registry, which
// keeps count, sum and power-of-two buckets for timings.
TEST(ZelMetrics, CountsReachTheObserverAndTheRegistry) {
    const ZelMetrics metrics = makeZelMetricsFactory(kZelMetricsModuleTaskManager)();
    EXPECT_EQ(metrics.programName, "ZelDaemon");
    EXPECT_EQ(metrics.moduleName, "TaskManager");
    EXPECT_EQ(metrics.configPath, "system/etc/ZeldHelvarConfig.json");
    const ZelMetricsFactory module = makeZelMetricsFactory("RegistryTest");
    module().addCount("Unobserved", 1);  // no observer: no effect on one, no crash
    ZelMetricsRecorder recorder;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 250; ++i) module().addCount("HitCount", 2);
        });
    }
    for (auto& thread : threads) thread.join();
    for (const int64_t millis : {0, 1, 3, 4, 7, 100000}) module().addCount("WorkTime", millis);
    EXPECT_EQ(recorder.total("RegistryTest", "HitCount"), 2000);
    EXPECT_EQ(recorder.total("RegistryTest", "WorkTime"), 100015);
    EXPECT_EQ(recorder.total("RegistryTest", "Unobserved") + recorder.total("TaskManager", "HitCount"), 0);
    std::map<std::string, ZelMetricsRegistry::Value> values;
    for (const auto& value : ZelMetricsRegistry::instance().snapshot()) {
        if (value.module == "RegistryTest") values[value.name] = value;
    }
    EXPECT_EQ(values["HitCount"].count, 2000);
    EXPECT_FALSE(values["HitCount"].timing);
    const ZelMetricsRegistry::Value& work = values["WorkTime"];
    EXPECT_EQ(work.count, 6);
    EXPECT_EQ(work.sum, 100015);
    // 0 | 1 | 2-3 | 4-7 | ... | the last bucket is open
    const std::array<int64_t, ZelMetricsRegistry::kBuckets> expected{1, 1, 1, 2, 0, 0, 0, 0,
                                                                     0, 0, 0, 0, 0, 0, 0, 1};
    EXPECT_EQ(work.buckets, expected);
}
