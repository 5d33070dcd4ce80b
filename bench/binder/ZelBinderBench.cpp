// Round trips between two processes, each measured in the same run:
//   RawSocketPingPong      a 256-byte request and reply over a Unix socket pair
//   SyncCall               IZelBinderIPC::sendAsyncMessage with a 144-byte
//                          request record (a ~260-byte parcel), no callback
//   CallWithOnewayCallback the same call, answered by a one-way
//                          onAsyncReply to the caller; timed until it arrives
// Each reports median, p99 and max latency (µs) and calls per second; the
// program ends with the ratios of the binder figures to the raw ones.
// Pin both processes to one CPU with `taskset -c 0` to compare figures
// without cross-CPU wake-ups.
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <com/ostrel/zeld/interfaces/BnZelBinderIPCRequestCallback.h>
#include <com/ostrel/zeld/interfaces/IZelBinderIPC.h>
#include <com/ostrel/zeld/interfaces/ZelAsyncParamsBinderParcelable.h>
#include <com/ostrel/zeld/utils/ZelParcelableHelperUtils.h>

#include "ZelTestIpcService.h"

using namespace com::ostrel::zeld::interfaces;
using android::sp;
using Clock = std::chrono::steady_clock;

namespace {

constexpr size_t kRawPayload = 256;
constexpr const char* kServiceName = "com.ostrel.zeld.service.IZelBinderIPC";

struct Figures {
    double median = 0;
    double p99 = 0;
    double max = 0;
};
std::map<std::string, Figures> gFigures;

// Times `once` per iteration and reports the distribution.
template <typename F>
void measure(benchmark::State& state, const std::string& key, F&& once) {
    std::vector<double> micros;
    micros.reserve(static_cast<size_t>(state.max_iterations));
    for (auto _ : state) {
        const auto start = Clock::now();
        once();
        micros.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
    }
    std::sort(micros.begin(), micros.end());
    Figures f{micros[micros.size() / 2], micros[micros.size() * 99 / 100], micros.back()};
    gFigures[key] = f;
    state.counters["median_us"] = f.median;
    state.counters["p99_us"] = f.p99;
    state.counters["max_us"] = f.max;
    state.counters["calls_per_s"] = benchmark::Counter(static_cast<double>(micros.size()), benchmark::Counter::kIsRate);
}

// ---- raw baseline ----

int gRawFd = -1;

void readFully(int fd, uint8_t* buf, size_t len) {
    for (size_t done = 0; done < len;) {
        const ssize_t n = read(fd, buf + done, len - done);
        if (n <= 0) std::exit(n == 0 ? 0 : 1);
        done += static_cast<size_t>(n);
    }
}

void BM_RawSocketPingPong(benchmark::State& state) {
    std::vector<uint8_t> buf(kRawPayload, 0x5A);
    measure(state, "raw", [&] {
        if (write(gRawFd, buf.data(), buf.size()) != static_cast<ssize_t>(buf.size())) std::abort();
        readFully(gRawFd, buf.data(), buf.size());
    });
}

// ---- binder ----

sp<IZelBinderIPC> gService;
std::vector<uint8_t> gRequest;

class WaitingCallback : public BnZelBinderIPCRequestCallback {
public:
    android::binder::Status onAsyncReply(const ServiceIdentifier&, const MessageIdentifier&,
                                         const std::vector<uint8_t>&) override {
        std::lock_guard<std::mutex> guard(mLock);
        ++mReplies;
        mChanged.notify_one();
        return android::binder::Status::ok();
    }
    void waitFor(uint64_t count) {
        std::unique_lock<std::mutex> lock(mLock);
        mChanged.wait(lock, [&] { return mReplies >= count; });
    }

private:
    std::mutex mLock;
    std::condition_variable mChanged;
    uint64_t mReplies = 0;
};
sp<WaitingCallback> gCallback;

void BM_SyncCall(benchmark::State& state) {
    const ServiceIdentifier noCallback(ServiceIdentifier::COM_OSTREL_MARLOWAPP);
    const MessageIdentifier request(MessageIdentifier::ASYNC_REQUEST);
    measure(state, "sync", [&] {
        if (!gService->sendAsyncMessage(noCallback, request, gRequest).isOk()) std::abort();
    });
}

void BM_CallWithOnewayCallback(benchmark::State& state) {
    const ServiceIdentifier client(ServiceIdentifier::COM_OSTREL_ZELD_TEST_CLIENT);
    const MessageIdentifier request(MessageIdentifier::ASYNC_REQUEST);
    uint64_t expected = 0;
    measure(state, "callback", [&] {
        if (!gService->sendAsyncMessage(client, request, gRequest).isOk()) std::abort();
        gCallback->waitFor(++expected);
    });
}

BENCHMARK(BM_RawSocketPingPong)->Iterations(20000)->UseRealTime();
BENCHMARK(BM_SyncCall)->Iterations(20000)->UseRealTime();
BENCHMARK(BM_CallWithOnewayCallback)->Iterations(20000)->UseRealTime();

pid_t startRawPeer() {
    int fds[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0) std::abort();
    const pid_t pid = fork();
    if (pid == 0) {
        close(fds[0]);
        std::vector<uint8_t> buf(kRawPayload);
        for (;;) {
            readFully(fds[1], buf.data(), buf.size());
            if (write(fds[1], buf.data(), buf.size()) != static_cast<ssize_t>(buf.size())) _exit(1);
        }
    }
    close(fds[1]);
    gRawFd = fds[0];
    return pid;
}

pid_t startBinderServer() {
    const pid_t pid = fork();  // before this process touches binder
    if (pid == 0) {
        android::defaultServiceManager()->addService(android::String16(kServiceName), new ZelTestIpcService());
        android::ProcessState::self()->startThreadPool();
        android::IPCThreadState::self()->joinThreadPool(true);
        _exit(0);
    }
    return pid;
}

void printRatio(const char* what, const std::string& key) {
    const Figures& raw = gFigures["raw"];
    const Figures& f = gFigures[key];
    if (raw.median <= 0) return;
    std::printf("%-26s median %7.1f us (%.2fx raw)   p99 %7.1f us (%.2fx raw)   max %8.1f us\n", what, f.median,
                f.median / raw.median, f.p99, f.p99 / raw.p99, f.max);
}

}  // namespace

