#include "zel/client/ZelClient.h"

#include <utility>

#include <com/ostrel/zeld/interfaces/BnZelBinderIPCRequestCallback.h>
#include <com/ostrel/zeld/interfaces/IZelBinderIPC.h>
#include <com/ostrel/zeld/interfaces/ZelAsyncParamsBinderParcelable.h>
#include <com/ostrel/zeld/interfaces/ZelCallbackParamsParcelable.h>
#include <com/ostrel/zeld/utils/ZelParcelableHelperUtils.h>

#include "ZelClientIds.h"
#include "ZelClientStatus.h"
#include "ZelReplyRouter.h"
#include "ZelServiceLink.h"

namespace zel::client {

using android::IBinder;
using android::sp;
using android::binder::Status;
using namespace com::ostrel::zeld::interfaces;
using com::ostrel::zeld::utils::ZelParcelableHelperUtils;
using Clock = std::chrono::steady_clock;

namespace {

constexpr const char* kServiceName = "com.ostrel.zeld.service.IZelBinderIPC";

// Receives the daemon's replies and hands them to the router.
class ReplyCallback : public BnZelBinderIPCRequestCallback {
public:
    explicit ReplyCallback(std::shared_ptr<ZelReplyRouter> router) : mRouter(std::move(router)) {}

    Status onAsyncReply(const ServiceIdentifier& /*sender*/, const MessageIdentifier& kind,
                        const std::vector<uint8_t>& data) override {
        ZelCallbackParamsParcelable record;
        if (kind.value != MessageIdentifier::ASYNC_REPLY ||
            !ZelParcelableHelperUtils::convertBytesToParcelable(data, &record)) {
            return Status::ok();  // not a reply of the daemon's
        }
        mRouter->onReply(ZelReply{record.token, record.canStart, record.status});
        return Status::ok();
    }

private:
    const std::shared_ptr<ZelReplyRouter> mRouter;
};

}  // namespace

class ZelClient::Impl {
public:
    Impl(int32_t requestedId, bool reconnect)
        : mIdLease(zelRequestClientIds(), requestedId),
          mClientId(mIdLease.id()),
          mRouter(std::make_shared<ZelReplyRouter>()),
          mCallback(new ReplyCallback(mRouter)),
          mLink(new ZelServiceLink(kServiceName, reconnect)) {
        // The link lives no longer than this object: close() in the destructor.
        mLink->setHandlers(
                [this](const sp<IBinder>& service) {
                    return interfaceOf(service)
                            ->registerCallback(ServiceIdentifier(mClientId), mCallback)
                            .isOk();
                },
                [router = mRouter] { router->onDaemonDied(); });
    }
    ~Impl() {
        if (const sp<IBinder> service = mLink->service(Clock::now())) {
            (void)interfaceOf(service)->unregisterCallback(
                    ServiceIdentifier(mClientId));
        }
        mLink->close();
    }

    ZelResult<ZelReply> send(int32_t functionId, const std::string& compId,
                             const std::string& taskId, int32_t token, bool notify,
                             int32_t durationMs, Millis timeout) {
        ZelAsyncParamsBinderParcelable request;
        request.functionId = functionId;
        if (!request.taskContext.setCompId(compId) || !request.taskContext.setTaskId(taskId)) {
            return ZelClientError::kInvalidArgument;
        }
        request.taskContext.token = token;
        request.taskContext.notify = notify;
        request.taskContext.duration = durationMs;
        std::vector<uint8_t> bytes;
        if (!ZelParcelableHelperUtils::convertParcelableToBytes(&request, bytes)) {
            return ZelClientError::kInvalidArgument;
        }

        const Clock::time_point deadline = Clock::now() + timeout;
        std::lock_guard<std::mutex> guard(mRequestLock);
        const sp<IBinder> service = mLink->service(deadline);
        if (service == nullptr) return ZelClientError::kNotRunning;
        mRouter->beginRequest();
        const Status status = interfaceOf(service)->sendAsyncMessage(
                ServiceIdentifier(mClientId), MessageIdentifier(MessageIdentifier::ASYNC_REQUEST),
                bytes);
        if (const ZelClientError error = errorOf(status); error != ZelClientError::kNone) {
            (void)mRouter->awaitReply(Clock::now());  // ends the request
            return error;
        }
        ZelResult<ZelReply> reply = mRouter->awaitReply(deadline);
        if (reply.ok() && functionId == ZelAsyncParamsBinderParcelable::TASK_START_REQUEST &&
            notify && !reply->canStart && reply->status == 0 && reply->token != 0) {
            mRouter->expectApproval(reply->token);
        }
        return reply;
    }

