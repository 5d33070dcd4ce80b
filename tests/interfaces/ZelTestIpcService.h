#pragma once

#include <map>
#include <mutex>

#include <com/ostrel/zeld/interfaces/BnZelBinderIPC.h>

// A stand-in for the daemon's client service, for interface-level tests and
// host test setups: it decodes each request and answers through the
// caller's callback with { token + 1, notify, functionId } as
// { token, canStart, status }. Not the daemon's behaviour.
class ZelTestIpcService : public com::ostrel::zeld::interfaces::BnZelBinderIPC {
public:
    using Status = android::binder::Status;
    using ServiceIdentifier = com::ostrel::zeld::interfaces::ServiceIdentifier;
    using MessageIdentifier = com::ostrel::zeld::interfaces::MessageIdentifier;
    using Callback = com::ostrel::zeld::interfaces::IZelBinderIPCRequestCallback;

    Status registerCallback(const ServiceIdentifier& client, const android::sp<Callback>& callback) override;
    Status unregisterCallback(const ServiceIdentifier& client) override;
    Status sendAsyncMessage(const ServiceIdentifier& client, const MessageIdentifier& kind,
                            const std::vector<uint8_t>& data) override;

private:
    std::mutex mLock;  // guards mCallbacks
    std::map<int32_t, android::sp<Callback>> mCallbacks;
};
