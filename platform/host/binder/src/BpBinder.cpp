#include <binder/BpBinder.h>

#include <binder/Parcel.h>

#include "ZelBinderRuntime.h"

namespace android {

using zel::binder::ZelBinderRuntime;
using zel::binder::ZelPeer;

BpBinder::BpBinder(std::shared_ptr<ZelPeer> peer, uint32_t handle)
    : mPeer(std::move(peer)), mHandle(handle) {
    // A proxy made for a process already known to be gone is dead from birth.
    if (mPeer->isDead()) mDead = mObitsSent = true;
}

BpBinder::~BpBinder() { ZelBinderRuntime::instance().onProxyDestroyed(this); }

const std::string& BpBinder::endpoint() const { return mPeer->endpoint(); }

BpBinder* BpBinder::remoteBinder() { return this; }

bool BpBinder::isBinderAlive() const {
    std::lock_guard<std::mutex> guard(mLock);
    return !mDead;
}

const String16& BpBinder::getInterfaceDescriptor() const {
    {
        std::lock_guard<std::mutex> guard(mLock);
        if (mDescriptorCache.size() > 0) return mDescriptorCache;
    }
    Parcel data;
    Parcel reply;
    String16 descriptor;
    if (const_cast<BpBinder*>(this)->transact(INTERFACE_TRANSACTION, data, &reply) == OK) {
        reply.readString16(&descriptor);
    }
    std::lock_guard<std::mutex> guard(mLock);
    if (mDescriptorCache.size() == 0) mDescriptorCache = descriptor;
    return mDescriptorCache;
}

status_t BpBinder::pingBinder() {
    Parcel data;
    Parcel reply;
    return transact(PING_TRANSACTION, data, &reply);
}

status_t BpBinder::transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    {
        std::lock_guard<std::mutex> guard(mLock);
        if (mDead) return DEAD_OBJECT;
    }
    return mPeer->transact(mHandle, code, data, reply, flags);
}

status_t BpBinder::dump(int fd, const Vector<String16>& args) {
    Parcel data;
    status_t status = data.writeFileDescriptor(fd);
    if (status == OK) status = data.writeInt32(static_cast<int32_t>(args.size()));
    for (const String16& arg : args) {
        if (status == OK) status = data.writeString16(arg);
    }
    if (status != OK) return status;
    Parcel reply;
    return transact(DUMP_TRANSACTION, data, &reply);
}

status_t BpBinder::linkToDeath(const sp<DeathRecipient>& recipient, void* cookie, uint32_t flags) {
    if (recipient == nullptr) return BAD_VALUE;
    std::lock_guard<std::mutex> guard(mLock);
    if (mObitsSent) return DEAD_OBJECT;
    mObituaries.push_back(Obituary{recipient, cookie, flags});
    return OK;
}

status_t BpBinder::unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie, uint32_t flags,
                                 wp<DeathRecipient>* outRecipient) {
    std::lock_guard<std::mutex> guard(mLock);
    if (mObitsSent) return DEAD_OBJECT;
    for (auto it = mObituaries.begin(); it != mObituaries.end(); ++it) {
        const bool match = (it->recipient == recipient || (recipient == nullptr && it->cookie == cookie)) &&
                           it->flags == flags;
        if (!match) continue;
        if (outRecipient != nullptr) *outRecipient = it->recipient;
        mObituaries.erase(it);
        return OK;
    }
    return NAME_NOT_FOUND;
}

void BpBinder::sendObituary() {
    std::vector<Obituary> obituaries;
    {
        std::lock_guard<std::mutex> guard(mLock);
        mDead = true;
        if (mObitsSent) return;
        mObitsSent = true;
        obituaries.swap(mObituaries);
    }
    const wp<IBinder> who(this);
    for (const Obituary& obituary : obituaries) {
        if (sp<DeathRecipient> recipient = obituary.recipient.promote()) recipient->binderDied(who);
    }
}

}  // namespace android
