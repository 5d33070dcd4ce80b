#include "ZelIpcContext.h"

#include <utility>

#include "ZelLog.h"

std::shared_ptr<ZelIpcContext> ZelIpcContext::create(
        int32_t clientId, android::sp<IZelBinderIPCRequestCallback> callback, void* userData,
        ZelIpcServer* server) {
    ZEL_LOGD("creating ZelIpcContext");
    return std::make_shared<ZelIpcContext>(clientId, std::move(callback), userData, server);
}

ZelIpcContext::ZelIpcContext(int32_t clientId, android::sp<IZelBinderIPCRequestCallback> callback,
                             void* userData, ZelIpcServer* server)
    : mClientId(clientId), mCallback(std::move(callback)), mServer(server), mUserData(userData) {}
