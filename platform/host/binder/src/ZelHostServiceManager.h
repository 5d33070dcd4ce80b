#pragma once

#include <optional>
#include <string>

#include <binder/IServiceManager.h>

namespace zel::binder {

class ZelBinderRuntime;

// The service registry shared by every process under one device root. Each
// registration is a file dev/binder/services/<name> holding
// "<endpoint> <handle>\n", written atomically (rename), last writer wins. A
// locally registered object is pinned in its process's export table, so it
// lives as long as the process. Readers check that the owner is reachable;
// a registration whose owner has exited reads as absent, and the next
// addService of the name replaces it.
class ZelHostServiceManager : public android::IServiceManager {
public:
    explicit ZelHostServiceManager(ZelBinderRuntime& runtime);

    android::sp<android::IBinder> getService(const android::String16& name) const override;
    android::sp<android::IBinder> checkService(const android::String16& name) const override;
    android::status_t addService(const android::String16& name,
                                 const android::sp<android::IBinder>& service, bool allowIsolated,
                                 int dumpsysFlags) override;
    android::Vector<android::String16> listServices(int dumpsysFlags) override;

    // 1..127 characters of [A-Za-z0-9._/-], not "." or "..".
    static bool isValidServiceName(const std::string& name);

private:
    struct Registration {
        std::string endpoint;
        uint32_t handle = 0;
    };
    std::optional<Registration> read(const std::string& name) const;
    std::string fileFor(const std::string& name) const;

    ZelBinderRuntime& mRuntime;
};

}  // namespace zel::binder
