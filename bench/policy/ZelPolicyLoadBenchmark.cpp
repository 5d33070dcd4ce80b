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

#include "PolicyDocumentGenerator.h"
#include "PolicyRapidJson.h"
#include "ZelPolicy.h"

namespace {

const std::string& policyText() {
    static const std::string text = generatePolicyDocument(10000, 2, 10);
    return text;
}

void BM_RapidJsonParse(benchmark::State& state) {
    const std::string& text = policyText();
    for (auto _ : state) {
        rapidjson::Document document;
        document.Parse(text.c_str());
        benchmark::DoNotOptimize(document.IsObject());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

// The loader parses iteratively; this shows what that costs against the default.
void BM_RapidJsonParseIterative(benchmark::State& state) {
    const std::string& text = policyText();
    for (auto _ : state) {
        rapidjson::Document document;
        document.Parse<rapidjson::kParseIterativeFlag>(text.c_str());
        benchmark::DoNotOptimize(document.IsObject());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

void BM_PolicyLoad(benchmark::State& state) {
    const std::string& text = policyText();
    for (auto _ : state) {
        ZelPolicy policy;
        if (!policy.processJsonPolicyFromBuffer(text)) state.SkipWithError("policy refused");
        benchmark::DoNotOptimize(policy.taskTable->size());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

BENCHMARK(BM_RapidJsonParse)->Unit(benchmark::kMillisecond)->Repetitions(9);
BENCHMARK(BM_RapidJsonParseIterative)->Unit(benchmark::kMillisecond)->Repetitions(9);
BENCHMARK(BM_PolicyLoad)->Unit(benchmark::kMillisecond)->Repetitions(9);

// Prints as the console does and keeps each benchmark's median real time.
class MedianReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median") {
                mMedians[run.run_name.function_name] = run.GetAdjustedRealTime();
            }
        }
    }
    std::map<std::string, double> mMedians;
};

}  // namespace

int main(int argc, char** argv) {
    zel::hostlog::setStderrMinPriority(ANDROID_LOG_WARN);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    MedianReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    const auto parse = reporter.mMedians.find("BM_RapidJsonParse");
    const auto iterative = reporter.mMedians.find("BM_RapidJsonParseIterative");
    const auto load = reporter.mMedians.find("BM_PolicyLoad");
    if (parse != reporter.mMedians.end() && load != reporter.mMedians.end() && parse->second > 0) {
        std::printf("policy text: %zu bytes\n", policyText().size());
        std::printf("load / bare parse (median real time): %.2f\n", load->second / parse->second);
        if (iterative != reporter.mMedians.end()) {
            std::printf("iterative parse / bare parse: %.2f\n", iterative->second / parse->second);
        }
    }
    benchmark::Shutdown();
    return 0;
}
