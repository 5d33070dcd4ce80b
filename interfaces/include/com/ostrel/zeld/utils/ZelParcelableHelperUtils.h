#pragma once

#include <cstdint>
#include <vector>

#include <binder/Parcelable.h>

namespace com::ostrel::zeld::utils {

// Carries a parcelable as a byte vector: the bytes are exactly what the
// parcelable writes into a parcel. Works for any parcelable without binder
// objects.
class ZelParcelableHelperUtils {
public:
    // Replaces `bytes` with the serialised parcelable; true on success.
    // `bytes` is left unchanged on failure (null parcelable, write error, a
    // binder object inside).
    static bool convertParcelableToBytes(const ::android::Parcelable* parcelable,
                                         std::vector<uint8_t>& bytes);

    // Fills `parcelable` from `bytes`; true when the bytes hold exactly one
    // valid record. False for a null parcelable, bytes the parcelable refuses
    // (truncated, malformed) or bytes left over after the record; the
    // parcelable then keeps its previous value.
    static bool convertBytesToParcelable(const std::vector<uint8_t>& bytes,
                                         ::android::Parcelable* parcelable);
};

}  // namespace com::ostrel::zeld::utils
