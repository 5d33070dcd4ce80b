#pragma once

#include <cstdint>

#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/String16.h>
#include <utils/StrongPointer.h>
#include <utils/Vector.h>

#define B_PACK_CHARS(c1, c2, c3, c4) \
    ((((uint32_t)(c1)) << 24) | (((uint32_t)(c2)) << 16) | (((uint32_t)(c3)) << 8) | ((uint32_t)(c4)))

namespace android {

class BBinder;
class BpBinder;
class IInterface;
class Parcel;

// A binder object: local (BBinder) or a proxy for an object of another
// process (BpBinder). Identity is pointer identity: one proxy per remote
// object per process.
class IBinder : public virtual RefBase {
public:
    enum {
        FIRST_CALL_TRANSACTION = 0x00000001,
        LAST_CALL_TRANSACTION = 0x00ffffff,

        PING_TRANSACTION = B_PACK_CHARS('_', 'P', 'N', 'G'),
        DUMP_TRANSACTION = B_PACK_CHARS('_', 'D', 'M', 'P'),
        SHELL_COMMAND_TRANSACTION = B_PACK_CHARS('_', 'C', 'M', 'D'),
        INTERFACE_TRANSACTION = B_PACK_CHARS('_', 'N', 'T', 'F'),
        SYSPROPS_TRANSACTION = B_PACK_CHARS('_', 'S', 'P', 'R'),

        // Corresponds to TF_ONE_WAY: the caller does not wait for a reply.
        FLAG_ONEWAY = 0x00000001,
    };

    IBinder();

    // The interface object for `descriptor` when this is a local object
    // implementing it, else null.
    virtual sp<IInterface> queryLocalInterface(const String16& descriptor);
    virtual const String16& getInterfaceDescriptor() const = 0;

    virtual bool isBinderAlive() const = 0;
    virtual status_t pingBinder() = 0;

    virtual status_t transact(uint32_t code, const Parcel& data, Parcel* reply,
                              uint32_t flags = 0) = 0;

    // Writes the object's state to `fd`, as dumpsys asks it to. A proxy
    // sends DUMP_TRANSACTION (the descriptor, the argument count, the
    // arguments); the owner's BBinder answers it by calling its own dump,
    // the caller's identity in IPCThreadState.
    virtual status_t dump(int fd, const Vector<String16>& args) = 0;

    class DeathRecipient : public virtual RefBase {
    public:
        virtual void binderDied(const wp<IBinder>& who) = 0;
    };

    // Only proxies die; for a local object these return INVALID_OPERATION.
    // linkToDeath on a proxy whose process is gone returns DEAD_OBJECT.
    virtual status_t linkToDeath(const sp<DeathRecipient>& recipient, void* cookie = nullptr,
                                 uint32_t flags = 0) = 0;
    virtual status_t unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie = nullptr,
                                   uint32_t flags = 0, wp<DeathRecipient>* outRecipient = nullptr) = 0;

    virtual bool checkSubclass(const void* subclassID) const;

    virtual BBinder* localBinder();
    virtual BpBinder* remoteBinder();

protected:
    virtual ~IBinder();
};

}  // namespace android
