#include "ZelParcelFrames.h"

#include <fcntl.h>

namespace zel::binder {

using android::BBinder;
using android::BpBinder;
using android::FAILED_TRANSACTION;
using android::IBinder;
using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;

ZelParcelFrames::ZelParcelFrames(const std::string& self, ZelExportTable& exports, ZelProxyTable& proxies)
    : mSelf(self), mExports(exports), mProxies(proxies) {}

status_t ZelParcelFrames::flatten(const Parcel& parcel, const std::string& to, ZelFrame* frame) {
    if (parcel.mData.size() > kZelMaxPayload || parcel.mObjects.size() > kZelMaxObjects ||
        parcel.mFds.size() > kZelMaxFds) {
        return FAILED_TRANSACTION;
    }
    // The frame owns dups of the parcel's descriptors: it may wait to be
    // sent after the parcel is gone. Made first, so that nothing is exported
    // for a frame that cannot be made.
    frame->fds.clear();
    for (const Parcel::FileDescriptor& entry : parcel.mFds) {
        frame->fds.emplace_back(fcntl(entry.fd, F_DUPFD_CLOEXEC, 0));
        if (frame->fds.back().get() < 0) return FAILED_TRANSACTION;
    }
    frame->payload = parcel.mData;
    frame->objects.clear();
    frame->objects.reserve(parcel.mObjects.size());
    for (const sp<IBinder>& object : parcel.mObjects) {
        ZelObjectRef ref{mSelf, 0};  // handle 0 names nothing
        if (object == nullptr) {
        } else if (BBinder* local = object->localBinder()) {
            ref.handle = mExports.exportTo(sp<BBinder>(local), to);
        } else if (BpBinder* remote = object->remoteBinder()) {
            ref = ZelObjectRef{remote->endpoint(), remote->handle()};
        }
        frame->objects.push_back(std::move(ref));
    }
    return OK;
}

void ZelParcelFrames::unflatten(ZelFrame&& frame, const std::string& from, Parcel* parcel) {
    parcel->releaseFds();
    for (android::base::unique_fd& fd : frame.fds) parcel->mFds.push_back(Parcel::FileDescriptor{fd.release(), true});
    parcel->mData = std::move(frame.payload);
    parcel->mDataPos = 0;
    parcel->mObjects.clear();
    parcel->mObjects.reserve(frame.objects.size());
    for (const ZelObjectRef& ref : frame.objects) {
        if (ref.endpoint == mSelf) {
            parcel->mObjects.push_back(mExports.lookup(ref.handle));
        } else {
            // The sender counted a transfer only for objects it owns.
            parcel->mObjects.push_back(mProxies.proxyFor(ref.endpoint, ref.handle, ref.endpoint == from ? 1 : 0));
        }
    }
}

}  // namespace zel::binder
