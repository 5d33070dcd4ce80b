#include <binder/Binder.h>

#include <binder/IInterface.h>
#include <binder/Parcel.h>

#include "ZelBinderRuntime.h"

namespace android {

IBinder::IBinder() = default;
IBinder::~IBinder() = default;

sp<IInterface> IBinder::queryLocalInterface(const String16&) { return nullptr; }
bool IBinder::checkSubclass(const void*) const { return false; }
BBinder* IBinder::localBinder() { return nullptr; }
BpBinder* IBinder::remoteBinder() { return nullptr; }

BBinder::BBinder() = default;

BBinder::~BBinder() {
    if (mExported) zel::binder::ZelBinderRuntime::instance().withdraw(this);
}

const String16& BBinder::getInterfaceDescriptor() const {
    static const String16 kEmpty;
    return kEmpty;
}

bool BBinder::isBinderAlive() const { return true; }
status_t BBinder::pingBinder() { return OK; }

status_t BBinder::transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    data.setDataPosition(0);
    const status_t err = code == PING_TRANSACTION ? pingBinder() : onTransact(code, data, reply, flags);
    if (reply != nullptr) reply->setDataPosition(0);
    return err;
}

status_t BBinder::dump(int, const Vector<String16>&) { return OK; }

status_t BBinder::onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t) {
    switch (code) {
        case INTERFACE_TRANSACTION:
            if (reply == nullptr) return BAD_VALUE;
            return reply->writeString16(getInterfaceDescriptor());
        case DUMP_TRANSACTION: {
            const int fd = data.readFileDescriptor();
            int32_t argc = 0;
            if (fd < 0 || data.readInt32(&argc) != OK) return BAD_TYPE;
            Vector<String16> args;
            for (int32_t i = 0; i < argc && data.dataAvail() > 0; ++i) args.add(data.readString16());
            return dump(fd, args);
        }
        case SYSPROPS_TRANSACTION:
            return OK;
        default:
            return UNKNOWN_TRANSACTION;
    }
}

status_t BBinder::linkToDeath(const sp<DeathRecipient>&, void*, uint32_t) {
    return INVALID_OPERATION;
}

status_t BBinder::unlinkToDeath(const wp<DeathRecipient>&, void*, uint32_t, wp<DeathRecipient>*) {
    return INVALID_OPERATION;
}

BBinder* BBinder::localBinder() { return this; }

BpRefBase::BpRefBase(const sp<IBinder>& o) : mRemote(o) {}
BpRefBase::~BpRefBase() = default;

IInterface::IInterface() = default;
IInterface::~IInterface() = default;

sp<IBinder> IInterface::asBinder(const IInterface* iface) {
    if (iface == nullptr) return nullptr;
    return const_cast<IInterface*>(iface)->onAsBinder();
}

sp<IBinder> IInterface::asBinder(const sp<IInterface>& iface) {
    if (iface == nullptr) return nullptr;
    return iface->onAsBinder();
}

}  // namespace android
