#pragma once

#include <cstdint>

#include <binder/Parcel.h>
#include <binder/Parcelable.h>

namespace com::ostrel::zeld::interfaces {

// The payload of the daemon's task events: two values given by the
// publisher. Parcel form: int32 param1, int32 param2: 8 bytes.
class ZelEventParamsParcelable : public ::android::Parcelable {
public:
    ZelEventParamsParcelable() = default;
    ZelEventParamsParcelable(int32_t first, int32_t second) : param1(first), param2(second) {}

    ::android::status_t writeToParcel(::android::Parcel* parcel) const override;
    ::android::status_t readFromParcel(const ::android::Parcel* parcel) override;

    int32_t param1 = 0;
    int32_t param2 = 0;
};

}  // namespace com::ostrel::zeld::interfaces
