#pragma once

#include <binder/IInterface.h>
#include <utils/String16.h>
#include <utils/Vector.h>

namespace android {

// The service registry. On the host it is shared by every process under the
// same $ZELD_ROOT: a registration is a file under dev/binder/services/ that
// names the owning process's endpoint and the object's handle; a name whose
// owner has exited reads as absent.
class IServiceManager : public IInterface {
public:
    enum {
        DUMP_FLAG_PRIORITY_CRITICAL = 1 << 0,
        DUMP_FLAG_PRIORITY_HIGH = 1 << 1,
        DUMP_FLAG_PRIORITY_NORMAL = 1 << 2,
        DUMP_FLAG_PRIORITY_DEFAULT = 1 << 3,
        DUMP_FLAG_PRIORITY_ALL = DUMP_FLAG_PRIORITY_CRITICAL | DUMP_FLAG_PRIORITY_HIGH |
                                 DUMP_FLAG_PRIORITY_NORMAL | DUMP_FLAG_PRIORITY_DEFAULT,
        DUMP_FLAG_PROTO = 1 << 4,
    };

    // Waits a bounded time (5 s, polling) for the name to appear.
    virtual sp<IBinder> getService(const String16& name) const = 0;
    // Returns at once: the service, or null when absent or its owner is gone.
    virtual sp<IBinder> checkService(const String16& name) const = 0;
    // Names are 1 to 127 characters of [A-Za-z0-9._/-], BAD_VALUE otherwise.
    // Registering a name again replaces the registration.
    virtual status_t addService(const String16& name, const sp<IBinder>& service,
                                bool allowIsolated = false,
                                int dumpsysFlags = DUMP_FLAG_PRIORITY_DEFAULT) = 0;
    // Names whose owner is alive, sorted.
    virtual Vector<String16> listServices(int dumpsysFlags = DUMP_FLAG_PRIORITY_ALL) = 0;

protected:
    IBinder* onAsBinder() override { return nullptr; }
};

// The registry of this process's $ZELD_ROOT, or null when it cannot be
// reached (dev/binder cannot be created or listened on).
sp<IServiceManager> defaultServiceManager();

template <typename INTERFACE>
status_t getService(const String16& name, sp<INTERFACE>* outService) {
    const sp<IServiceManager> sm = defaultServiceManager();
    if (sm != nullptr) {
        *outService = interface_cast<INTERFACE>(sm->getService(name));
        if ((*outService) != nullptr) return NO_ERROR;
    }
    return NAME_NOT_FOUND;
}

}  // namespace android
