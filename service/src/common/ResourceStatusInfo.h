#pragma once

#include <cstdint>

// The last report of one tracked resource. Plain value; its owner
// (ZelResourceStatus) guards it.
class ResourceStatusInfo {
public:
    virtual ~ResourceStatusInfo() = default;

    virtual uint64_t getValue() const { return value; }
    virtual uint64_t getCriticalThreshold() const { return criticalThreshold; }
    virtual uint32_t getResourceType() const { return resourceType; }
    virtual int64_t getTimestamp() const { return timestamp; }
    virtual uint32_t getStatus() const { return status; }
    virtual void set(uint32_t newResourceType, uint32_t newStatus, uint64_t newValue,
                     uint64_t newCriticalThreshold, int64_t newTimestamp) {
        resourceType = newResourceType;
        status = newStatus;
        value = newValue;
        criticalThreshold = newCriticalThreshold;
        timestamp = newTimestamp;
    }

    uint32_t resourceType = 0;
    uint32_t status = 1;  // 4 means critical
    uint64_t criticalThreshold = 0;
    uint64_t value = 0;
    int64_t timestamp = 0;  // monotonic seconds of the last report; 0 = none yet
};
