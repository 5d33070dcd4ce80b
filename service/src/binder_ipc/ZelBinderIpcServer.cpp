#include "ZelBinderIpcServer.h"

#include <cstring>
#include <utility>
#include <vector>

#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <com/ostrel/zeld/interfaces/ZelCallbackParams.h>
#include <com/ostrel/zeld/interfaces/ZelCallbackParamsParcelable.h>
#include <com/ostrel/zeld/utils/ZelParcelableHelperUtils.h>
#include <com/ostrel/zeld/utils/ZelServiceIdentifierUtils.h>

#include "ZelBinderEventDispatcher.h"
#include "ZelIpcContext.h"
#include "ZelLog.h"
#include "ZelMetrics.h"
#include "ZelServerIZelEventManagerImpl.h"

using android::sp;
using android::String16;
using android::binder::Status;
using com::ostrel::zeld::interfaces::MessageIdentifier;
using com::ostrel::zeld::interfaces::ServiceIdentifier;
using com::ostrel::zeld::interfaces::ZelCallbackParams;
using com::ostrel::zeld::interfaces::ZelCallbackParamsParcelable;
using com::ostrel::zeld::utils::ZelParcelableHelperUtils;
using com::ostrel::zeld::utils::ZelServiceIdentifierUtils;

namespace {

const ZelMetricsFactory gMetricsFactory = makeZelMetricsFactory(kZelMetricsModuleBinderServer);

constexpr int kSent = 0;
constexpr int kNotSent = 1;
constexpr int kNotSerialisable = 8;

Status illegalArgument() {
    return Status::fromExceptionCode(Status::EX_ILLEGAL_ARGUMENT);
}

// The 12-byte reply record as it lies in memory, read field by field: its
// canStart byte is tested, never loaded as a bool.
ZelCallbackParams readReplyRecord(const void* data) {
    const auto* bytes = static_cast<const uint8_t*>(data);
    ZelCallbackParams reply;
    std::memcpy(&reply.token, bytes + offsetof(ZelCallbackParams, token), sizeof(reply.token));
    reply.canStart = bytes[offsetof(ZelCallbackParams, canStart)] != 0;
    std::memcpy(&reply.status, bytes + offsetof(ZelCallbackParams, status), sizeof(reply.status));
    return reply;
}

}  // namespace

std::shared_ptr<ZelIpcServer> ZelBinderIpcServer::create(const std::string& moduleName) {
    ZEL_LOGD("creating ZelBinderIpcServer");
    const ServiceIdentifier id = ZelServiceIdentifierUtils::fromModuleName(moduleName);
    if (id.value == ServiceIdentifier::INVALID_SERVICE_UUID) {
        ZEL_LOGE("Invalid module name for the App (%s)", moduleName.c_str());
        return nullptr;
    }
    return std::make_shared<ZelBinderIpcServer>(id);
}

std::shared_ptr<ZelEventDispatcherInterface> ZelBinderIpcServer::createEventDispatcherInterface(
        const std::string& moduleName) {
    const ServiceIdentifier id = ZelServiceIdentifierUtils::fromModuleName(moduleName);
    if (id.value == ServiceIdentifier::INVALID_SERVICE_UUID) {
        ZEL_LOGE("Invalid module name for the App (%s)", moduleName.c_str());
        return nullptr;
    }
    const sp<ZelServerIZelEventManagerImpl> service = new ZelServerIZelEventManagerImpl();
    const sp<android::IServiceManager> serviceManager = android::defaultServiceManager();
    // Never null on the device (libbinder waits for it); null on the host without a registry.
    if (serviceManager == nullptr) {
        ZEL_LOGE("Failed to get service manager");
        return nullptr;
    }
    if (serviceManager->addService(String16(kEventServiceName), service) != android::OK) {
        ZEL_LOGE("Failed to register service");
        return nullptr;
    }
    ZEL_LOGI("%s service is registered", kEventServiceName);
    const auto dispatcher = std::make_shared<ZelBinderEventDispatcher>(id.value, service);
    std::shared_ptr<ZelEventDispatcherInterface> result = dispatcher->weak_from_this().lock();
    if (result == nullptr) ZEL_LOGE("Failed to create event dispatcher");
    return result;
}

