// Arbitrary parcels as sendAsyncMessage calls of the client service, in
// process, through the service's checks, the IPC server, the request handler
// and a real task manager on a small policy of its own (kPolicy: an
// auto-start component, dependencies, a cycle, a critical task that may not be
// preempted). Client 77 has a callback that counts replies; a validated
// request is answered at once with one reply, and a later deferred approval
// may add one for an earlier request, so no call may bring more than two.
//
// The manager runs no reaper thread: every 16th input runs one purge here,
// as the reaper would, so no request ever meets a purge in progress and the
// process may end at any time (a reaper thread would first have to be
// stopped, which does not always work). Property writes and reads go to
// stand-ins of this program: a fuzzer starts and stops no process. The policy
// is compiled in, so the program needs no file beside it on a device.
//
// The seed corpus (corpus/client) holds a valid request of each kind.
#include <fcntl.h>
#include <unistd.h>

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

const char kPolicy[] = R"({
  "version": 1.0,
  "eventGroups": [
    {"groupName": "tasks", "groupId": 3, "events": [
      {"eventName": "uploadStarted", "eventId": 21}, {"eventName": "uploadDone", "eventId": 22}]}
  ],
  "components": [
    {"identifier": "media", "processName": "mediad", "autostart": true, "memoryRequirement": 100,
     "startProperty": "ctl.start mediad", "stopProperty": "ctl.stop mediad",
     "tasks": [
       {"identifier": "START_PROCESS", "priorityType": "ZEL_TASK_CRITICAL"},
       {"identifier": "scan", "priorityType": "normal", "minimumGuaranteedRuntime": 3000}]},
    {"identifier": "sync", "processName": "syncd", "memoryRequirement": 300,
     "startProperty": "persist.sync.run 1", "stopProperty": "persist.sync.run 0",
     "tasks": [
       {"identifier": "index", "priorityType": "normal"},
       {"identifier": "upload", "priorityType": "normal", "minimumGuaranteedRuntime": 4000},
       {"identifier": "alarm", "priorityType": "ZEL_TASK_CRITICAL", "preempt": false},
       {"identifier": "START_PROCESS", "priorityType": "ZEL_TASK_CRITICAL"}]},
    {"identifier": "loop", "processName": "loopd",
     "tasks": [{"identifier": "a", "priorityType": "normal"}, {"identifier": "b", "priorityType": "normal"}]}
  ],
  "rules": [
    {"name": "scan", "identifier": {"componentId": "media", "taskId": "scan"}, "actions": [],
     "dependencies": {"allowlist": [{"componentId": "media", "taskId": "START_PROCESS"}]}},
    {"name": "upload", "identifier": {"componentId": "sync", "taskId": "upload"},
     "dependencies": {"allowlist": [{"componentId": "sync", "taskId": "index"},
                                    {"componentId": "media", "taskId": "scan"}]},
     "actions": [
       {"message": "ZEL_TASK_STARTED", "events": [{"eventGroup": "tasks", "eventName": "uploadStarted"}]},
       {"message": "ZEL_TASK_COMPLETED", "events": [{"eventGroup": "tasks", "eventName": "uploadDone"}]}]},
    {"name": "a", "identifier": {"componentId": "loop", "taskId": "a"}, "actions": [],
     "dependencies": {"allowlist": [{"componentId": "loop", "taskId": "b"}]}},
    {"name": "b", "identifier": {"componentId": "loop", "taskId": "b"}, "actions": [],
     "dependencies": {"allowlist": [{"componentId": "loop", "taskId": "a"}]}}
  ]
})";

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

// The policy engine reads its file once, when it is made.
std::shared_ptr<ZelPolicyEngine> loadPolicy() {
    std::string path = zelTestTempDir() + "/zeld-fuzz-policy-XXXXXX";
    const int fd = mkstemp(path.data());
    if (fd < 0) abort();
    const bool written = write(fd, kPolicy, sizeof(kPolicy) - 1) == static_cast<ssize_t>(sizeof(kPolicy) - 1);
    close(fd);
    auto engine = written ? ZelPolicyEngine::create(path) : nullptr;
    unlink(path.c_str());
    if (engine == nullptr) abort();
    return engine;
}

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
        d->mManager = std::make_shared<ZelTaskManager>(std::make_shared<ZelRecordingEventDispatcher>(),
                                                       loadPolicy());
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
