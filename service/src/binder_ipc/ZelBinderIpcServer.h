#pragma once

#include <memory>
#include <string>

#include <binder/Status.h>
#include <com/ostrel/zeld/interfaces/ServiceIdentifier.h>

#include "ZelAsyncMessage.h"
#include "ZelEventDispatcherInterface.h"
#include "ZelIpcServer.h"
#include "ZelServerIZelBinderIPCImpl.h"

// The daemon's side of the client interface: publishes the client service,
// turns each accepted message into a ZelIpcContext for the request handler
// and sends replies through the client's callback. Its static factory also
// publishes the event service and builds the daemon's event dispatcher.
class ZelBinderIpcServer : public ZelIpcServer {
public:
    static constexpr const char* kServiceName = "com.ostrel.zeld.service.IZelBinderIPC";
    static constexpr const char* kEventServiceName = "com.ostrel.zeld.service.IZelEventManager";

    // Empty when the module name maps to no identifier.
    static std::shared_ptr<ZelIpcServer> create(const std::string& moduleName);
    // Registers the event service and returns the dispatcher on it; empty on
    // any failure.
    static std::shared_ptr<ZelEventDispatcherInterface> createEventDispatcherInterface(
            const std::string& moduleName);

    explicit ZelBinderIpcServer(com::ostrel::zeld::interfaces::ServiceIdentifier serviceId);
    ~ZelBinderIpcServer() override;
    ZelBinderIpcServer(const ZelBinderIpcServer&) = delete;
    ZelBinderIpcServer& operator=(const ZelBinderIpcServer&) = delete;

    // Registers the client service, then the calling thread serves in the
    // binder pool. Returns 0 when the pool is left (or without a service
    // manager): deliberately never 1.
    [[nodiscard]] int start() override;
    // Removes the service's message handler; returns 1.
    [[nodiscard]] int stop() override;
    // 0 sent, 1 not sent (no client or callback, or the call failed), 8 not
    // serialisable. Always sends the 12-byte reply record at `data`.
    [[nodiscard]] int sendMessage(std::shared_ptr<ZelIpcContext> context, const void* data,
                                  int length) override;

    // Passed on to the client service.
    void setDump(ZelDumpFunction dump) override;

    // The service's message handler.
    [[nodiscard]] android::binder::Status handleMessage(std::shared_ptr<ZelAsyncMessage> message);

    const android::sp<ZelServerIZelBinderIPCImpl>& getService() const { return mService; }

private:
    const com::ostrel::zeld::interfaces::ServiceIdentifier mServiceId;
    android::sp<ZelServerIZelBinderIPCImpl> mService;
};
