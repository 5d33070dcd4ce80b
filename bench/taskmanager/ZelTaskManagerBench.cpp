// The task manager's request path and one purge, each beside a baseline
// measured in the same run; the ratios are printed at the end.
//
//   BM_RequestCycle      start request + started + completed on a policy of
//                        1,000 components (cleanup every 100 cycles included)
//   BM_MapCycle          baseline: find + insert + erase on a std::map keyed
//                        like the task tables, three times (one per table)
//   BM_EngineQueries     baseline: the policy queries the cycle makes
//   BM_PurgeExpired      one purge completing and cleaning 10,000 running tasks
//   BM_PurgeNothingDue   one purge over 10,000 running tasks, none due
//   BM_SnapshotWalk      baseline: copy a 10,000-entry table and read each record
#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <log/log.h>

#include "ZelEventDispatcherInterface.h"
#include "ZelTaskManager.h"
#include "ZelTime.h"
#include "zel/ZelHostLog.h"

namespace {

// Accepts every publication; the dispatcher's own cost is not measured here.
class NullDispatcher : public ZelEventDispatcherInterface {
public:
    bool publishEvents(const std::vector<PolicyEvent>&, int32_t, int32_t) override { return true; }
    bool subscribeEvent(uint8_t, int32_t, EventCallback) override { return true; }
    bool unsubscribeEvents(const std::vector<std::pair<uint8_t, int32_t>>&) override {
        return true;
    }
    void stop() override {}
    void invokeEventCallback(uint8_t, int32_t, const void*) override {}
};

std::atomic<int64_t> gNowNanos{1000LL * 1000000000LL};
int64_t fakeNow() { return gNowNanos.load(); }

// components x tasksPerComponent normal tasks, each with one start and one stop event.
std::string writePolicy(int components, int tasksPerComponent) {
    std::string json = R"({"version": 1.0, "eventGroups": [{"groupName": "g", "groupId": 2,
        "events": [{"eventName": "s", "eventId": 1}, {"eventName": "d", "eventId": 2}]}],
        "components": [)";
    for (int c = 0; c < components; ++c) {
        json += (c ? "," : "") + std::string(R"({"identifier": "comp)") + std::to_string(c) +
                R"(", "processName": "p", "memoryRequirement": 10, "tasks": [)";
        for (int t = 0; t < tasksPerComponent; ++t) {
            json += (t ? "," : "") + std::string(R"({"identifier": "task)") + std::to_string(t) +
                    R"(", "priorityType": "normal"})";
        }
        json += "]}";
    }
    json += R"(], "rules": [)";
    for (int c = 0; c < components; ++c) {
        json += (c ? "," : "") + std::string(R"({"name": "r", "identifier": {"componentId": "comp)") +
                std::to_string(c) + R"(", "taskId": "task0"}, "actions": [
                {"message": "ZEL_TASK_STARTED", "events": [{"eventGroup": "g", "eventName": "s"}]},
                {"message": "ZEL_TASK_COMPLETED", "events": [{"eventGroup": "g", "eventName": "d"}]}]})";
    }
    json += "]}";
    const auto path = std::filesystem::temp_directory_path() /
                      ("zeld-bench-policy-" + std::to_string(components) + "x" +
                       std::to_string(tasksPerComponent) + ".json");
    std::ofstream(path) << json;
    return path.string();
}

std::shared_ptr<ZelTaskManager> makeManager(int components, int tasksPerComponent) {
    auto engine = ZelPolicyEngine::create(writePolicy(components, tasksPerComponent));
    if (engine == nullptr) return nullptr;
    return std::make_shared<ZelTaskManager>(std::make_shared<NullDispatcher>(), engine);
}

std::vector<TaskKey> keys(int components, int tasksPerComponent) {
    std::vector<TaskKey> result;
    for (int c = 0; c < components; ++c) {
        for (int t = 0; t < tasksPerComponent; ++t) {
            result.emplace_back("comp" + std::to_string(c), "task" + std::to_string(t));
        }
    }
    return result;
}

void BM_RequestCycle(benchmark::State& state) {
    auto manager = makeManager(1000, 1);
    if (manager == nullptr) return state.SkipWithError("policy not loaded");
    const std::vector<TaskKey> all = keys(1000, 1);
    size_t i = 0;
    for (auto _ : state) {
        const TaskKey& key = all[i++ % all.size()];
        manager->taskStartRequested(key.first, key.second, false, 3000, nullptr, nullptr, 2);
        auto task = manager->getTask(key.first, key.second);
        manager->taskStarted(key.first, key.second, task->getToken(), 3000, nullptr, 2, false);
        manager->taskCompleted(key.first, key.second);
        if (i % 100 == 0) manager->clearStoppedTasks();
    }
}

void BM_MapCycle(benchmark::State& state) {
    const std::vector<TaskKey> all = keys(1000, 1);
    std::map<TaskKey, std::shared_ptr<int>> tables[3];
    auto value = std::make_shared<int>(0);
    size_t i = 0;
    for (auto _ : state) {
        const TaskKey& key = all[i++ % all.size()];
        for (auto& table : tables) {
            benchmark::DoNotOptimize(table.find(key));
            table.emplace(key, value);
            table.erase(key);
        }
    }
}