ZelBinderIpcServer::ZelBinderIpcServer(ServiceIdentifier serviceId) : mServiceId(serviceId) {
    ZEL_LOGD("ZelBinderIpcServer Constructor invoked");
    mService = new ZelServerIZelBinderIPCImpl();
    mService->setMessageHandler(
            [this](std::shared_ptr<ZelAsyncMessage> message) { return handleMessage(std::move(message)); });
}

ZelBinderIpcServer::~ZelBinderIpcServer() {
    // The registered service outlives this server: it must not call back here.
    mService->setMessageHandler(nullptr);
}

int ZelBinderIpcServer::start() {
    const sp<android::IServiceManager> serviceManager = android::defaultServiceManager();
    // Never null on the device (libbinder waits for it); null on the host without a registry.
    if (serviceManager == nullptr) {
        ZEL_LOGE("Failed to get service manager");
        return 0;
    }
    // Deliberate: a refused registration is logged and serving goes on.
    if (serviceManager->addService(String16(kServiceName), mService) != android::OK) {
        ZEL_LOGE("Failed to register service");
    }
    ZEL_LOGD("%s service is now ready", kServiceName);
    android::ProcessState::self()->startThreadPool();
    android::IPCThreadState::self()->joinThreadPool(true);
    return 0;
}

int ZelBinderIpcServer::stop() {
    mService->setMessageHandler(nullptr);
    return 1;
}

int ZelBinderIpcServer::sendMessage(std::shared_ptr<ZelIpcContext> context, const void* data,
                                    int /*length*/) {
    const int32_t clientId = context->getClientId();
    const sp<ZelIpcContext::IZelBinderIPCRequestCallback> callback = context->getCallback();
    if (clientId == ServiceIdentifier::INVALID_SERVICE_UUID || callback == nullptr) {
        ZEL_LOGE("Invalid client ID or callback pointer");
        gMetricsFactory().addCount("InvalidClientCallback", 1);
        return kNotSent;
    }
    ZEL_LOGD("Sending message to client %d", clientId);
    const ZelCallbackParamsParcelable reply(readReplyRecord(data));
    std::vector<uint8_t> bytes;
    if (!ZelParcelableHelperUtils::convertParcelableToBytes(&reply, bytes)) {
        ZEL_LOGE("Cannot serialize data sent to client");
        return kNotSerialisable;
    }
    const Status status = callback->onAsyncReply(
            mServiceId, MessageIdentifier(MessageIdentifier::ASYNC_REPLY), bytes);
    if (status.exceptionCode() != Status::EX_NONE) {
        ZEL_LOGE("Failed to send message to client %d", clientId);
        return kNotSent;
    }
    return kSent;
}

Status ZelBinderIpcServer::handleMessage(std::shared_ptr<ZelAsyncMessage> message) {
    if (message == nullptr || message->data == nullptr || message->length < 1 ||
        message->callback == nullptr) {
        ZEL_LOGE("Invalid params in Binder message");
        return illegalArgument();
    }
    ZEL_LOGD("Async func call from client %d , for function ID: %d, length = %d",
             message->client.value, message->functionId, message->length);
    std::shared_ptr<ZelIpcContext> context =
            ZelIpcContext::create(message->client.value, message->callback, nullptr, this);
    const ServerCallback handler = getServerCallback();
    if (handler && context != nullptr) {
        ZEL_LOGD("Invoking Server callback to process request");
        return handler(std::move(context), message->functionId, message->data,
                       message->length) == 0
                       ? Status::ok()
                       : illegalArgument();
    }
    ZEL_LOGE("Invalid Server CB or Task Context");
    return illegalArgument();
}

void ZelBinderIpcServer::setDump(ZelDumpFunction dump) {
    mService->setDump(std::move(dump));
}
