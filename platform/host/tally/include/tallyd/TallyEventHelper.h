#pragma once

#include <cstdint>

#include <binder/Parcel.h>
#include <binder/Parcelable.h>

namespace tallyd {

// One resource status as the resource monitor reports it.
struct TallyResourceStatus {
    uint8_t resourceType = 0;  // 1: memory
    uint8_t status = 0;        // 4: critical
    uint64_t value = 0;        // in use
    uint64_t criticalThreshold = 0;
};

// The resource monitor's event payload, published as participant 5, group 1,
// event 1. Parcel form (24 bytes): int32 resourceType, int32 status, uint64
// value, uint64 criticalThreshold. A reader refuses a type or status outside
// 0..255 with BAD_VALUE and keeps its previous value.
class TallyEventHelper : public ::android::Parcelable {
public:
    TallyEventHelper() = default;
    explicit TallyEventHelper(const TallyResourceStatus& status) : mResourceStatus(status) {}

    ::android::status_t writeToParcel(::android::Parcel* parcel) const override;
    ::android::status_t readFromParcel(const ::android::Parcel* parcel) override;

    const TallyResourceStatus& getResourceStatus() const { return mResourceStatus; }
    void setResourceStatus(const TallyResourceStatus& status) { mResourceStatus = status; }

private:
    TallyResourceStatus mResourceStatus;
};

}  // namespace tallyd
