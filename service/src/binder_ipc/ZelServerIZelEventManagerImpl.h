#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <tuple>
#include <vector>

#include <com/ostrel/zeld/interfaces/BnZelEventManager.h>

// The event service "com.ostrel.zeld.service.IZelEventManager": a small
// publish/subscribe broker between processes. A participant registers one
// callback under its identifier and subscribes to (publisher, group, event);
// each publication is delivered to the key's subscribers. Participant 1 (the
// daemon) is reached in-process through mLocalEventCallback.
//
// Deliberate: a publication reaches at most one subscriber. mLock is released
// before the first delivery through the walk's own scoped lock, whose second
// release throws; nothing catches it, so the second delivery of one
// publication ends the process. Entries without a delivery path are skipped
// and do not count.
//
// mLock guards the two maps and mLocalEventCallback. No other lock is taken
// under it; callers that hold a lock of their own (the dispatcher's) take it
// before this one.
class ZelServerIZelEventManagerImpl : public com::ostrel::zeld::interfaces::BnZelEventManager {
public:
    using ServiceIdentifier = com::ostrel::zeld::interfaces::ServiceIdentifier;
    using IZelEventCallbackService = com::ostrel::zeld::interfaces::IZelEventCallbackService;
    using LocalEventCallback = std::function<void(const ServiceIdentifier& publisher,
                                                  int32_t groupId, int32_t eventId,
                                                  const std::vector<uint8_t>& payload)>;

    // (publisher, group, event), compared in that order.
    struct EventKey {
        int32_t publisher;
        int32_t groupId;
        int32_t eventId;
        bool operator<(const EventKey& other) const {
            return std::tie(publisher, groupId, eventId) <
                   std::tie(other.publisher, other.groupId, other.eventId);
        }
    };

    ~ZelServerIZelEventManagerImpl() override;

    // Every operation answers OK or EX_ILLEGAL_ARGUMENT (nothing changed) and
    // logs nothing.
    android::binder::Status registerEventCallback(
            const ServiceIdentifier& id, const android::sp<IZelEventCallbackService>& callback) override;
    android::binder::Status unregisterEventCallback(const ServiceIdentifier& id) override;
    android::binder::Status subscribe(const ServiceIdentifier& subscriber,
                                      const ServiceIdentifier& publisher, int32_t groupId,
                                      int32_t eventId) override;
    android::binder::Status unsubscribe(const ServiceIdentifier& subscriber,
                                        const ServiceIdentifier& publisher, int32_t groupId,
                                        int32_t eventId) override;
    android::binder::Status publish(const ServiceIdentifier& publisher, int32_t groupId,
                                    int32_t eventId, const std::vector<uint8_t>& payload) override;

    // The daemon's in-process delivery path (set by its event dispatcher).
    void setLocalEventCallback(LocalEventCallback callback);

    // Participants and subscriptions as text, or one JSON document with
    // "--json", copied under mLock and written after it;
    // PERMISSION_DENIED and nothing written for a caller who may not dump.
    android::status_t dump(int fd, const android::Vector<android::String16>& args) override;

private:
    LocalEventCallback mLocalEventCallback;
    std::mutex mLock;
    std::map<int32_t, android::sp<IZelEventCallbackService>> mCallbacks;
    std::map<EventKey, std::vector<int32_t>> mSubscriptions;
};
