// Arbitrary parcels as sendAsyncMessage calls of the client service, in
// process, through the service's checks, the IPC server, the request handler
// and a real task manager on the task-manager scenarios' policy. Client 77
// has a callback that counts replies; a validated request is answered at once
// with one reply, and a later deferred approval may add one for an earlier
// request, so no call may bring more than two.
//
// The reaper does not signal the end of a purge: a request that arrives
// during one waits for the next notification, which the resource monitor's
// reports give in the daemon. A thread here notifies every 200 ms instead.
//
// The seed corpus (corpus/client) holds a valid request of each kind.
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <thread>

#include <binder/Parcel.h>
#include <com/ostrel/zeld/interfaces/BnZelBinderIPCRequestCallback.h>

#include "ZelActivityListener.h"
#include "ZelBinderIpcServer.h"
#include "ZelReaperSync.h"
#include "ZelRecordingEventDispatcher.h"
#include "ZelTaskManager.h"

using namespace com::ostrel::zeld::interfaces;
using android::binder::Status;

namespace {

constexpr int32_t kClient = 77;
constexpr uint32_t kSendAsyncMessage = android::IBinder::FIRST_CALL_TRANSACTION + 2;

class ZelReplyCounter : public BnZelBinderIPCRequestCallback {
public:
    Status onAsyncReply(const ServiceIdentifier&, const MessageIdentifier&,
                        const std::vector<uint8_t>&) override {
        ++mReplies;
        return Status::ok();
    }
    int mReplies = 0;
};

// The listener starts it as in the daemon; it only does not join the pool.
class ZelUnservedServer : public ZelBinderIpcServer {
public:
    using ZelBinderIpcServer::ZelBinderIpcServer;
    int start() override { return 1; }
};

struct ZelFuzzDaemon {
    std::shared_ptr<ZelTaskManager> mManager;
    std::shared_ptr<ZelUnservedServer> mServer;
    std::shared_ptr<ZelActivityListener> mListener;
    android::sp<ZelReplyCounter> mReplies = new ZelReplyCounter();
    std::atomic<bool> mStopping{false};
    std::thread mNotifier;
};

// One daemon for the process: the manager's reaper thread is the process's only one.
ZelFuzzDaemon& daemon() {
    static ZelFuzzDaemon* instance = nullptr;
    if (instance != nullptr) return *instance;
    instance = [] {
        auto* d = new ZelFuzzDaemon();
        d->mManager = ZelTaskManager::create(ZELD_FUZZ_POLICY,
                                             std::make_shared<ZelRecordingEventDispatcher>());
        if (d->mManager == nullptr) abort();
        d->mServer = std::make_shared<ZelUnservedServer>(ServiceIdentifier(1));
        d->mListener = ZelActivityListener::create(
                "zeld", d->mManager, [d](const std::string&) { return d->mServer; });
        if (!d->mListener->start() ||
            !d->mServer->getService()->registerCallback(ServiceIdentifier(kClient), d->mReplies).isOk()) {
            abort();
        }
        d->mNotifier = std::thread([d] {
            while (!d->mStopping) {
                std::this_thread::sleep_for(std::chrono::milliseconds(200));
                ZelReaperSync::notify();
            }
        });
        // The reaper overwrites a stop command that it does not read before
        // its next wait, so stop() may never return: the process ends here,
        // with libFuzzer's status, before anything static is destroyed.
        on_exit([](int status, void*) {
            instance->mStopping = true;
            instance->mNotifier.join();
            std::_Exit(status);
        }, nullptr);
        return d;
    }();
    return *instance;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // Silent unless asked: a line per step would cost more than the step.
    setenv("ZELD_LOG_LEVEL", "S", 0);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    ZelFuzzDaemon& d = daemon();
    android::Parcel in;
    in.setData(data, size);
    android::Parcel reply;
    const int before = d.mReplies->mReplies;
    d.mServer->getService()->transact(kSendAsyncMessage, in, &reply, 0);
    if (d.mReplies->mReplies - before > 2) abort();
    return 0;
}
