// Peer processes for the binder tests:
//   serve <name> [fds]    registers an IZelTestService under <name> and serves,
//                         with room for <fds> descriptors more than it has
//                         open then, when given
//   call <name> <count>   <count> echo calls of 200 bytes, then one call back to
//                         a callback of its own; exit 0 when all came back
//   hold <name>           opens raw connections to <name> until it refuses one
//                         (exit 3 when one is left unanswered), then pings it
//                         again on one it kept: exit 0 when that is answered
//   unthreaded <name>     serve, after a startThreadPool() whose thread the
//                         system would not make
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>

#include <binder/IPCThreadState.h>
#include <binder/ProcessState.h>
#include <com/ostrel/zeld/test/BnZelTestService.h>

#include "ZelBinderTestSupport.h"
#include "ZelProcStats.h"
#include "zel/ZelHostLog.h"
#include "zel/binder/ZelBinderStats.h"

using android::IBinder;
using android::sp;
using android::binder::Status;
using com::ostrel::zeld::test::IZelTestCallback;

// The peer links with pthread_create wrapped (CMakeLists.txt): while
// gThreadsRefused is set, every thread the runtime starts fails as at a
// thread limit.
std::atomic<bool> gThreadsRefused{false};
extern "C" int __real_pthread_create(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
extern "C" int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*main)(void*),
                                     void* argument) {
    return gThreadsRefused ? EAGAIN : __real_pthread_create(thread, attributes, main, argument);
}

namespace {

// Every line the serving process logs.
zel::hostlog::ZelLogCapture* gLog = nullptr;

// Hands `value` to an AIDL method's out-parameter.
template <typename T, typename V>
Status give(T* out, V&& value) {
    *out = std::forward<V>(value);
    return Status::ok();
}

class ZelTestService : public com::ostrel::zeld::test::BnZelTestService {
public:
    Status echo(const std::vector<uint8_t>& data, std::vector<uint8_t>* out) override { return give(out, data); }
    Status filled(int32_t size, std::vector<uint8_t>* out) override {
        return give(out, std::vector<uint8_t>(static_cast<size_t>(size), 0x5A));
    }
    Status echoBinder(const sp<IBinder>& binder, sp<IBinder>* out) override { return give(out, binder); }
    Status isStoredCallback(const sp<IBinder>& binder, bool* out) override {
        return give(out, binder == IZelTestCallback::asBinder(storedCallback()));
    }
    Status setCallback(const sp<IZelTestCallback>& callback) override {
        std::lock_guard<std::mutex> guard(mLock);
        return give(&mCallback, callback);
    }
    Status pingCallback(int32_t value) override {
        const sp<IZelTestCallback> callback = storedCallback();
        return callback != nullptr ? callback->onValue(value) : Status::fromExceptionCode(Status::EX_ILLEGAL_STATE);
    }
    Status callBack(const sp<IZelTestCallback>& callback, int32_t value) override {
        setCallback(callback);
        return callback->onValue(value);  // this caller's, whatever others set meanwhile
    }
    Status record(int32_t sequence) override {
        std::lock_guard<std::mutex> guard(mLock);
        mRecorded.push_back(sequence);
        return Status::ok();
    }
    Status recorded(std::vector<int32_t>* out) override {
        std::lock_guard<std::mutex> guard(mLock);
        return give(out, mRecorded);
    }
    Status stats(std::vector<int64_t>* out) override {
        const zel::binder::ZelBinderStats s = zel::binder::zelBinderStats();
        const pid_t self = getpid();
        return give(out, std::vector<int64_t>{
                static_cast<int64_t>(s.exportedObjects), static_cast<int64_t>(s.proxies), static_cast<int64_t>(s.peers),
                static_cast<int64_t>(s.incomingConnections), static_cast<int64_t>(s.poolThreads), zelOpenDescriptors(self),
                zelThreads(self), zelResidentKiB(self), static_cast<int64_t>(gLog->lines().size())});
    }
    Status sleepMs(int32_t ms) override {
        std::this_thread::sleep_for(std::chrono::milliseconds(ms));
        return Status::ok();
    }
    Status unlockTwice() override {
        std::mutex mutex;
        std::unique_lock<std::mutex> lock(mutex);
        lock.unlock();
        lock.unlock();
        return Status::ok();
    }

private:
    sp<IZelTestCallback> storedCallback() {
        std::lock_guard<std::mutex> guard(mLock);
        return mCallback;
    }

    std::mutex mLock;  // guards the fields below
    sp<IZelTestCallback> mCallback;
    std::vector<int32_t> mRecorded;
};

int serve(const char* name, int fds) {
    gLog = new zel::hostlog::ZelLogCapture();
    sp<android::IServiceManager> sm = android::defaultServiceManager();
    const auto room = static_cast<rlim_t>(zelOpenDescriptors(getpid()) + fds);
    const rlimit limit{room, room};
    if (sm == nullptr || (fds > 0 && setrlimit(RLIMIT_NOFILE, &limit) != 0)) return 1;
    if (sm->addService(android::String16(name), new ZelTestService()) != android::OK) return 1;
    android::ProcessState::self()->startThreadPool();
    android::IPCThreadState::self()->joinThreadPool(true);
    return 0;
}

int unthreaded(const char* name) {
    gThreadsRefused = true;
    android::ProcessState::self()->startThreadPool();
    gThreadsRefused = false;
    return serve(name, 0);  // its startThreadPool() starts nothing: the pool was started
}

int call(const char* name, int count) {
    android::ProcessState::self()->startThreadPool();
    const sp<com::ostrel::zeld::test::IZelTestService> svc = waitForTestService(name);
    if (svc == nullptr) return 1;
    std::vector<uint8_t> data(200);
    for (int i = 0; i < count; ++i) {
        data[i % data.size()] = static_cast<uint8_t>(i);
        std::vector<uint8_t> out;
        if (!svc->echo(data, &out).isOk() || out != data) return 2;
    }
    sp<ZelRecordingCallback> callback = new ZelRecordingCallback();
    if (!svc->callBack(callback, 42).isOk()) return 2;
    return callback->values.waitFor(1) && callback->values.items()[0] == 42 ? 0 : 3;
}

int hold(const char* name) {
    std::vector<ZelRawConnection> held;
    if (!holdUntilRefused(name, &held)) return 3;
    const uint32_t handle = serviceAddress(name).second;
    if (held.empty() ||
        !held[0].send(encodedFrame(zel::binder::ZelFrameType::TRANSACTION, IBinder::PING_TRANSACTION, handle, {}))) {
        return 4;
    }
    return answerOf(held[0]) == ZelAnswer::ANSWERED ? 0 : 4;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string mode = argc > 2 ? argv[1] : "";
    if (mode == "serve" && argc <= 4) return serve(argv[2], argc == 4 ? std::atoi(argv[3]) : 0);
    if (mode == "call" && argc == 4) return call(argv[2], std::atoi(argv[3]));
    if (mode == "hold" && argc == 3) return hold(argv[2]);
    if (mode == "unthreaded" && argc == 3) return unthreaded(argv[2]);
    std::fprintf(stderr, "usage: %s serve <name> [fds] | call <name> <count> | hold <name> | unthreaded <name>\n",
                 argv[0]);
    return 64;
}
