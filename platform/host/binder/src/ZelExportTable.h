#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include <binder/Binder.h>

namespace zel::binder {

// The local objects of this process that other processes may reference,
// by handle. An object keeps its handle for as long as it lives, so a
// reference to it that comes back always finds it. The table holds it
// strongly while it is pinned (a registered service), while some process
// holds a proxy of it, or while a reference to it is on its way to a process
// that has not yet acknowledged it; otherwise weakly, until the object's
// destructor withdraws it. Objects released from the strong hold are handed
// back to the caller, to be dropped outside any lock (their destructors call
// into the table).
class ZelExportTable {
public:
    // The object's handle (a new one on first export), counting one
    // transfer to `endpoint` that the receiver will acknowledge.
    uint32_t exportTo(const android::sp<android::BBinder>& object, const std::string& endpoint);
    // The object's handle; the entry is never released.
    uint32_t pin(const android::sp<android::BBinder>& object);
    android::sp<android::BBinder> lookup(uint32_t handle) const;

    // A REFS frame from `endpoint`: its proxy count changes by `holdDelta`
    // and `acknowledged` transfers arrived. Unknown handles are ignored.
    android::sp<android::BBinder> applyRefs(const std::string& endpoint, uint32_t handle,
                                            int32_t holdDelta, uint32_t acknowledged);
    // `endpoint`'s process is gone: forget its proxies and pending transfers.
    std::vector<android::sp<android::BBinder>> dropEndpoint(const std::string& endpoint);
    // The object is being destroyed: forget its handle.
    void withdraw(const android::BBinder* object);

    size_t size() const;

private:
    struct Entry {
        android::wp<android::BBinder> weak;
        android::sp<android::BBinder> object;  // set while the entry is in use
        bool pinned = false;
        std::map<std::string, uint32_t> holds;      // endpoint -> proxies held
        std::map<std::string, uint32_t> transfers;  // endpoint -> unacknowledged
        bool inUse() const { return pinned || !holds.empty() || !transfers.empty(); }
    };

    uint32_t handleForLocked(const android::sp<android::BBinder>& object);
    android::sp<android::BBinder> releaseIfUnusedLocked(Entry& entry);

    mutable std::mutex mLock;  // leaf lock; guards everything below
    uint32_t mNextHandle = 1;
    std::map<uint32_t, Entry> mByHandle;
    std::map<const android::BBinder*, uint32_t> mHandleOf;
};

}  // namespace zel::binder
