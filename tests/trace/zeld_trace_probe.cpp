// Traces a fixed scenario through the trace seam, for the trace tables
// (cases/README.md):
//
//   zeld_trace_probe nest     nested slices, an instant and a counter on the
//                             main thread, arguments that need escaping; exits
//   zeld_trace_probe threads  4 threads × 200 slices, each with an instant,
//                             beside the main thread's slice; exits
//
// A writer killed mid-trace is the daemon's table's case (tests/daemon).
#include <pthread.h>

#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "ZelTrace.h"

namespace {

void nest() {
    // A fixed-size identifier field without a NUL, followed by other bytes.
    struct {
        char field[64];
        char after[8];
    } id;
    std::memset(id.field, 'a', sizeof(id.field));
    std::strcpy(id.after, "LEAK");

    ZelTraceSlice request("request", "component", "camera", "task", std::string("task0"));
    zelTraceCounter("running tasks", 1);
    {
        ZelTraceSlice decision("decision", "needed", 300);
        zelTraceInstant("approved", "token", -7);
    }
    ZelTraceSlice odd("odd text", "quoted", "say \"hi\" \\ back", "controls", "line\nnext\ttab\x01",
                      "utf8", "caf\xc3\xa9", "broken", "\xff" "end\xed\xa0\x80" "\xe2\x82", "field", id.field);
    zelTraceCounter("running tasks", 0);
}

void threads() {
    ZelTraceSlice run("run");
    std::vector<std::thread> workers;
    for (int n = 0; n < 4; ++n) {
        workers.emplace_back([n] {
            const std::string name = "worker " + std::to_string(n);
            pthread_setname_np(pthread_self(), name.c_str());
            for (int i = 0; i < 200; ++i) {
                ZelTraceSlice step("step", "worker", n, "index", i);
                zelTraceInstant("tick");
            }
        });
    }
    for (auto& worker : workers) worker.join();
}

}  // namespace

int main(int argc, char** argv) {
    pthread_setname_np(pthread_self(), "probe main");
    const std::string scenario = argc > 1 ? argv[1] : "";
    if (scenario == "nest") {
        nest();
    } else if (scenario == "threads") {
        threads();
    } else {
        return 2;
    }
    return 0;
}
