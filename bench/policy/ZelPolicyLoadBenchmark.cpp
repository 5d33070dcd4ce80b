// Loading a large policy (10,000 components, 20,000 tasks, 20,000 rules)
// against RapidJSON's bare parse of the same text, measured in the same run.
// Lines below warning are filtered out with no capture installed, as a device
// build that logs at info would drop its debug lines cheaply.
#include <log/log.h>
#include <zel/ZelHostLog.h>

#include "PolicyRapidJson.h"
#include "ZelBenchSupport.h"
#include "ZelPolicy.h"

namespace {

const std::string& policyText() {
    static const std::string text = zelBenchPolicy(10000, 2);
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

}  // namespace

int main(int argc, char** argv) {
    zel::hostlog::setStderrMinPriority(ANDROID_LOG_WARN);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    ZelBenchReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    std::printf("policy text: %zu bytes\n", policyText().size());
    reporter.printRatio("BM_PolicyLoad", "BM_RapidJsonParse");
    benchmark::Shutdown();
    return 0;
}
