#include <gtest/gtest.h>

#include <map>
#include <thread>
#include <vector>

#include "ZelMetrics.h"
#include "ZelMetricsRecorder.h"
#include "ZelMetricsRegistry.h"
#include "ZelTime.h"

TEST(ZelMetrics, FactoryBuildsContextsAndObserverSeesEveryCount) {
    const ZelMetricsFactory factory = makeZelMetricsFactory(kZelMetricsModuleTaskManager);
    const ZelMetrics metrics = factory();
    EXPECT_EQ(metrics.programName, "ZelDaemon");
    EXPECT_EQ(metrics.moduleName, "TaskManager");
    EXPECT_EQ(metrics.configPath, "system/etc/ZeldHelvarConfig.json");

    factory().addCount("InvalidTaskCount", 1);  // no observer: no effect, no crash

    ZelMetricsRecorder recorder;
    const ZelMetricsFactory listener = makeZelMetricsFactory(kZelMetricsModuleActivityListener);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 250; ++i) factory().addCount("InvalidTaskCount", 1);
        });
    }
    for (auto& thread : threads) thread.join();
    listener().addCount("TaskStartRequestTime", 17);
    listener().addCount("TaskStartRequestTime", 3);

    EXPECT_EQ(recorder.total("TaskManager", "InvalidTaskCount"), 1000);
    EXPECT_EQ(recorder.total("ActivityListener", "InvalidTaskCount"), 0);
    EXPECT_EQ(recorder.total("ActivityListener", "TaskStartRequestTime"), 20);
}

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
    const int64_t real = ZelTime::monotonicSeconds();
    EXPECT_GE(ZelTime::monotonicSeconds(), real);
    EXPECT_NE(ZelTime::monotonicNanos(), gFakeNanos);
}

TEST(ZelMetricsRegistry, CountersAddTimingsKeepCountSumAndPowerOfTwoBuckets) {
    const ZelMetricsFactory module = makeZelMetricsFactory("RegistryTest");
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 250; ++i) module().addCount("HitCount", 2);
        });
    }
    for (auto& thread : threads) thread.join();
    for (const int64_t millis : {0, 1, 3, 4, 7, 100000}) module().addCount("WorkTime", millis);
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
