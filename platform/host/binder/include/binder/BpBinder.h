#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <binder/IBinder.h>

namespace zel::binder {
class ZelProxyTable;
class ZelPeer;
}  // namespace zel::binder

namespace android {

// Proxy for an object that lives in another process, named by the owning
// process's endpoint and the handle it exported the object under. The
// runtime keeps at most one proxy per (endpoint, handle) alive, so two
// references to the same remote object compare equal.
class BpBinder : public IBinder {
public:
    const String16& getInterfaceDescriptor() const override;
    bool isBinderAlive() const override;
    status_t pingBinder() override;

    // Cross-process call. DEAD_OBJECT once the owner is gone,
    // FAILED_TRANSACTION when `data` is larger than 1 MiB.
    status_t transact(uint32_t code, const Parcel& data, Parcel* reply,
                      uint32_t flags = 0) override;
    status_t dump(int fd, const Vector<String16>& args) override;

    status_t linkToDeath(const sp<DeathRecipient>& recipient, void* cookie = nullptr,
                         uint32_t flags = 0) override;
    status_t unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie = nullptr,
                           uint32_t flags = 0, wp<DeathRecipient>* outRecipient = nullptr) override;

    BpBinder* remoteBinder() override;

    uint32_t handle() const { return mHandle; }
    const std::string& endpoint() const;

    // Called by the runtime once the owner is known to be gone: marks the
    // proxy dead and notifies every linked recipient once.
    void sendObituary();

protected:
    ~BpBinder() override;

private:
    friend class ::zel::binder::ZelProxyTable;
    BpBinder(std::shared_ptr<::zel::binder::ZelPeer> peer, uint32_t handle);

    struct Obituary {
        wp<DeathRecipient> recipient;
        void* cookie;
        uint32_t flags;
    };

    const std::shared_ptr<::zel::binder::ZelPeer> mPeer;
    const uint32_t mHandle;

    mutable std::mutex mLock;  // guards the fields below; leaf lock
    bool mDead = false;
    bool mObitsSent = false;
    std::vector<Obituary> mObituaries;
    mutable String16 mDescriptorCache;
};

}  // namespace android
