#pragma once

// How a parcel lays out what it holds, shared by its writes and its reads.

#include <climits>
#include <cstddef>
#include <cstdint>

namespace zel::binder::parcel {

// What the parcel's bytes hold where a binder was written: a marker, then
// the index of the object in the parcel's object table.
inline constexpr int32_t kBinderMarker = 0x5A424F4A;  // "ZBOJ"
inline constexpr int32_t kNullBinderMarker = 0x5A424E55;  // "ZBNU"
// Where a file descriptor was written: the marker, then its index.
inline constexpr int32_t kFdMarker = 0x5A424644;  // "ZBFD"
// Strict-mode header that precedes an interface token (penalty-gather bit).
inline constexpr int32_t kStrictModeHeader = static_cast<int32_t>(1u << 31);
// Largest parcel, as libbinder: offsets are 32-bit.
inline constexpr size_t kMaxParcelSize = INT32_MAX;

inline constexpr size_t padSize(size_t len) { return (len + 3) & ~static_cast<size_t>(3); }

}  // namespace zel::binder::parcel
