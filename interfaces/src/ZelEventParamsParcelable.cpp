#include <com/ostrel/zeld/interfaces/ZelEventParamsParcelable.h>

namespace com::ostrel::zeld::interfaces {

using ::android::OK;
using ::android::status_t;

status_t ZelEventParamsParcelable::writeToParcel(::android::Parcel* parcel) const {
    status_t status = parcel->writeInt32(param1);
    if (status == OK) status = parcel->writeInt32(param2);
    return status;
}

status_t ZelEventParamsParcelable::readFromParcel(const ::android::Parcel* parcel) {
    int32_t first;
    int32_t second;
    status_t status = parcel->readInt32(&first);
    if (status == OK) status = parcel->readInt32(&second);
    if (status != OK) return status;
    param1 = first;
    param2 = second;
    return OK;
}

}  // namespace com::ostrel::zeld::interfaces
