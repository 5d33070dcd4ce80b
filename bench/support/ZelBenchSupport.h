#pragma once
// What both benchmarks use: a generated large policy, and a reporter that
// prints ratios of benchmarks measured in the same run.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

// 10 groups of 100 events; components comp<c> with tasks task0..task<n-1>
// (normal, 4000 ms, every other one preemptable), a start and a stop
// property; one rule per component: task0 publishes a start and a stop
// event, task1 (if any) depends on task0.
inline std::string zelBenchPolicy(int components, int tasksPerComponent) {
    const auto n = [](int i) { return std::to_string(i); };
    std::string text = R"({"version": 1.0, "eventGroups": [)";
    for (int g = 0; g < 10; ++g) {
        text += (g ? "," : "") + std::string(R"({"groupName": "group)") + n(g) + R"(", "groupId": )" + n(g + 1) +
                R"(, "events": [)";
        for (int e = 0; e < 100; ++e) {
            text += (e ? "," : "") + std::string(R"({"eventName": "event)") + n(e) + R"(", "eventId": )" + n(e + 1) + "}";
        }
        text += "]}";
    }
    std::string rules;
    text += R"(], "components": [)";
    for (int c = 0; c < components; ++c) {
        const std::string id = "comp" + n(c), group = "group" + n(c % 10);
        text += std::string(c ? ",\n" : "") + R"({"identifier": ")" + id + R"(", "processName": ")" + id +
                R"(d", "startProperty": "ctl.start )" + id + R"(d", "stopProperty": "ctl.stop )" + id +
                R"(d", "memoryRequirement": )" + n(c % 64) + R"(, "tasks": [)";
        for (int t = 0; t < tasksPerComponent; ++t) {
            text += (t ? "," : "") + std::string(R"({"identifier": "task)") + n(t) +
                    R"(", "priorityType": "ZEL_TASK_NORMAL", "minimumGuaranteedRuntime": 4000, "preempt": )" +
                    (t % 2 ? "true" : "false") + "}";
        }
        text += "]}";
        rules += std::string(c ? ",\n" : "") + R"({"name": "rule)" + n(c) + R"(", "identifier": {"componentId": ")" +
                 id + R"(", "taskId": "task0"}, "actions": [
            {"message": "ZEL_TASK_STARTED", "events": [{"eventGroup": ")" + group + R"(", "eventName": "event)" +
                 n(c % 100) + R"("}]},
            {"message": "ZEL_TASK_COMPLETED", "events": [{"eventGroup": ")" + group + R"(", "eventName": "event)" +
                 n((c + 1) % 100) + R"("}]}]})";
        if (tasksPerComponent > 1) {
            rules += R"(, {"name": "dep)" + n(c) + R"(", "identifier": {"componentId": ")" + id +
                     R"(", "taskId": "task1"}, "dependencies": {"allowlist": [{"componentId": ")" + id +
                     R"(", "taskId": "task0"}]}, "actions": []})";
        }
    }
    return text + R"(], "rules": [)" + rules + "]}";
}

// Prints as the console does and keeps each benchmark's real time per
// iteration (the median when it is repeated) for printRatio.
class ZelBenchReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
            if (run.error_occurred || (run.run_type == Run::RT_Aggregate && !median)) continue;
            const std::string& args = run.run_name.args;
            mSeconds[run.run_name.function_name + (args.empty() ? "" : "/" + args)] =
                    run.GetAdjustedRealTime() / benchmark::GetTimeUnitMultiplier(run.time_unit);
        }
    }
    // `measured` and `baseline` as registered; `arg` picks one size of both.
    void printRatio(const std::string& measured, const std::string& baseline, const std::string& arg = "") {
        const std::string suffix = arg.empty() ? "" : "/" + arg;
        const double a = mSeconds[measured + suffix], b = mSeconds[baseline + suffix];
        if (a > 0 && b > 0) {
            std::printf("%s / %s%s (real time): %.2f\n", measured.c_str(), baseline.c_str(), suffix.c_str(), a / b);
        }
    }

private:
    std::map<std::string, double> mSeconds;
};
