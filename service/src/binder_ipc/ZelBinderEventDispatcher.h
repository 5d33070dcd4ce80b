#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include <com/ostrel/zeld/interfaces/ServiceIdentifier.h>

#include "ZelCallLink.h"
#include "ZelEventDispatcherInterface.h"
#include "ZelServerIZelEventManagerImpl.h"

// The daemon's own participant of the event service, used in-process: it
// publishes the daemon's task events and turns the resource monitor's memory
// reports (publisher 5, group 1, event 1) into calls of in-process functions.
//
// mLock guards mEventCallbacks. Lock order: mLock before the event service's
// lock, never the reverse (the service releases its lock before it delivers).
// Subscriber functions run outside mLock.
class ZelBinderEventDispatcher : public ZelEventDispatcherInterface,
                                 public std::enable_shared_from_this<ZelBinderEventDispatcher> {
public:
    using ServiceIdentifier = com::ostrel::zeld::interfaces::ServiceIdentifier;

    // Installs this dispatcher as the service's in-process delivery path.
    ZelBinderEventDispatcher(int32_t serviceId,
                             android::sp<ZelServerIZelEventManagerImpl> eventManager);
    ~ZelBinderEventDispatcher() override;
    ZelBinderEventDispatcher(const ZelBinderEventDispatcher&) = delete;
    ZelBinderEventDispatcher& operator=(const ZelBinderEventDispatcher&) = delete;

    // Deliberate: the result is the last event's, not all of them.
    [[nodiscard]] bool publishEvents(const std::vector<PolicyEvent>& events, int32_t first,
                                     int32_t second) override;
    // Always subscribes to publisher 5 (the resource monitor), whatever the pair.
    [[nodiscard]] bool subscribeEvent(uint8_t groupId, int32_t eventId,
                                      EventCallback callback) override;
    [[nodiscard]] bool unsubscribeEvents(
            const std::vector<std::pair<uint8_t, int32_t>>& events) override;
    void stop() override;
    void invokeEventCallback(uint8_t groupId, int32_t eventId, const void* data) override;

    // The service's delivery to participant 1. Only the memory report
    // (publisher 5, group 1, event 1) is decoded and passed on.
    [[nodiscard]] bool onBinderEventCallback(const ServiceIdentifier& publisher, int32_t groupId,
                                             int32_t eventId, const std::vector<uint8_t>& payload);

private:
    std::map<std::pair<uint8_t, int32_t>, EventCallback> mEventCallbacks;
    std::mutex mLock;
    ServiceIdentifier mServiceId;
    android::sp<ZelServerIZelEventManagerImpl> mEventManager;
    // What the service's delivery path reaches this dispatcher through: the
    // service keeps that path after the dispatcher is gone (nothing clears
    // it), so the destructor detaches the link.
    std::shared_ptr<ZelCallLink<ZelBinderEventDispatcher>> mLink;
};
