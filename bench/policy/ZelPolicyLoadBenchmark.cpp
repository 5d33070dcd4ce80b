// Loading a large policy (10,000 components, 20,000 tasks, 10,000 rules)
// against RapidJSON's bare parse of the same text, measured in the same run.
// Lines below warning are filtered out with no capture installed, as a device
// build that logs at info would drop its debug lines cheaply.

#include <benchmark/benchmark.h>
#include <log/log.h>
#include <zel/ZelHostLog.h>

#include <cstdio>
#include <map>
#include <string>

#include "PolicyRapidJson.h"
#include "ZelPolicy.h"

namespace {

// 10 groups of 100 events; components with START_PROCESS and task1 (every
// fourth auto-started); one rule per component: task1 depends on
// START_PROCESS and publishes a start and a stop event.
std::string generate(int components) {
    const auto n = [](int i) { return std::to_string(i); };
    std::string text = R"({"version": 1.0, "eventGroups": [)";
    for (int g = 0; g < 10; ++g) {
        text += (g ? "," : "") + std::string(R"({"groupName": "group)") + n(g) +
                R"(", "groupId": )" + n(g + 1) + R"(, "events": [)";
        for (int e = 0; e < 100; ++e) {
            text += (e ? "," : "") + std::string(R"({"eventName": "event)") + n(e) +
                    R"(", "eventId": )" + n(e + 1) + "}";
        }
        text += "]}";
    }
    std::string rules;
    text += R"(], "components": [)";
    for (int c = 0; c < components; ++c) {
        const std::string id = "component" + n(c), group = "group" + n(c % 10);
        text += std::string(c ? ",\n" : "") + R"({"identifier": ")" + id + R"(", "processName": ")" + id +
                R"(d", "startProperty": "ctl.start )" + id + R"(d", "stopProperty": "ctl.stop )" +
                id + R"(d", "memoryRequirement": )" + n(c % 64) + R"(, "autostart": )" +
                (c % 4 == 0 ? "true" : "false") + R"(, "tasks": [
            {"identifier": "START_PROCESS", "priorityType": "ZEL_TASK_NORMAL", "priorityValue": 1,
             "minimumGuaranteedRuntime": 4000, "preempt": false},
            {"identifier": "task1", "priorityType": "ZEL_TASK_NORMAL", "priorityValue": 2,
             "minimumGuaranteedRuntime": 4000, "preempt": true}]})";
        rules += std::string(c ? ",\n" : "") + R"({"name": "rule)" + n(c) +
                 R"(", "identifier": {"componentId": ")" + id + R"(", "taskId": "task1"},
            "dependencies": {"allowlist": [{"componentId": ")" + id +
                 R"(", "taskId": "START_PROCESS"}], "denylist": []}, "actions": [
            {"message": "ZEL_TASK_STARTED", "events": [{"eventGroup": ")" + group +
                 R"(", "eventName": "event)" + n(c % 100) + R"("}]},
            {"message": "ZEL_TASK_COMPLETED", "events": [{"eventGroup": ")" + group +
                 R"(", "eventName": "event)" + n((c + 1) % 100) + R"("}]}]})";
    }
    return text + R"(], "rules": [)" + rules + "]}";
}

const std::string& policyText() {
    static const std::string text = generate(10000);
    return text;
}

void BM_RapidJsonParse(benchmark::State& state) {
    for (auto _ : state) {
        rapidjson::Document document;
        document.Parse(policyText().c_str());
        benchmark::DoNotOptimize(document.IsObject());
    }
}

void BM_PolicyLoad(benchmark::State& state) {
    for (auto _ : state) {
        ZelPolicy policy;
        if (!policy.processJsonPolicyFromBuffer(policyText())) state.SkipWithError("policy refused");
        benchmark::DoNotOptimize(policy.taskTable->size());
    }
}

BENCHMARK(BM_RapidJsonParse)->Unit(benchmark::kMillisecond)->Repetitions(9);
BENCHMARK(BM_PolicyLoad)->Unit(benchmark::kMillisecond)->Repetitions(9);

// Prints as the console does and keeps each benchmark's median real time.
struct MedianReporter : benchmark::ConsoleReporter {
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median") {
                medians[run.run_name.function_name] = run.GetAdjustedRealTime();
            }
        }
    }
    std::map<std::string, double> medians;
};

}  // namespace

int main(int argc, char** argv) {
    zel::hostlog::setStderrMinPriority(ANDROID_LOG_WARN);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    MedianReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    const double parse = reporter.medians["BM_RapidJsonParse"];
    const double load = reporter.medians["BM_PolicyLoad"];
    if (parse > 0 && load > 0) {
        std::printf("policy text: %zu bytes\nload / bare parse (median real time): %.2f\n",
                    policyText().size(), load / parse);
    }
    benchmark::Shutdown();
    return 0;
}
