#include <com/ostrel/zeld/interfaces/ZelAsyncParamsBinderParcelable.h>

namespace com::ostrel::zeld::interfaces {

using ::android::OK;
using ::android::status_t;

status_t ZelAsyncParamsBinderParcelable::writeToParcel(::android::Parcel* parcel) const {
    status_t status = parcel->writeInt32(functionId);
    if (status != OK) return status;
    return parcel->write(&taskContext, sizeof(taskContext));
}

status_t ZelAsyncParamsBinderParcelable::readFromParcel(const ::android::Parcel* parcel) {
    int32_t function;
    ZelTaskContext context;
    status_t status = parcel->readInt32(&function);
    if (status == OK) status = parcel->read(&context, sizeof(context));
    if (status != OK) return status;
    functionId = function;
    taskContext = context;
    return OK;
}

}  // namespace com::ostrel::zeld::interfaces
