#include <com/ostrel/zeld/utils/ZelParcelableHelperUtils.h>

#include <binder/Parcel.h>

namespace com::ostrel::zeld::utils {

using ::android::OK;
using ::android::Parcel;

bool ZelParcelableHelperUtils::convertParcelableToBytes(const ::android::Parcelable* parcelable,
                                                        std::vector<uint8_t>& bytes) {
    if (parcelable == nullptr) return false;
    Parcel parcel;
    if (parcelable->writeToParcel(&parcel) != OK || parcel.objectsCount() != 0) return false;
    bytes.assign(parcel.data(), parcel.data() + parcel.dataSize());
    return true;
}

bool ZelParcelableHelperUtils::convertBytesToParcelable(const std::vector<uint8_t>& bytes,
                                                        ::android::Parcelable* parcelable) {
    if (parcelable == nullptr || bytes.empty()) return false;
    // A parcelable's reader cannot know it was handed more bytes than its
    // record: keep the current value to put back if anything is left over.
    Parcel previous;
    if (parcelable->writeToParcel(&previous) != OK) return false;

    Parcel parcel;
    if (parcel.setData(bytes.data(), bytes.size()) != OK) return false;
    if (parcelable->readFromParcel(&parcel) == OK && parcel.dataPosition() == bytes.size()) {
        return true;
    }
    previous.setDataPosition(0);
    parcelable->readFromParcel(&previous);
    return false;
}

}  // namespace com::ostrel::zeld::utils
