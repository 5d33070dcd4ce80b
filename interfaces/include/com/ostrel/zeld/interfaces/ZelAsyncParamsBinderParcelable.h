#pragma once

#include <cstdint>

#include <binder/Parcel.h>
#include <binder/Parcelable.h>
#include <com/ostrel/zeld/interfaces/ZelTaskContext.h>

namespace com::ostrel::zeld::interfaces {

// A client request: the function asked for and its task context. Parcel
// form: int32 functionId, then the 140 bytes of the task context as they lie
// in memory (144 bytes in all).
class ZelAsyncParamsBinderParcelable : public ::android::Parcelable {
public:
    enum : int32_t {
        TASK_START_REQUEST = 1,
        TASK_STARTED = 2,
        TASK_COMPLETED = 3,
    };

    ::android::status_t writeToParcel(::android::Parcel* parcel) const override;
    ::android::status_t readFromParcel(const ::android::Parcel* parcel) override;

    int32_t functionId = 0;
    ZelTaskContext taskContext;
};

}  // namespace com::ostrel::zeld::interfaces
