// Arbitrary parcels as sendAsyncMessage calls of the client service, in
// process, through the service's checks, the IPC server, the request handler
// and a real task manager on the task-manager tables' policy (an auto-start
// component, dependencies, cycles, a critical task that may not be
// preempted). Client 77 has a callback that counts replies; a validated
// request is answered at once with one reply, and a later deferred approval
// may add one for an earlier request, so no call may bring more than two.
//
// The manager runs no reaper thread: every 16th input runs one purge here,
// as the reaper would, so no request ever meets a purge in progress and the
// process may end at any time (a reaper thread would first have to be
// stopped, which does not always work). Property writes and reads go to
// stand-ins of this program: a fuzzer starts and stops no process. The build
// gives the policy's path (on a device, a data file beside the program).
//
// The seed corpus (corpus/client) holds a valid request of each kind.
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include <binder/Parcel.h>
#include <com/ostrel/zeld/interfaces/BnZelBinderIPCRequestCallback.h>

#include "ZelActivityListener.h"
#include "ZelBinderIpcServer.h"
#include "ZelRecordingEventDispatcher.h"
#include "ZelSystemProperty.h"
#include "ZelTaskManager.h"
#include "ZelTestFiles.h"

using namespace com::ostrel::zeld::interfaces;
using android::binder::Status;

namespace {

constexpr int32_t kClient = 77;
constexpr uint32_t kSendAsyncMessage = android::IBinder::FIRST_CALL_TRANSACTION + 2;
constexpr unsigned kInputsPerPurge = 16;

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

// Every write works; a stop property never reads back true.
int acceptWrite(const char*, const char*) { return 0; }
signed char readDefault(const char*, signed char defaultValue) { return defaultValue; }

struct ZelFuzzDaemon {
    std::shared_ptr<ZelTaskManager> mManager;
    std::shared_ptr<ZelUnservedServer> mServer;
    std::shared_ptr<ZelActivityListener> mListener;
    android::sp<ZelReplyCounter> mReplies = new ZelReplyCounter();
    unsigned mInputs = 0;
};

// One daemon for the process, never destroyed.
ZelFuzzDaemon& daemon() {
    static ZelFuzzDaemon* instance = [] {
        ZelSystemProperty::sWriter = &acceptWrite;
        ZelSystemProperty::sBoolReader = &readDefault;
        auto* d = new ZelFuzzDaemon();
        const auto engine = ZelPolicyEngine::create(zelTestDataPath(ZELD_FUZZ_POLICY));
        if (engine == nullptr) abort();
        d->mManager = std::make_shared<ZelTaskManager>(std::make_shared<ZelRecordingEventDispatcher>(), engine);
        d->mServer = std::make_shared<ZelUnservedServer>(ServiceIdentifier(1));
        d->mListener = ZelActivityListener::create(
                "zeld", d->mManager, [d](const std::string&) { return d->mServer; });
        if (!d->mListener->start() ||
            !d->mServer->getService()->registerCallback(ServiceIdentifier(kClient), d->mReplies).isOk()) {
            abort();
        }
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
    if (++d.mInputs % kInputsPerPurge == 0) ZelTaskManager::clearList(d.mManager.get());
    android::Parcel in;
    in.setData(data, size);
    android::Parcel reply;
    const int before = d.mReplies->mReplies;
    d.mServer->getService()->transact(kSendAsyncMessage, in, &reply, 0);
    if (d.mReplies->mReplies - before > 2) abort();
    return 0;
}
