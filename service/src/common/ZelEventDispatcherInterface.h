#pragma once

#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

#include "PolicyEvent.h"

// The resource monitor's memory report as handed to in-process subscribers
// of (group 1, event 1).
struct ResourceStatusRecord {
    uint8_t resourceType = 0;
    uint8_t status = 0;
    uint64_t value = 0;
    uint64_t criticalThreshold = 0;
};

// The daemon's access to the event service: publishes task events under the
// daemon's identifier and delivers subscribed events to in-process functions.
class ZelEventDispatcherInterface {
public:
    // Receives a pointer to the event's data (a ResourceStatusRecord for the
    // memory report); the pointer is valid only during the call.
    using EventCallback = std::function<void(const void* data)>;

    virtual ~ZelEventDispatcherInterface() = default;

    // Publishes each event with the parameter pair (first, second). True for
    // an empty list; otherwise the result of the last event of the list.
    virtual bool publishEvents(const std::vector<PolicyEvent>& events, int32_t first,
                               int32_t second) = 0;
    // One in-process function per (group, event); the first one stays.
    virtual bool subscribeEvent(uint8_t groupId, int32_t eventId, EventCallback callback) = 0;
    virtual bool unsubscribeEvents(const std::vector<std::pair<uint8_t, int32_t>>& events) = 0;
    virtual void stop() = 0;
    // Calls the function subscribed to (group, event), if any, outside any lock.
    virtual void invokeEventCallback(uint8_t groupId, int32_t eventId, const void* data) = 0;
};
