// Peer processes for the binder tests:
//   serve <name>            registers an IZelTestService under <name> and serves
//   call <name> <count>     <count> echo calls of 200 bytes; exit 0 when all match
//   callback-once <name>    passes a callback, asks for one call back, exit 0 on it
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>

#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <com/ostrel/zeld/test/BnZelTestCallback.h>
#include <com/ostrel/zeld/test/IZelTestService.h>

#include "ZelTestService.h"

using android::sp;
using android::String16;
using com::ostrel::zeld::test::IZelTestService;

namespace {

class OneValue : public com::ostrel::zeld::test::BnZelTestCallback {
public:
    android::binder::Status onValue(int32_t value) override {
        std::lock_guard<std::mutex> guard(mLock);
        mValue = value;
        mChanged.notify_all();
        return android::binder::Status::ok();
    }
    bool waitFor(int32_t value) {
        std::unique_lock<std::mutex> lock(mLock);
        return mChanged.wait_for(lock, std::chrono::seconds(5), [&] { return mValue == value; });
    }

private:
    std::mutex mLock;
    std::condition_variable mChanged;
    int32_t mValue = -1;
};

sp<IZelTestService> service(const char* name) {
    sp<android::IServiceManager> sm = android::defaultServiceManager();
    if (sm == nullptr) return nullptr;
    return android::interface_cast<IZelTestService>(sm->getService(String16(name)));
}

int serve(const char* name) {
    sp<android::IServiceManager> sm = android::defaultServiceManager();
    if (sm == nullptr || sm->addService(String16(name), new ZelTestService()) != android::OK) return 1;
    android::ProcessState::self()->startThreadPool();
    android::IPCThreadState::self()->joinThreadPool(true);
    return 0;
}

int call(const char* name, int count) {
    sp<IZelTestService> svc = service(name);
    if (svc == nullptr) return 1;
    std::vector<uint8_t> data(200);
    for (int i = 0; i < count; ++i) {
        data[i % data.size()] = static_cast<uint8_t>(i);
        std::vector<uint8_t> out;
        if (!svc->echo(data, &out).isOk() || out != data) return 2;
    }
    return 0;
}

int callbackOnce(const char* name) {
    android::ProcessState::self()->startThreadPool();
    sp<IZelTestService> svc = service(name);
    if (svc == nullptr) return 1;
    sp<OneValue> callback = new OneValue();
    if (!svc->callBack(callback, 42).isOk()) return 2;
    return callback->waitFor(42) ? 0 : 3;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "serve" && argc == 3) return serve(argv[2]);
    if (mode == "call" && argc == 4) return call(argv[2], std::atoi(argv[3]));
    if (mode == "callback-once" && argc == 3) return callbackOnce(argv[2]);
    std::fprintf(stderr, "usage: %s serve|call|callback-once <name> [count]\n", argv[0]);
    return 64;
}
