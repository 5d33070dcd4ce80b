#pragma once

#include <map>
#include <mutex>
#include <tuple>
#include <vector>

#include <com/ostrel/zeld/interfaces/BnZelEventManager.h>

// A plain publish/subscribe broker behind IZelEventManager, for
// interface-level tests and host test setups: every subscriber with a
// registered callback receives every publication. Not the daemon's
// behaviour.
class ZelTestEventService : public com::ostrel::zeld::interfaces::BnZelEventManager {
public:
    using Status = android::binder::Status;
    using ServiceIdentifier = com::ostrel::zeld::interfaces::ServiceIdentifier;
    using Callback = com::ostrel::zeld::interfaces::IZelEventCallbackService;

    Status registerEventCallback(const ServiceIdentifier& id, const android::sp<Callback>& callback) override;
    Status unregisterEventCallback(const ServiceIdentifier& id) override;
    Status subscribe(const ServiceIdentifier& subscriber, const ServiceIdentifier& publisher, int32_t groupId,
                     int32_t eventId) override;
    Status unsubscribe(const ServiceIdentifier& subscriber, const ServiceIdentifier& publisher, int32_t groupId,
                       int32_t eventId) override;
    Status publish(const ServiceIdentifier& publisher, int32_t groupId, int32_t eventId,
                   const std::vector<uint8_t>& payload) override;

private:
    using EventKey = std::tuple<int32_t, int32_t, int32_t>;  // publisher, group, event
    std::mutex mLock;  // guards the maps
    std::map<int32_t, android::sp<Callback>> mCallbacks;
    std::map<EventKey, std::vector<int32_t>> mSubscriptions;
};
