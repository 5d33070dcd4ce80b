// A client of "com.ostrel.zeld.service.IZelBinderIPC" made only of the
// generated proxies: it registers a callback as COM_OSTREL_ZELD_TEST_CLIENT,
// sends task start requests and prints each reply. It watches the service's
// death, and prints what the next call returns once the service is gone.
//
//   zeld_interfaces_test_client [count] [interval-ms]
// Exit status: 0 when every request was answered, 2 on a refused call,
// 3 when the service died, 4 when a reply did not come.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <com/ostrel/zeld/interfaces/BnZelBinderIPCRequestCallback.h>
#include <com/ostrel/zeld/interfaces/IZelBinderIPC.h>
#include <com/ostrel/zeld/interfaces/ZelAsyncParamsBinderParcelable.h>
#include <com/ostrel/zeld/interfaces/ZelCallbackParamsParcelable.h>
#include <com/ostrel/zeld/utils/ZelParcelableHelperUtils.h>

#include "ZelTestWait.h"

using namespace com::ostrel::zeld::interfaces;
using android::sp;
using android::binder::Status;
using com::ostrel::zeld::utils::ZelParcelableHelperUtils;

namespace {

class Replies : public BnZelBinderIPCRequestCallback {
public:
    Status onAsyncReply(const ServiceIdentifier& sender, const MessageIdentifier& kind,
                        const std::vector<uint8_t>& data) override {
        ZelCallbackParamsParcelable reply;
        const bool decoded = ZelParcelableHelperUtils::convertBytesToParcelable(data, &reply);
        std::printf("reply from %d kind %d: %stoken=%d canStart=%d status=%d\n", sender.value, kind.value,
                    decoded ? "" : "(undecodable) ", reply.token, reply.canStart, reply.status);
        std::fflush(stdout);
        arrived.put(reply.token);
        return Status::ok();
    }
    Inbox<int32_t> arrived;
};

class DeathNotice : public android::IBinder::DeathRecipient {
public:
    void binderDied(const android::wp<android::IBinder>&) override {
        std::printf("death notification: the service's process is gone\n");
        std::fflush(stdout);
    }
};

}  // namespace

int main(int argc, char** argv) {
    const int count = argc > 1 ? std::atoi(argv[1]) : 3;
    const int intervalMs = argc > 2 ? std::atoi(argv[2]) : 0;
    android::ProcessState::self()->startThreadPool();  // receives the one-way replies

    sp<IZelBinderIPC> service;
    if (android::getService(android::String16("com.ostrel.zeld.service.IZelBinderIPC"), &service) != android::OK) {
        std::fprintf(stderr, "service not found\n");
        return 1;
    }
    sp<DeathNotice> notice = new DeathNotice();
    IZelBinderIPC::asBinder(service)->linkToDeath(notice);

    const ServiceIdentifier self(ServiceIdentifier::COM_OSTREL_ZELD_TEST_CLIENT);
    sp<Replies> replies = new Replies();
    if (!service->registerCallback(self, replies).isOk()) return 2;
    for (int i = 1; i <= count; ++i) {
        ZelAsyncParamsBinderParcelable request;
        request.functionId = ZelAsyncParamsBinderParcelable::TASK_START_REQUEST;
        request.taskContext.setCompId("demo");
        request.taskContext.setTaskId("task" + std::to_string(i));
        request.taskContext.token = i;
        request.taskContext.notify = true;
        request.taskContext.duration = 1000;
        std::vector<uint8_t> bytes;
        ZelParcelableHelperUtils::convertParcelableToBytes(&request, bytes);
        const Status status = service->sendAsyncMessage(self, MessageIdentifier(MessageIdentifier::ASYNC_REQUEST), bytes);
        if (status.transactionError() == android::DEAD_OBJECT) {
            std::printf("sendAsyncMessage: DEAD_OBJECT\n");
            std::fflush(stdout);
            std::this_thread::sleep_for(std::chrono::milliseconds(100));  // let the notice print
            return 3;
        }
        if (!status.isOk()) {
            std::printf("sendAsyncMessage: %s\n", status.toString8().string());
            return 2;
        }
        if (!replies->arrived.waitFor(i)) return 4;
        std::this_thread::sleep_for(std::chrono::milliseconds(intervalMs));
    }
    return 0;
}
