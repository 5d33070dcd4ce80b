#pragma once

#include <cstdint>

#include <binder/Parcel.h>
#include <binder/Parcelable.h>
#include <com/ostrel/zeld/interfaces/ZelCallbackParams.h>

namespace com::ostrel::zeld::interfaces {

// The daemon's reply to a client. Parcel form: int32 token, int32 canStart
// (0 or 1; any other value is refused), int32 status: 12 bytes.
class ZelCallbackParamsParcelable : public ::android::Parcelable {
public:
    ZelCallbackParamsParcelable() = default;
    explicit ZelCallbackParamsParcelable(const ZelCallbackParams& record)
        : token(record.token), canStart(record.canStart), status(record.status) {}

    ZelCallbackParams toRecord() const { return ZelCallbackParams{token, canStart, status}; }

    ::android::status_t writeToParcel(::android::Parcel* parcel) const override;
    ::android::status_t readFromParcel(const ::android::Parcel* parcel) override;

    int32_t token = 0;
    bool canStart = false;
    int32_t status = 0;
};

}  // namespace com::ostrel::zeld::interfaces