    // The proxy of the service's current binder, made once per connection.
    sp<IZelBinderIPC> interfaceOf(const sp<IBinder>& service) {
        std::lock_guard<std::mutex> guard(mInterfaceLock);
        if (service != mBinder) {
            mBinder = service;
            mInterface = android::interface_cast<IZelBinderIPC>(service);
        }
        return mInterface;
    }

    // Given back after the destructor has unregistered: a later connection
    // of this process registering under it would otherwise be unregistered.
    const ZelClientIdLease mIdLease;
    const int32_t mClientId;  // 0: none was free, connect() refuses
    const std::shared_ptr<ZelReplyRouter> mRouter;
    const sp<ReplyCallback> mCallback;
    const sp<ZelServiceLink> mLink;
    std::mutex mRequestLock;  // one request in flight
    std::mutex mInterfaceLock;  // a leaf: guards mBinder and mInterface
    sp<IBinder> mBinder;
    sp<IZelBinderIPC> mInterface;
};

std::unique_ptr<ZelClient> ZelClient::connect(const ZelClientOptions& options,
                                              ZelClientError* error) {
    auto impl = std::make_shared<Impl>(options.clientId, options.reconnect);
    const ZelClientError result =
            impl->mClientId == 0 ? ZelClientError::kTooManyConnections
                                 : impl->mLink->connect(Clock::now() + options.connectTimeout);
    if (error != nullptr) *error = result;
    if (result != ZelClientError::kNone) return nullptr;
    return std::unique_ptr<ZelClient>(new ZelClient(std::move(impl)));
}

ZelClient::ZelClient(std::shared_ptr<Impl> impl) : mImpl(std::move(impl)) {}
ZelClient::~ZelClient() = default;

int32_t ZelClient::clientId() const {
    return mImpl->mClientId;
}

bool ZelClient::isConnected() const {
    return mImpl->mLink->isConnected();
}

ZelResult<ZelReply> ZelClient::requestStart(const std::string& compId, const std::string& taskId,
                                            bool notify, int32_t durationMs, Millis timeout) {
    return mImpl->send(ZelAsyncParamsBinderParcelable::TASK_START_REQUEST, compId, taskId, 0,
                       notify, durationMs, timeout);
}

std::future<ZelResult<ZelReply>> ZelClient::requestStartAsync(const std::string& compId,
                                                              const std::string& taskId,
                                                              bool notify, int32_t durationMs,
                                                              Millis timeout) {
    return std::async(std::launch::async, [impl = mImpl, compId, taskId, notify, durationMs,
                                           timeout] {
        return impl->send(ZelAsyncParamsBinderParcelable::TASK_START_REQUEST, compId, taskId, 0,
                          notify, durationMs, timeout);
    });
}

ZelResult<ZelReply> ZelClient::reportStarted(const std::string& compId, const std::string& taskId,
                                             int32_t token, int32_t durationMs, Millis timeout) {
    return mImpl->send(ZelAsyncParamsBinderParcelable::TASK_STARTED, compId, taskId, token, false,
                       durationMs, timeout);
}

ZelResult<ZelReply> ZelClient::reportCompleted(const std::string& compId,
                                               const std::string& taskId, int32_t token,
                                               Millis timeout) {
    return mImpl->send(ZelAsyncParamsBinderParcelable::TASK_COMPLETED, compId, taskId, token,
                       false, 0, timeout);
}

ZelResult<ZelReply> ZelClient::sendRequest(int32_t functionId, const std::string& compId,
                                           const std::string& taskId, int32_t token, bool notify,
                                           int32_t durationMs, Millis timeout) {
    return mImpl->send(functionId, compId, taskId, token, notify, durationMs, timeout);
}

ZelResult<ZelReply> ZelClient::waitForApproval(int32_t token, Millis timeout) {
    return mImpl->mRouter->awaitApproval(token, Clock::now() + timeout);
}

void ZelClient::setApprovalListener(std::function<void(const ZelReply&)> listener) {
    mImpl->mRouter->setApprovalListener(std::move(listener));
}

}  // namespace zel::client
