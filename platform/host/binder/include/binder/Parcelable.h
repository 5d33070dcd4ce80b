#pragma once

#include <utils/Errors.h>

namespace android {

class Parcel;

// A value that writes itself into a Parcel and reads itself back.
class Parcelable {
public:
    virtual ~Parcelable() = default;
    Parcelable() = default;
    Parcelable(const Parcelable&) = default;
    Parcelable& operator=(const Parcelable&) = default;

    virtual status_t writeToParcel(Parcel* parcel) const = 0;
    // Reads the value at the parcel's position. A failed read returns an
    // error; implementations should leave the object unchanged then.
    virtual status_t readFromParcel(const Parcel* parcel) = 0;
};

}  // namespace android
