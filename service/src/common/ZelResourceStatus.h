#pragma once

#include <cstdint>
#include <mutex>

#include "ResourceStatusInfo.h"

// The latest memory report of the resource monitor. Written by the resource
// path, read by start requests; mLock is a leaf lock. Only resource index 0
// (memory) is tracked: any other index stores nothing and reads 0/false.
class ZelResourceStatus {
public:
    static constexpr uint32_t kMemoryResource = 0;

    void update(uint32_t index, uint32_t status, uint64_t value, uint64_t criticalThreshold,
                int64_t timestamp);
    uint32_t getStatus(uint32_t index) const;
    int64_t getTimestamp(uint32_t index) const;
    // The whole memory report, copied under one holding.
    ResourceStatusInfo getMemoryStatus() const;
    // False until a report has arrived; then (amount + value) > threshold.
    bool isThresholdExceeded(uint32_t index, uint64_t amount) const;

private:
    mutable std::mutex mLock;
    ResourceStatusInfo mMemoryStatus;
};
