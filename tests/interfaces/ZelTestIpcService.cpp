#include "ZelTestIpcService.h"

#include <com/ostrel/zeld/interfaces/ZelAsyncParamsBinderParcelable.h>
#include <com/ostrel/zeld/interfaces/ZelCallbackParamsParcelable.h>
#include <com/ostrel/zeld/utils/ZelParcelableHelperUtils.h>

using namespace com::ostrel::zeld::interfaces;
using android::sp;
using android::binder::Status;
using com::ostrel::zeld::utils::ZelParcelableHelperUtils;

namespace {
Status illegalArgument() { return Status::fromExceptionCode(Status::EX_ILLEGAL_ARGUMENT); }
}  // namespace

Status ZelTestIpcService::registerCallback(const ServiceIdentifier& client, const sp<Callback>& callback) {
    if (client.value == 0 || callback == nullptr) return illegalArgument();
    std::lock_guard<std::mutex> guard(mLock);
    mCallbacks[client.value] = callback;
    return Status::ok();
}

Status ZelTestIpcService::unregisterCallback(const ServiceIdentifier& client) {
    if (client.value == 0) return illegalArgument();
    std::lock_guard<std::mutex> guard(mLock);
    mCallbacks.erase(client.value);
    return Status::ok();
}

Status ZelTestIpcService::sendAsyncMessage(const ServiceIdentifier& client, const MessageIdentifier& kind,
                                           const std::vector<uint8_t>& data) {
    if (client.value == 0 || kind.value != MessageIdentifier::ASYNC_REQUEST || data.empty()) {
        return illegalArgument();
    }
    ZelAsyncParamsBinderParcelable request;
    if (!ZelParcelableHelperUtils::convertBytesToParcelable(data, &request)) return illegalArgument();
    sp<Callback> callback;
    {
        std::lock_guard<std::mutex> guard(mLock);
        auto it = mCallbacks.find(client.value);
        if (it != mCallbacks.end()) callback = it->second;
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
