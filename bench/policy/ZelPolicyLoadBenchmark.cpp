// Loading a policy of 1,000, 10,000 and 100,000 components (two tasks and two
// rules each) against RapidJSON's bare parse of the same text, measured in
// the same run.
// Lines below warning are filtered out with no capture installed, as a device
// build that logs at info would drop its debug lines cheaply.
#include <map>

#include <log/log.h>
#include <zel/ZelHostLog.h>

#include "ZelRapidJson.h"
#include "ZelBenchSupport.h"
#include "ZelPolicy.h"

namespace {

constexpr int kSizes[] = {1000, 10000, 100000};

const std::string& policyText(int components) {
    static std::map<int, std::string> texts;  // benchmarks run one at a time
    std::string& text = texts[components];
    if (text.empty()) text = zelBenchPolicy(components, 2);
    return text;
}

void BM_RapidJsonParse(benchmark::State& state) {
    for (auto _ : state) {
        rapidjson::Document document;
        document.Parse(policyText(static_cast<int>(state.range(0))).c_str());
        benchmark::DoNotOptimize(document.IsObject());
    }
}

void BM_PolicyLoad(benchmark::State& state) {
    for (auto _ : state) {
        ZelPolicy policy;
        if (!policy.processJsonPolicyFromBuffer(policyText(static_cast<int>(state.range(0))))) state.SkipWithError("policy refused");
        benchmark::DoNotOptimize(policy.taskTable->size());
    }
}

BENCHMARK(BM_RapidJsonParse)->Unit(benchmark::kMillisecond)->Arg(1000)->Arg(10000)->Arg(100000)->Repetitions(5);
BENCHMARK(BM_PolicyLoad)->Unit(benchmark::kMillisecond)->Arg(1000)->Arg(10000)->Arg(100000)->Repetitions(5);

}  // namespace

int main(int argc, char** argv) {
    zel::hostlog::setStderrMinPriority(ANDROID_LOG_WARN);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    ZelBenchReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    for (int components : kSizes) {
        std::printf("%d components: %zu bytes of policy text\n", components, policyText(components).size());
        reporter.printRatio("BM_PolicyLoad", "BM_RapidJsonParse", std::to_string(components));
    }
    benchmark::Shutdown();
    return 0;
}
