#include <com/ostrel/zeld/interfaces/ServiceIdentifier.h>

namespace com::ostrel::zeld::interfaces {

::android::status_t ServiceIdentifier::writeToParcel(::android::Parcel* parcel) const {
    return parcel->writeInt32(value);
}

::android::status_t ServiceIdentifier::readFromParcel(const ::android::Parcel* parcel) {
    return parcel->readInt32(&value);  // unchanged when the read fails
}

}  // namespace com::ostrel::zeld::interfaces
