// The task manager's request path and one purge, each beside a baseline
// measured in the same run; the ratios are printed at the end.
//   BM_RequestCycle  start request + started + completed on a policy of 1,000
//                    components (cleanup every 100 cycles included)
//   BM_MapCycle      baseline: find + insert + erase on a std::map keyed like
//                    the task tables, three times (one per table)
//   BM_Purge         one purge completing and cleaning 10, 1,000 and 10,000
//                    running tasks
//   BM_SnapshotWalk  baseline: copy a table of as many entries and read each
//                    record
//   BM_ListenerCycle the same cycle through the activity listener (request
//                    handling, metrics recording, no IPC)
//   BM_ListenerCycleUnrecorded  baseline: the same with the metrics registry
//                    switched off (the recorder's context is still made)
#include <atomic>
#include <filesystem>
#include <fstream>

#include <log/log.h>

#include <com/ostrel/zeld/interfaces/ZelTaskContext.h>

#include "ZelActivityListener.h"
#include "ZelBenchSupport.h"
#include "ZelMetrics.h"
#include "ZelTaskManager.h"
#include "ZelTime.h"
#include "zel/ZelHostLog.h"

namespace {

// Accepts every publication; the dispatcher's own cost is not measured here.
struct NullDispatcher : ZelEventDispatcherInterface {
    bool publishEvents(const std::vector<PolicyEvent>&, int32_t, int32_t) override { return true; }
    bool subscribeEvent(uint8_t, int32_t, EventCallback) override { return true; }
    bool unsubscribeEvents(const std::vector<std::pair<uint8_t, int32_t>>&) override { return true; }
    void stop() override {}
    void invokeEventCallback(uint8_t, int32_t, const void*) override {}
};

std::atomic<int64_t> gNowNanos{1000LL * 1000000000LL};
int64_t fakeNow() { return gNowNanos.load(); }

// comp<c>/task<t> keys, component-major.
std::vector<TaskKey> keys(int components, int tasksPerComponent) {
    std::vector<TaskKey> result;
    for (int c = 0; c < components; ++c) {
        for (int t = 0; t < tasksPerComponent; ++t) {
            result.emplace_back("comp" + std::to_string(c), "task" + std::to_string(t));
        }
    }
    return result;
}

std::shared_ptr<ZelTaskManager> makeManager(int components, int tasksPerComponent) {
    const auto path = std::filesystem::temp_directory_path() /
                      ("zeld-bench-policy-" + std::to_string(components) + "x" + std::to_string(tasksPerComponent));
    std::ofstream(path) << zelBenchPolicy(components, tasksPerComponent);
    auto engine = ZelPolicyEngine::create(path.string());
    return engine ? std::make_shared<ZelTaskManager>(std::make_shared<NullDispatcher>(), engine) : nullptr;
}

void BM_RequestCycle(benchmark::State& state) {
    auto manager = makeManager(1000, 1);
    if (manager == nullptr) return state.SkipWithError("policy not loaded");
    const std::vector<TaskKey> all = keys(1000, 1);
    size_t i = 0;
    for (auto _ : state) {
        const auto& [comp, task] = all[i++ % all.size()];
        benchmark::DoNotOptimize(manager->taskStartRequested(comp, task, false, 3000, nullptr, nullptr, 2));
        benchmark::DoNotOptimize(manager->taskStarted(comp, task, manager->getTask(comp, task)->getToken(), 3000, nullptr, 2, false));
        benchmark::DoNotOptimize(manager->taskCompleted(comp, task));
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

constexpr int kTableSizes[] = {10, 1000, 10000};

void BM_Purge(benchmark::State& state) {
    const int tasks = static_cast<int>(state.range(0));
    const std::vector<TaskKey> all = keys(tasks, 1);
    for (auto _ : state) {
        state.PauseTiming();
        auto manager = makeManager(tasks, 1);
        if (manager == nullptr) return state.SkipWithError("policy not loaded");
        for (const TaskKey& key : all) {
            benchmark::DoNotOptimize(manager->taskStartRequested(key.first, key.second, false, 5000, nullptr, nullptr, 2));
            benchmark::DoNotOptimize(manager->taskStarted(key.first, key.second, manager->getTask(key.first, key.second)->getToken(),
                                 5000, nullptr, 2, false));
        }
        gNowNanos += 10LL * 1000000000LL;  // every 5000 ms run time has passed
        state.ResumeTiming();
        ZelTaskManager::clearList(manager.get());
    }
}

void BM_SnapshotWalk(benchmark::State& state) {
    LockedTaskMap table;
    for (const TaskKey& key : keys(static_cast<int>(state.range(0)), 1)) {
        table.insert(key, ZelTask::create(key.first, key.second, 0, 5000, true, nullptr, nullptr));
    }
    for (auto _ : state) {
        int64_t sum = 0;
        for (const auto& entry : table.snapshot()) sum += entry.second->getDuration();
        benchmark::DoNotOptimize(sum);
    }
}

// Start request, started and completed through the listener; the replies go
// nowhere (no server in the context), as the listener allows.
void listenerCycles(benchmark::State& state, bool recording) {
    auto manager = makeManager(1000, 1);
    if (manager == nullptr) return state.SkipWithError("policy not loaded");
    auto listener = ZelActivityListener::create("COM_OSTREL_ZELD", manager, nullptr);
    const auto context = ZelIpcContext::create(1, nullptr, nullptr, nullptr);
    const std::vector<TaskKey> all = keys(1000, 1);
    setZelMetricsRecording(recording);
    size_t i = 0;
    for (auto _ : state) {
        const auto& [comp, task] = all[i++ % all.size()];
        com::ostrel::zeld::interfaces::ZelTaskContext request;
        comp.copy(request.compId, sizeof(request.compId) - 1);
        task.copy(request.taskId, sizeof(request.taskId) - 1);
        request.duration = 3000;
        benchmark::DoNotOptimize(listener->processAsyncFunction(context, 1, &request));
        request.token = static_cast<int32_t>(manager->getTask(comp, task)->getToken());
        benchmark::DoNotOptimize(listener->processAsyncFunction(context, 2, &request));
        benchmark::DoNotOptimize(listener->processAsyncFunction(context, 3, &request));
        if (i % 100 == 0) manager->clearStoppedTasks();
    }
    setZelMetricsRecording(true);
}

void BM_ListenerCycle(benchmark::State& state) { listenerCycles(state, true); }
void BM_ListenerCycleUnrecorded(benchmark::State& state) { listenerCycles(state, false); }

BENCHMARK(BM_MapCycle);
BENCHMARK(BM_RequestCycle);
BENCHMARK(BM_SnapshotWalk)->Unit(benchmark::kMicrosecond)->Arg(10)->Arg(1000)->Arg(10000);
BENCHMARK(BM_Purge)->Unit(benchmark::kMicrosecond)->Arg(10)->Arg(1000)->Arg(10000);
BENCHMARK(BM_ListenerCycleUnrecorded);
BENCHMARK(BM_ListenerCycle);

}  // namespace

int main(int argc, char** argv) {
    zel::hostlog::setStderrMinPriority(ANDROID_LOG_SILENT);
    ZelTime::setMonotonicSource(&fakeNow);
    benchmark::Initialize(&argc, argv);
    ZelBenchReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printRatio("BM_RequestCycle", "BM_MapCycle");
    for (int tasks : kTableSizes) reporter.printRatio("BM_Purge", "BM_SnapshotWalk", std::to_string(tasks));
    reporter.printRatio("BM_ListenerCycle", "BM_ListenerCycleUnrecorded");
    benchmark::Shutdown();
    return 0;
}
