#include "ZelResourceStatus.h"

#include "ZelTrace.h"

void ZelResourceStatus::update(uint32_t index, uint32_t status, uint64_t value,
                               uint64_t criticalThreshold, int64_t timestamp) {
    std::lock_guard<std::mutex> guard(mLock);
    if (index != kMemoryResource) return;
    // The trace's counter follows the status as it changes (under mLock, so
    // in order), from the first report on (a timestamp of 0: none yet).
    if (mMemoryStatus.getTimestamp() == 0 || mMemoryStatus.getStatus() != status) {
        zelTraceCounter("memory status", status);
    }
    mMemoryStatus.set(kMemoryResource, status, value, criticalThreshold, timestamp);
}

uint32_t ZelResourceStatus::getStatus(uint32_t index) const {
    std::lock_guard<std::mutex> guard(mLock);
    return index == kMemoryResource ? mMemoryStatus.getStatus() : 0;
}

int64_t ZelResourceStatus::getTimestamp(uint32_t index) const {
    std::lock_guard<std::mutex> guard(mLock);
    return index == kMemoryResource ? mMemoryStatus.getTimestamp() : 0;
}

ResourceStatusInfo ZelResourceStatus::getMemoryStatus() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mMemoryStatus;
}

bool ZelResourceStatus::isThresholdExceeded(uint32_t index, uint64_t amount) const {
    std::lock_guard<std::mutex> guard(mLock);
    if (index != kMemoryResource || mMemoryStatus.getTimestamp() == 0) return false;
    return amount + mMemoryStatus.getValue() > mMemoryStatus.getCriticalThreshold();
}
