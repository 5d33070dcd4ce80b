#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include <com/ostrel/zeld/interfaces/BnZelBinderIPC.h>

#include "ZelAsyncMessage.h"
#include "ZelIpcServer.h"

// The client service "com.ostrel.zeld.service.IZelBinderIPC": the registry of
// client callbacks, and the checks and decoding of each client message before
// it goes to the installed message handler (the IPC server).
//
// mLock, the registry lock, is held across the whole of every call, handling
// and any immediate reply included: the daemon handles one client request at
// a time. It guards mMessageHandler. mCallbackMapLock, a leaf taken under mLock
// by the calls, guards mCallbacks and mDump: a dump takes only that one, to
// copy, so a request that waits under mLock does not hold up a dump.
class ZelServerIZelBinderIPCImpl : public com::ostrel::zeld::interfaces::BnZelBinderIPC {
public:
    using ServiceIdentifier = com::ostrel::zeld::interfaces::ServiceIdentifier;
    using MessageIdentifier = com::ostrel::zeld::interfaces::MessageIdentifier;
    using IZelBinderIPCRequestCallback = com::ostrel::zeld::interfaces::IZelBinderIPCRequestCallback;
    using MessageHandler = std::function<android::binder::Status(std::shared_ptr<ZelAsyncMessage>)>;

    // Each refusal is EX_ILLEGAL_ARGUMENT with nothing changed.
    android::binder::Status registerCallback(
            const ServiceIdentifier& client,
            const android::sp<IZelBinderIPCRequestCallback>& callback) override;
    android::binder::Status unregisterCallback(const ServiceIdentifier& client) override;
    // A message that passes the checks is answered OK whatever its handler
    // decides: refusals show only in the daemon's log.
    android::binder::Status sendAsyncMessage(const ServiceIdentifier& client,
                                             const MessageIdentifier& kind,
                                             const std::vector<uint8_t>& data) override;

    // Installed by the IPC server; an empty handler drops later messages.
    void setMessageHandler(MessageHandler handler);
    // What dump() prints, given the registered clients; nothing without one.
    void setDump(ZelDumpFunction dump);

    // The daemon's state as text, or one JSON document with "--json";
    // PERMISSION_DENIED and nothing written for a caller who may not dump.
    android::status_t dump(int fd, const android::Vector<android::String16>& args) override;

private:
    MessageHandler mMessageHandler;
    ZelDumpFunction mDump;
    std::mutex mLock;
    std::mutex mCallbackMapLock;
    std::map<int32_t, android::sp<IZelBinderIPCRequestCallback>> mCallbacks;
};
