#pragma once

#include <string>

#include <binder/Parcel.h>

#include "ZelExportTable.h"
#include "ZelProxyTable.h"
#include "zel/binder/ZelWireFrame.h"

namespace zel::binder {

// Parcel <-> frame. A local object in a parcel travels as a reference
// (this endpoint, its handle), exported to the receiver; a proxy as its
// owner's reference. Arriving references become the local object again or
// the one proxy of theirs. The frame carries dups of the parcel's
// descriptors; a parcel made from a frame owns the frame's.
class ZelParcelFrames {
public:
    ZelParcelFrames(const std::string& self, ZelExportTable& exports, ZelProxyTable& proxies);

    // FAILED_TRANSACTION when the parcel is too large or its descriptors
    // cannot be duplicated; nothing is exported then.
    [[nodiscard]] android::status_t flatten(const android::Parcel& parcel, const std::string& to, ZelFrame* frame);
    void unflatten(ZelFrame&& frame, const std::string& from, android::Parcel* parcel);

private:
    const std::string& mSelf;
    ZelExportTable& mExports;
    ZelProxyTable& mProxies;
};

}  // namespace zel::binder
