#include "ZelServerIZelBinderIPCImpl.h"

#include <utility>

#include <com/ostrel/zeld/interfaces/ZelAsyncParamsBinderParcelable.h>
#include <com/ostrel/zeld/utils/ZelParcelableHelperUtils.h>

#include "ZelDumpAccess.h"
#include "ZelDumpOutput.h"
#include "ZelLog.h"

using android::sp;
using android::binder::Status;
using com::ostrel::zeld::interfaces::ZelAsyncParamsBinderParcelable;
using com::ostrel::zeld::interfaces::ZelTaskContext;
using com::ostrel::zeld::utils::ZelParcelableHelperUtils;

namespace {

Status illegalArgument() {
    return Status::fromExceptionCode(Status::EX_ILLEGAL_ARGUMENT);
}

}  // namespace

Status ZelServerIZelBinderIPCImpl::registerCallback(
        const ServiceIdentifier& client, const sp<IZelBinderIPCRequestCallback>& callback) {
    sp<IZelBinderIPCRequestCallback> previous;  // released after mLock
    std::lock_guard<std::mutex> guard(mLock);
    if (client.value == 0 || callback == nullptr) return illegalArgument();
    std::lock_guard<std::mutex> mapGuard(mCallbackMapLock);
    auto it = mCallbacks.find(client.value);
    if (it != mCallbacks.end()) {
        previous = std::move(it->second);
        mCallbacks.erase(it);
    }
    mCallbacks.emplace(client.value, callback);
    return Status::ok();
}

Status ZelServerIZelBinderIPCImpl::unregisterCallback(const ServiceIdentifier& client) {
    sp<IZelBinderIPCRequestCallback> previous;  // released after mLock
    std::lock_guard<std::mutex> guard(mLock);
    if (client.value == 0) return illegalArgument();
    std::lock_guard<std::mutex> mapGuard(mCallbackMapLock);
    auto it = mCallbacks.find(client.value);
    if (it != mCallbacks.end()) {
        previous = std::move(it->second);
        mCallbacks.erase(it);
    }
    return Status::ok();
}

Status ZelServerIZelBinderIPCImpl::sendAsyncMessage(const ServiceIdentifier& client,
                                                    const MessageIdentifier& kind,
                                                    const std::vector<uint8_t>& data) {
    std::lock_guard<std::mutex> guard(mLock);
    if (client.value == 0 || kind.value == 0 || data.empty() ||
        kind.value != MessageIdentifier::ASYNC_REQUEST) {
        return illegalArgument();
    }
    ZelAsyncParamsBinderParcelable request;
    if (!ZelParcelableHelperUtils::convertBytesToParcelable(data, &request)) {
        return illegalArgument();
    }
    // The handler reads the request from this call's own copy.
    const ZelTaskContext taskContext = request.taskContext;

    auto message = std::make_shared<ZelAsyncMessage>();
    message->messageId = kind;
    message->client = client;
    {
        std::lock_guard<std::mutex> mapGuard(mCallbackMapLock);
        if (auto it = mCallbacks.find(client.value); it != mCallbacks.end()) {
            message->callback = it->second;
        }
    }
    message->functionId = request.functionId;
    message->data = &taskContext;
    message->length = static_cast<int32_t>(sizeof(taskContext));

    ZEL_LOGD("Binder message id:%d from client:%d", kind.value, client.value);
    if (mMessageHandler) (void)mMessageHandler(message);
    return Status::ok();
}

void ZelServerIZelBinderIPCImpl::setMessageHandler(MessageHandler handler) {
    MessageHandler previous;  // destroyed after mLock
    std::lock_guard<std::mutex> guard(mLock);
    previous = std::move(mMessageHandler);
    mMessageHandler = std::move(handler);
}

void ZelServerIZelBinderIPCImpl::setDump(ZelDumpFunction dump) {
    ZelDumpFunction previous;  // destroyed after mCallbackMapLock
    std::lock_guard<std::mutex> guard(mCallbackMapLock);
    previous = std::move(mDump);
    mDump = std::move(dump);
}

android::status_t ZelServerIZelBinderIPCImpl::dump(int fd,
                                                   const android::Vector<android::String16>& args) {
    if (!zelCallerMayDump()) return android::PERMISSION_DENIED;
    ZelDumpFunction dump;
    std::vector<int32_t> clients;
    {
        // Not mLock: a request may hold that for as long as it waits for a purge.
        std::lock_guard<std::mutex> guard(mCallbackMapLock);
        dump = mDump;
        for (const auto& entry : mCallbacks) clients.push_back(entry.first);
    }
    // The daemon's locks are taken after mCallbackMapLock is released.
    return ZelDumpOutput::write(fd, dump ? dump(clients, ZelDumpOutput::wantsJson(args)) : "");
}
