// Peer processes for the binder tests:
//   serve <name> [fds]      registers an IZelTestService under <name> and serves,
//                           with at most <fds> open descriptors when given
//   call <name> <count>     <count> echo calls of 200 bytes; exit 0 when all match
//   callback-once <name>    passes a callback, asks for one call back, exit 0 on it
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>

#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <com/ostrel/zeld/test/BnZelTestCallback.h>
#include <com/ostrel/zeld/test/BnZelTestService.h>

#include "ZelProcStats.h"
#include "ZelTestWait.h"
#include "zel/ZelHostLog.h"
#include "zel/binder/ZelBinderStats.h"

using android::IBinder;
using android::sp;
using android::binder::Status;
using com::ostrel::zeld::test::IZelTestCallback;
using com::ostrel::zeld::test::IZelTestService;

namespace {

// Every line the serving process logs.
zel::hostlog::ZelLogCapture* gLog = nullptr;

class ZelTestService : public com::ostrel::zeld::test::BnZelTestService {
public:
    Status echo(const std::vector<uint8_t>& data, std::vector<uint8_t>* out) override {
        *out = data;
        return Status::ok();
    }
    Status filled(int32_t size, std::vector<uint8_t>* out) override {
        out->assign(static_cast<size_t>(size), 0x5A);
        return Status::ok();
    }
    Status callerIdentity(std::vector<int32_t>* out) override {
        const android::IPCThreadState* ipc = android::IPCThreadState::self();
        *out = {static_cast<int32_t>(ipc->getCallingPid()), static_cast<int32_t>(ipc->getCallingUid())};
        return Status::ok();
    }
    Status echoBinder(const sp<IBinder>& binder, sp<IBinder>* out) override {
        *out = binder;
        return Status::ok();
    }
    Status isStoredCallback(const sp<IBinder>& binder, bool* out) override {
        std::lock_guard<std::mutex> guard(mLock);
        *out = mCallback != nullptr && binder == IZelTestCallback::asBinder(mCallback);
        return Status::ok();
    }
    Status setCallback(const sp<IZelTestCallback>& callback) override {
        std::lock_guard<std::mutex> guard(mLock);
        mCallback = callback;
        return Status::ok();
    }
    Status pingCallback(int32_t value) override {
        sp<IZelTestCallback> callback;
        {
            std::lock_guard<std::mutex> guard(mLock);
            callback = mCallback;
        }
        if (callback == nullptr) return Status::fromExceptionCode(Status::EX_ILLEGAL_STATE);
        return callback->onValue(value);
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
        *out = mRecorded;
        return Status::ok();
    }
    Status stats(std::vector<int64_t>* out) override {
        const zel::binder::ZelBinderStats s = zel::binder::zelBinderStats();
        const pid_t self = getpid();
        *out = {static_cast<int64_t>(s.exportedObjects), static_cast<int64_t>(s.proxies),
                static_cast<int64_t>(s.peers), static_cast<int64_t>(s.incomingConnections),
                static_cast<int64_t>(s.poolThreads), zelOpenDescriptors(self), zelThreads(self),
                zelResidentKiB(self), static_cast<int64_t>(gLog->lines().size())};
        return Status::ok();
    }
    Status sleepMs(int32_t ms) override {
        std::this_thread::sleep_for(std::chrono::milliseconds(ms));
        return Status::ok();
    }
    Status dupFd(const android::base::unique_fd& fd, android::base::unique_fd* out) override {
        out->reset(fcntl(fd.get(), F_DUPFD_CLOEXEC, 0));
        return Status::ok();
    }
    android::status_t dump(int fd, const android::Vector<android::String16>& args) override {
        std::string text = "uid " + std::to_string(android::IPCThreadState::self()->getCallingUid());
        for (const android::String16& arg : args) text += std::string(" ") + android::String8(arg).string();
        return write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()) ? android::OK : -errno;
    }

private:
    std::mutex mLock;  // guards the fields below
    sp<IZelTestCallback> mCallback;
    std::vector<int32_t> mRecorded;
};

class Values : public com::ostrel::zeld::test::BnZelTestCallback {
public:
    Status onValue(int32_t value) override {
        values.put(value);
        return Status::ok();
    }
    Inbox<int32_t> values;
};

int run(const std::string& mode, const char* name, int count) {
    sp<android::IServiceManager> sm = android::defaultServiceManager();
    if (sm == nullptr) return 1;
    if (mode == "serve") {
        gLog = new zel::hostlog::ZelLogCapture();
        const rlimit fds{static_cast<rlim_t>(count), static_cast<rlim_t>(count)};
        if (count > 0 && setrlimit(RLIMIT_NOFILE, &fds) != 0) return 1;
        if (sm->addService(android::String16(name), new ZelTestService()) != android::OK) return 1;
        android::ProcessState::self()->startThreadPool();
        android::IPCThreadState::self()->joinThreadPool(true);
        return 0;
    }
    if (mode == "callback-once") android::ProcessState::self()->startThreadPool();
    sp<IZelTestService> svc = android::interface_cast<IZelTestService>(sm->getService(android::String16(name)));
    if (svc == nullptr) return 1;
    if (mode == "callback-once") {
        sp<Values> callback = new Values();
        if (!svc->callBack(callback, 42).isOk()) return 2;
        return callback->values.waitFor(1) && callback->values.items()[0] == 42 ? 0 : 3;
    }
    std::vector<uint8_t> data(200);
    for (int i = 0; i < count; ++i) {
        data[i % data.size()] = static_cast<uint8_t>(i);
        std::vector<uint8_t> out;
        if (!svc->echo(data, &out).isOk() || out != data) return 2;
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string mode = argc > 1 ? argv[1] : "";
    if (((mode == "serve" || mode == "callback-once") && argc == 3) || ((mode == "call" || mode == "serve") && argc == 4)) {
        return run(mode, argv[2], argc == 4 ? std::atoi(argv[3]) : 0);
    }
    std::fprintf(stderr, "usage: %s serve|call|callback-once <name> [count|fds]\n", argv[0]);
    return 64;
}
