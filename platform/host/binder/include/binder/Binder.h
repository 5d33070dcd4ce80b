#pragma once

#include <atomic>

#include <binder/IBinder.h>

namespace zel::binder {
class ZelExportTable;
}

namespace android {

// A local binder object. Subclasses implement onTransact; transact() on a
// local object calls it directly in the calling thread.
class BBinder : public IBinder {
public:
    BBinder();

    const String16& getInterfaceDescriptor() const override;
    bool isBinderAlive() const override;
    status_t pingBinder() override;

    status_t transact(uint32_t code, const Parcel& data, Parcel* reply,
                      uint32_t flags = 0) final;
    // Default: writes nothing.
    status_t dump(int fd, const Vector<String16>& args) override;

    status_t linkToDeath(const sp<DeathRecipient>& recipient, void* cookie = nullptr,
                         uint32_t flags = 0) override;
    status_t unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie = nullptr,
                           uint32_t flags = 0, wp<DeathRecipient>* outRecipient = nullptr) override;

    BBinder* localBinder() override;

protected:
    ~BBinder() override;

    // Default: answers INTERFACE_TRANSACTION with the descriptor and
    // DUMP_TRANSACTION through dump(), everything else with
    // UNKNOWN_TRANSACTION.
    virtual status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                                uint32_t flags = 0);

private:
    friend class ::zel::binder::ZelExportTable;
    // Set once the object has a handle; its destructor then withdraws it.
    std::atomic<bool> mExported{false};
};

// Base of proxy interface objects (BpInterface): holds the remote binder.
class BpRefBase : public virtual RefBase {
protected:
    explicit BpRefBase(const sp<IBinder>& o);
    ~BpRefBase() override;

    inline IBinder* remote() const { return mRemote.get(); }

private:
    BpRefBase(const BpRefBase&) = delete;
    BpRefBase& operator=(const BpRefBase&) = delete;

    const sp<IBinder> mRemote;
};

}  // namespace android
