// The trace seam's own cost beside baselines of the same run. Run it once
// without and once with ZELD_TRACE (docs/tracing.md, "Cost"):
//   BM_Slice      a slice with a text and a number argument, as the daemon's
//                 requests will trace; off: the flag's branch, on: two events
//                 formatted and written
//   BM_Loop       baseline for off: the benchmark loop alone
//   BM_TwoWrites  baseline for on: two write()s of as many bytes to an
//                 O_APPEND file beside the trace
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include <benchmark/benchmark.h>

#include "ZelTrace.h"

namespace {

const std::string kComponent = "camera";
constexpr int kIterationsOn = 20000;  // keeps the trace file small

void BM_Slice(benchmark::State& state) {
    for (auto _ : state) {
        ZelTraceSlice slice("start request", "component", kComponent, "task", 7);
    }
    state.SetLabel(zelTraceEnabled() ? "tracing on" : "tracing off");
}
BENCHMARK(BM_Slice)->Iterations(std::getenv("ZELD_TRACE") != nullptr ? kIterationsOn : 50000000);

void BM_Loop(benchmark::State& state) {
    for (auto _ : state) benchmark::ClobberMemory();
}
BENCHMARK(BM_Loop)->Iterations(50000000);

void BM_TwoWrites(benchmark::State& state) {
    const char* trace = std::getenv("ZELD_TRACE");
    const std::string path = std::string(trace != nullptr ? trace : "/tmp/zeld-trace-bench") + ".raw";
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0644);
    const std::string begin(130, 'b'), end(75, 'e');  // the sizes of the slice's two events
    for (auto _ : state) {
        benchmark::DoNotOptimize(write(fd, begin.data(), begin.size()));
        benchmark::DoNotOptimize(write(fd, end.data(), end.size()));
    }
    close(fd);
    unlink(path.c_str());
}
BENCHMARK(BM_TwoWrites)->Iterations(kIterationsOn);

}  // namespace

BENCHMARK_MAIN();
