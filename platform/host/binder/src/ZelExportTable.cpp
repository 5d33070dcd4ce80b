#include "ZelExportTable.h"

namespace zel::binder {

using android::BBinder;
using android::sp;

uint32_t ZelExportTable::handleForLocked(const sp<BBinder>& object) {
    auto found = mHandleOf.find(object.get());
    if (found != mHandleOf.end()) return found->second;
    uint32_t handle = mNextHandle++;
    if (mNextHandle == 0) mNextHandle = 1;  // 0 never names an object
    mHandleOf[object.get()] = handle;
    mByHandle[handle].object = object;
    return handle;
}

uint32_t ZelExportTable::exportTo(const sp<BBinder>& object, const std::string& endpoint) {
    std::lock_guard<std::mutex> guard(mLock);
    const uint32_t handle = handleForLocked(object);
    mByHandle[handle].transfers[endpoint] += 1;
    return handle;
}

uint32_t ZelExportTable::pin(const sp<BBinder>& object) {
    std::lock_guard<std::mutex> guard(mLock);
    const uint32_t handle = handleForLocked(object);
    mByHandle[handle].pinned = true;
    return handle;
}

sp<BBinder> ZelExportTable::lookup(uint32_t handle) const {
    std::lock_guard<std::mutex> guard(mLock);
    auto it = mByHandle.find(handle);
    return it == mByHandle.end() ? nullptr : it->second.object;
}

sp<BBinder> ZelExportTable::releaseIfUnusedLocked(std::map<uint32_t, Entry>::iterator it) {
    if (it->second.inUse()) return nullptr;
    sp<BBinder> released = std::move(it->second.object);
    mHandleOf.erase(released.get());
    mByHandle.erase(it);
    return released;
}

namespace {

// Subtracts from a per-endpoint count, never below zero, dropping empty counts.
void subtract(std::map<std::string, uint32_t>& counts, const std::string& endpoint, uint32_t n) {
    auto it = counts.find(endpoint);
    if (it == counts.end() || n == 0) return;
    if (it->second <= n) {
        counts.erase(it);
    } else {
        it->second -= n;
    }
}

}  // namespace

sp<BBinder> ZelExportTable::applyRefs(const std::string& endpoint, uint32_t handle,
                                      int32_t holdDelta, uint32_t acknowledged) {
    std::lock_guard<std::mutex> guard(mLock);
    auto it = mByHandle.find(handle);
    if (it == mByHandle.end()) return nullptr;
    Entry& entry = it->second;
    if (holdDelta > 0) entry.holds[endpoint] += 1;
    if (holdDelta < 0) subtract(entry.holds, endpoint, 1);
    subtract(entry.transfers, endpoint, acknowledged);
    return releaseIfUnusedLocked(it);
}

std::vector<sp<BBinder>> ZelExportTable::dropEndpoint(const std::string& endpoint) {
    std::vector<sp<BBinder>> released;
    std::lock_guard<std::mutex> guard(mLock);
    for (auto it = mByHandle.begin(); it != mByHandle.end();) {
        auto next = std::next(it);
        it->second.holds.erase(endpoint);
        it->second.transfers.erase(endpoint);
        if (sp<BBinder> gone = releaseIfUnusedLocked(it)) released.push_back(std::move(gone));
        it = next;
    }
    return released;
}

size_t ZelExportTable::size() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mByHandle.size();
}

}  // namespace zel::binder
