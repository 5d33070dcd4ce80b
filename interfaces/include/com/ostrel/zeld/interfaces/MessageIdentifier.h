#pragma once

#include <cstdint>

#include <binder/Parcel.h>
#include <binder/Parcelable.h>

namespace com::ostrel::zeld::interfaces {

// What kind of message travels: a request (1) or a reply (2). Parcel form:
// int32.
class MessageIdentifier : public ::android::Parcelable {
public:
    enum : int32_t {
        ASYNC_REQUEST = 1,
        ASYNC_REPLY = 2,
    };

    MessageIdentifier() = default;
    explicit MessageIdentifier(int32_t id) : value(id) {}

    ::android::status_t writeToParcel(::android::Parcel* parcel) const override;
    ::android::status_t readFromParcel(const ::android::Parcel* parcel) override;

    bool operator==(const MessageIdentifier& other) const { return value == other.value; }
    bool operator!=(const MessageIdentifier& other) const { return value != other.value; }

    int32_t value = 0;
};

}  // namespace com::ostrel::zeld::interfaces
