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
#include <filesystem>
#include <map>

#include <benchmark/benchmark.h>
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <com/ostrel/zeld/interfaces/BnZelBinderIPC.h>
#include <com/ostrel/zeld/interfaces/BnZelBinderIPCRequestCallback.h>
#include <com/ostrel/zeld/interfaces/ZelAsyncParamsBinderParcelable.h>
#include <com/ostrel/zeld/interfaces/ZelCallbackParamsParcelable.h>
#include <com/ostrel/zeld/utils/ZelParcelableHelperUtils.h>

using namespace com::ostrel::zeld::interfaces;
using android::sp;
using android::binder::Status;
using com::ostrel::zeld::utils::ZelParcelableHelperUtils;

namespace {

struct Figures {
    double median, p99, max;
};
std::map<std::string, Figures> gFigures;
int gRawFd = -1;
sp<IZelBinderIPC> gService;
std::vector<uint8_t> gRequest;

// Times `once` per iteration and reports the distribution under `key`.
template <typename F>
void measure(benchmark::State& state, const std::string& key, F&& once) {
    std::vector<double> micros;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        once();
        micros.push_back(std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count());
    }
    std::sort(micros.begin(), micros.end());
    const Figures f = gFigures[key] = {micros[micros.size() / 2], micros[micros.size() * 99 / 100], micros.back()};
    state.counters["median_us"] = f.median;
    state.counters["p99_us"] = f.p99;
    state.counters["max_us"] = f.max;
    state.counters["calls_per_s"] = benchmark::Counter(static_cast<double>(micros.size()), benchmark::Counter::kIsRate);
}

// Moves 256 bytes one way on `fd` (write or read in full); exits on failure or end.
void move256(int fd, uint8_t* buf, bool write) {
    for (size_t done = 0; done < 256;) {
        const ssize_t n = write ? ::write(fd, buf + done, 256 - done) : read(fd, buf + done, 256 - done);
        if (n <= 0) _exit(n == 0 ? 0 : 1);
        done += static_cast<size_t>(n);
    }
}

// The server side of the round trip: decodes each request as the daemon does
// and answers the registered caller, if any, with a one-way reply. No task
// manager behind it: this measures the runtime, not the daemon's decisions.
class EchoService : public BnZelBinderIPC {
public:
    Status registerCallback(const ServiceIdentifier&, const sp<IZelBinderIPCRequestCallback>& cb) override {
        std::lock_guard<std::mutex> guard(mLock);
        mCallback = cb;
        return Status::ok();
    }
    Status unregisterCallback(const ServiceIdentifier&) override { return Status::ok(); }
    Status sendAsyncMessage(const ServiceIdentifier& client, const MessageIdentifier&,
                            const std::vector<uint8_t>& data) override {
        ZelAsyncParamsBinderParcelable request;
        if (!ZelParcelableHelperUtils::convertBytesToParcelable(data, &request)) std::abort();
        sp<IZelBinderIPCRequestCallback> callback;
        if (client.value == ServiceIdentifier::COM_OSTREL_ZELD_TEST_CLIENT) {
            std::lock_guard<std::mutex> guard(mLock);
            callback = mCallback;
        }
        if (callback == nullptr) return Status::ok();
        const ZelCallbackParamsParcelable reply(
                ZelCallbackParams{request.taskContext.token + 1, request.taskContext.notify, request.functionId});
        std::vector<uint8_t> bytes;
        ZelParcelableHelperUtils::convertParcelableToBytes(&reply, bytes);
        callback->onAsyncReply(ServiceIdentifier(ServiceIdentifier::COM_OSTREL_ZELD),
                               MessageIdentifier(MessageIdentifier::ASYNC_REPLY), bytes);
        return Status::ok();
    }

private:
    std::mutex mLock;
    sp<IZelBinderIPCRequestCallback> mCallback;
};

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

void BM_RawSocketPingPong(benchmark::State& state) {
    uint8_t buf[256] = {0x5A};
    measure(state, "raw", [&] {
        move256(gRawFd, buf, true);
        move256(gRawFd, buf, false);
    });
}

// (a) with an identifier that has no callback; (b) with ours, until the reply arrives.
void BM_SyncCall(benchmark::State& state) {
    const ServiceIdentifier noCallback(ServiceIdentifier::COM_OSTREL_MARLOWAPP);
    measure(state, "sync", [&] {
        if (!gService->sendAsyncMessage(noCallback, MessageIdentifier(MessageIdentifier::ASYNC_REQUEST), gRequest)
                     .isOk()) {
            std::abort();
        }
    });
}

void BM_CallWithOnewayCallback(benchmark::State& state) {
    const ServiceIdentifier client(ServiceIdentifier::COM_OSTREL_ZELD_TEST_CLIENT);
    uint64_t expected = 0;
    measure(state, "callback", [&] {
        if (!gService->sendAsyncMessage(client, MessageIdentifier(MessageIdentifier::ASYNC_REQUEST), gRequest).isOk()) {
            std::abort();
        }
        gCallback->waitFor(++expected);
    });
}

BENCHMARK(BM_RawSocketPingPong)->Iterations(20000)->UseRealTime();
BENCHMARK(BM_SyncCall)->Iterations(20000)->UseRealTime();
BENCHMARK(BM_CallWithOnewayCallback)->Iterations(20000)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    char root[] = "/tmp/zeld-bench-XXXXXX";
    if (mkdtemp(root) == nullptr) return 1;
    setenv("ZELD_ROOT", root, 1);
    int fds[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0) return 1;
    const pid_t raw = fork();
    if (raw == 0) {  // echoes every 256 bytes back
        uint8_t buf[256];
        for (;;) {
            move256(fds[1], buf, false);
            move256(fds[1], buf, true);
        }
    }
    gRawFd = fds[0];
    const pid_t server = fork();  // before this process touches binder
    if (server == 0) {
        android::defaultServiceManager()->addService(android::String16("com.ostrel.zeld.service.IZelBinderIPC"),
                                                     new EchoService());
        android::ProcessState::self()->startThreadPool();
        android::IPCThreadState::self()->joinThreadPool(true);
        _exit(0);
    }

    android::ProcessState::self()->startThreadPool();
    gCallback = new WaitingCallback();
    ZelAsyncParamsBinderParcelable params;
    params.functionId = ZelAsyncParamsBinderParcelable::TASK_START_REQUEST;
    params.taskContext.setCompId("bench");
    params.taskContext.setTaskId("roundtrip");
    ZelParcelableHelperUtils::convertParcelableToBytes(&params, gRequest);
    if (android::getService(android::String16("com.ostrel.zeld.service.IZelBinderIPC"), &gService) != android::OK ||
        !gService->registerCallback(ServiceIdentifier(ServiceIdentifier::COM_OSTREL_ZELD_TEST_CLIENT), gCallback)
                 .isOk()) {
        return 1;
    }

    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    std::printf("\nRatios to the raw socket ping-pong of this run:\n");
    const Figures& base = gFigures["raw"];
    for (const auto& [what, key] : {std::pair{"raw socket ping-pong", "raw"}, std::pair{"(a) synchronous call", "sync"},
                                    std::pair{"(b) call + oneway callback", "callback"}}) {
        const Figures& f = gFigures[key];
        if (base.median <= 0 || f.median <= 0) continue;
        std::printf("%-26s median %7.1f us (%.2fx raw)   p99 %7.1f us (%.2fx raw)   max %8.1f us\n", what, f.median,
                    f.median / base.median, f.p99, f.p99 / base.p99, f.max);
    }
    for (pid_t pid : {raw, server}) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    std::filesystem::remove_all(root);
    return 0;
}