void BM_EngineQueries(benchmark::State& state) {
    auto manager = makeManager(1000, 1);
    if (manager == nullptr) return state.SkipWithError("policy not loaded");
    const ZelPolicyEngine& engine = *manager->mPolicyEngine;
    const std::vector<TaskKey> all = keys(1000, 1);
    size_t i = 0;
    for (auto _ : state) {
        const TaskKey& key = all[i++ % all.size()];
        const std::string& c = key.first;
        const std::string& t = key.second;
        // Start request, started report and completion, in that order.
        benchmark::DoNotOptimize(engine.isValidTask(c, t));
        benchmark::DoNotOptimize(engine.getMinimumGuaranteedRuntime(c, t));
        benchmark::DoNotOptimize(engine.isAutoStart(c, t));
        benchmark::DoNotOptimize(engine.getAllowList(c, t));
        benchmark::DoNotOptimize(engine.getAllowList(c, t));
        benchmark::DoNotOptimize(engine.getPriorityType(c, t));
        benchmark::DoNotOptimize(engine.getMemoryRequirement(c, t));
        benchmark::DoNotOptimize(engine.isValidTask(c, t));
        benchmark::DoNotOptimize(engine.getStartEvents(c, t));
        benchmark::DoNotOptimize(engine.isValidTask(c, t));
        benchmark::DoNotOptimize(engine.getStopEvents(c, t));
    }
}

// Fills the task and running tables with 10,000 running records.
void fillRunning(ZelTaskManager& manager, const std::vector<TaskKey>& all, int32_t duration) {
    for (const TaskKey& key : all) {
        auto task = ZelTask::create(key.first, key.second, 0, duration, true, nullptr, nullptr);
        task->setState(TASK_STATE_RUNNING);
        manager.mTaskList->insert(key, task);
        manager.mRunningTaskList->insert(key, task);
    }
}

void runPurge(benchmark::State& state, int32_t duration) {
    auto manager = makeManager(100, 100);
    if (manager == nullptr) return state.SkipWithError("policy not loaded");
    const std::vector<TaskKey> all = keys(100, 100);
    for (auto _ : state) {
        state.PauseTiming();
        manager = makeManager(100, 100);
        fillRunning(*manager, all, duration);
        gNowNanos += 10LL * 1000000000LL;  // every 5000 ms run time has passed
        state.ResumeTiming();
        ZelTaskManager::clearList(manager.get());
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(all.size()));
}

void BM_PurgeExpired(benchmark::State& state) { runPurge(state, 5000); }
void BM_PurgeNothingDue(benchmark::State& state) { runPurge(state, -1); }

void BM_SnapshotWalk(benchmark::State& state) {
    LockedTaskMap table;
    for (const TaskKey& key : keys(100, 100)) {
        table.insert(key, ZelTask::create(key.first, key.second, 0, 5000, true, nullptr, nullptr));
    }
    for (auto _ : state) {
        int64_t sum = 0;
        for (const auto& entry : table.snapshot()) sum += entry.second->getDuration();
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * 10000);
}

BENCHMARK(BM_MapCycle);
BENCHMARK(BM_EngineQueries);
BENCHMARK(BM_RequestCycle);
BENCHMARK(BM_SnapshotWalk)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_PurgeNothingDue)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_PurgeExpired)->Unit(benchmark::kMicrosecond);

// Keeps each benchmark's time per iteration so the ratios can be printed.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Iteration && !run.error_occurred) {
                mNanos[run.run_name.function_name] = run.GetAdjustedRealTime() *
                        (run.time_unit == benchmark::kMicrosecond ? 1000.0 : 1.0);
            }
        }
    }
    void printRatio(const char* what, const char* measured, const char* baseline) {
        auto m = mNanos.find(measured);
        auto b = mNanos.find(baseline);
        if (m == mNanos.end() || b == mNanos.end() || b->second <= 0) return;
        std::printf("ratio %-44s %s / %s = %.1f\n", what, measured, baseline,
                    m->second / b->second);
    }

private:
    std::map<std::string, double> mNanos;
};

}  // namespace

int main(int argc, char** argv) {
    zel::hostlog::setStderrMinPriority(ANDROID_LOG_SILENT);
    ZelTime::setMonotonicSource(&fakeNow);
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printRatio("request cycle vs bare table operations", "BM_RequestCycle", "BM_MapCycle");
    reporter.printRatio("request cycle vs its policy queries", "BM_RequestCycle",
                        "BM_EngineQueries");
    reporter.printRatio("purge, 10k due, vs table copy+walk", "BM_PurgeExpired", "BM_SnapshotWalk");
    reporter.printRatio("purge, none due, vs table copy+walk", "BM_PurgeNothingDue",
                        "BM_SnapshotWalk");
    benchmark::Shutdown();
    return 0;
}