int main(int argc, char** argv) {
    char rootTemplate[] = "/tmp/zeld-bench-XXXXXX";
    if (mkdtemp(rootTemplate) == nullptr) return 1;
    setenv("ZELD_ROOT", rootTemplate, 1);
    const pid_t raw = startRawPeer();
    const pid_t server = startBinderServer();

    android::ProcessState::self()->startThreadPool();
    if (android::getService(android::String16(kServiceName), &gService) != android::OK) return 1;
    gCallback = new WaitingCallback();
    if (!gService->registerCallback(ServiceIdentifier(ServiceIdentifier::COM_OSTREL_ZELD_TEST_CLIENT), gCallback)
                 .isOk()) {
        return 1;
    }
    ZelAsyncParamsBinderParcelable params;
    params.functionId = ZelAsyncParamsBinderParcelable::TASK_START_REQUEST;
    params.taskContext.setCompId("bench");
    params.taskContext.setTaskId("roundtrip");
    com::ostrel::zeld::utils::ZelParcelableHelperUtils::convertParcelableToBytes(&params, gRequest);

    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    std::printf("\nRatios to the raw socket ping-pong of this run:\n");
    printRatio("raw socket ping-pong", "raw");
    printRatio("(a) synchronous call", "sync");
    printRatio("(b) call + oneway callback", "callback");

    kill(raw, SIGKILL);
    kill(server, SIGKILL);
    waitpid(raw, nullptr, 0);
    waitpid(server, nullptr, 0);
    std::filesystem::remove_all(rootTemplate);
    return 0;
}
