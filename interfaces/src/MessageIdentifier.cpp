#include <com/ostrel/zeld/interfaces/MessageIdentifier.h>

namespace com::ostrel::zeld::interfaces {

::android::status_t MessageIdentifier::writeToParcel(::android::Parcel* parcel) const {
    return parcel->writeInt32(value);
}

::android::status_t MessageIdentifier::readFromParcel(const ::android::Parcel* parcel) {
    return parcel->readInt32(&value);  // unchanged when the read fails
}

}  // namespace com::ostrel::zeld::interfaces
