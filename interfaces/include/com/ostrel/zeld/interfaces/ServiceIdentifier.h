#pragma once

#include <cstdint>

#include <binder/Parcel.h>
#include <binder/Parcelable.h>

namespace com::ostrel::zeld::interfaces {

// Who sends a message: a client or the daemon itself. Parcel form: int32.
// 0 (INVALID_SERVICE_UUID) is never a valid sender.
class ServiceIdentifier : public ::android::Parcelable {
public:
    enum : int32_t {
        INVALID_SERVICE_UUID = 0,
        COM_OSTREL_ZELD = 1,
        COM_OSTREL_ARDEN_HYBRID_EXEC = 2,
        COM_OSTREL_MARLOWAPP = 3,
        COM_OSTREL_LARK_SIM = 4,
        COM_OSTREL_TALLYD = 5,
        COM_OSTREL_ZELD_TEST_CLIENT = 6,
    };

    ServiceIdentifier() = default;
    explicit ServiceIdentifier(int32_t id) : value(id) {}

    ::android::status_t writeToParcel(::android::Parcel* parcel) const override;
    ::android::status_t readFromParcel(const ::android::Parcel* parcel) override;

    bool operator==(const ServiceIdentifier& other) const { return value == other.value; }
    bool operator!=(const ServiceIdentifier& other) const { return value != other.value; }

    int32_t value = INVALID_SERVICE_UUID;
};

}  // namespace com::ostrel::zeld::interfaces
