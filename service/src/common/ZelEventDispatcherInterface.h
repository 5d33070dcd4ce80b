#pragma once

#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

#include "PolicyEvent.h"

// The resource monitor's memory report as handed to in-process subscribers.
struct ResourceStatusRecord {
    uint8_t resourceType = 0;
    uint8_t status = 0;
    uint64_t value = 0;
    uint64_t criticalThreshold = 0;
};

// The daemon's access to the event service: publishes task events under the
// daemon's identifier and delivers subscribed events to in-process functions.
// The task manager uses it; the binder front end implements it.
class ZelEventDispatcherInterface {
public:
    // Receives a pointer to the event's data; the pointer is valid only during
    // the call.
    using EventCallback = std::function<void(const void* data)>;
    // Receives the memory report (or null, when a delivery carries no data).
    using MemoryReportCallback = std::function<void(const ResourceStatusRecord* report)>;

    // The (group, event) under which the memory report reaches in-process
    // subscribers.
    static constexpr uint8_t kMemoryReportGroup = 1;
    static constexpr int32_t kMemoryReportEvent = 1;

    virtual ~ZelEventDispatcherInterface() = default;

    // Publishes each event with the parameter pair (first, second). True for
    // an empty list; otherwise the result of the last event of the list.
    [[nodiscard]] virtual bool publishEvents(const std::vector<PolicyEvent>& events, int32_t first,
                                             int32_t second) = 0;
    // One in-process function per (group, event); the first one stays.
    [[nodiscard]] virtual bool subscribeEvent(uint8_t groupId, int32_t eventId,
                                              EventCallback callback) = 0;
    [[nodiscard]] virtual bool unsubscribeEvents(
            const std::vector<std::pair<uint8_t, int32_t>>& events) = 0;
    virtual void stop() = 0;
    // Calls the function subscribed to (group, event), if any, outside any lock.
    virtual void invokeEventCallback(uint8_t groupId, int32_t eventId, const void* data) = 0;

    // The memory report, typed at both ends: the one place where its data
    // travels as a pointer to a ResourceStatusRecord.
    [[nodiscard]] bool subscribeMemoryReport(MemoryReportCallback callback) {
        return subscribeEvent(kMemoryReportGroup, kMemoryReportEvent,
                              [callback = std::move(callback)](const void* data) {
                                  callback(static_cast<const ResourceStatusRecord*>(data));
                              });
    }
    [[nodiscard]] bool unsubscribeMemoryReport() {
        return unsubscribeEvents({{kMemoryReportGroup, kMemoryReportEvent}});
    }
    void deliverMemoryReport(const ResourceStatusRecord& report) {
        invokeEventCallback(kMemoryReportGroup, kMemoryReportEvent, &report);
    }
};
