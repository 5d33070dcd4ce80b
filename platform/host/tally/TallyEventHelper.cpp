#include <tallyd/TallyEventHelper.h>

namespace tallyd {

using ::android::BAD_VALUE;
using ::android::OK;
using ::android::status_t;

status_t TallyEventHelper::writeToParcel(::android::Parcel* parcel) const {
    status_t result = parcel->writeInt32(mResourceStatus.resourceType);
    if (result == OK) result = parcel->writeInt32(mResourceStatus.status);
    if (result == OK) result = parcel->writeUint64(mResourceStatus.value);
    if (result == OK) result = parcel->writeUint64(mResourceStatus.criticalThreshold);
    return result;
}

status_t TallyEventHelper::readFromParcel(const ::android::Parcel* parcel) {
    int32_t type = 0;
    int32_t status = 0;
    uint64_t value = 0;
    uint64_t threshold = 0;
    status_t result = parcel->readInt32(&type);
    if (result == OK) result = parcel->readInt32(&status);
    if (result == OK) result = parcel->readUint64(&value);
    if (result == OK) result = parcel->readUint64(&threshold);
    if (result != OK) return result;
    if (type < 0 || type > UINT8_MAX || status < 0 || status > UINT8_MAX) return BAD_VALUE;
    mResourceStatus = {static_cast<uint8_t>(type), static_cast<uint8_t>(status), value, threshold};
    return OK;
}

}  // namespace tallyd
