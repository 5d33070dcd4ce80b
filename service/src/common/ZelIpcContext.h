#pragma once

#include <cstdint>
#include <memory>

#include <com/ostrel/zeld/interfaces/IZelBinderIPCRequestCallback.h>

class ZelIpcServer;

// Where the answer to one client request goes: the client, its callback and
// the server that sends it. A start request's context is kept with its task
// until a deferred approval, so it holds its own reference on the callback;
// the server outlives every context (it lives as long as the daemon).
// Immutable after creation.
class ZelIpcContext {
public:
    using IZelBinderIPCRequestCallback = com::ostrel::zeld::interfaces::IZelBinderIPCRequestCallback;

    static std::shared_ptr<ZelIpcContext> create(
            int32_t clientId, android::sp<IZelBinderIPCRequestCallback> callback, void* userData,
            ZelIpcServer* server);

    ZelIpcContext(int32_t clientId, android::sp<IZelBinderIPCRequestCallback> callback,
                  void* userData, ZelIpcServer* server);

    int32_t getClientId() const { return mClientId; }
    const android::sp<IZelBinderIPCRequestCallback>& getCallback() const { return mCallback; }
    ZelIpcServer* getServer() const { return mServer; }
    void* getUserData() const { return mUserData; }

private:
    const int32_t mClientId;
    const android::sp<IZelBinderIPCRequestCallback> mCallback;
    ZelIpcServer* const mServer;
    void* const mUserData;  // not owned; always empty in this daemon
};
