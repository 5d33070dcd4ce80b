#include <com/ostrel/zeld/interfaces/ZelCallbackParamsParcelable.h>

namespace com::ostrel::zeld::interfaces {

using ::android::BAD_VALUE;
using ::android::OK;
using ::android::status_t;

status_t ZelCallbackParamsParcelable::writeToParcel(::android::Parcel* parcel) const {
    status_t result = parcel->writeInt32(token);
    if (result == OK) result = parcel->writeBool(canStart);
    if (result == OK) result = parcel->writeInt32(status);
    return result;
}

status_t ZelCallbackParamsParcelable::readFromParcel(const ::android::Parcel* parcel) {
    int32_t newToken;
    int32_t newCanStart;
    int32_t newStatus;
    status_t result = parcel->readInt32(&newToken);
    if (result == OK) result = parcel->readInt32(&newCanStart);
    if (result == OK) result = parcel->readInt32(&newStatus);
    if (result != OK) return result;
    if (newCanStart != 0 && newCanStart != 1) return BAD_VALUE;
    token = newToken;
    canStart = newCanStart == 1;
    status = newStatus;
    return OK;
}

}  // namespace com::ostrel::zeld::interfaces
