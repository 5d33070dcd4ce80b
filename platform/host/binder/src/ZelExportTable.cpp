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
    mByHandle[handle].weak = object;
    object->mExported = true;
    return handle;
}

uint32_t ZelExportTable::exportTo(const sp<BBinder>& object, const std::string& endpoint) {
    std::lock_guard<std::mutex> guard(mLock);
    const uint32_t handle = handleForLocked(object);
    Entry& entry = mByHandle[handle];
    entry.transfers[endpoint] += 1;
    entry.object = object;
    return handle;
}

uint32_t ZelExportTable::pin(const sp<BBinder>& object) {
    std::lock_guard<std::mutex> guard(mLock);
    const uint32_t handle = handleForLocked(object);
    Entry& entry = mByHandle[handle];
    entry.pinned = true;
    entry.object = object;
    return handle;
}

sp<BBinder> ZelExportTable::lookup(uint32_t handle) const {
    std::lock_guard<std::mutex> guard(mLock);
    auto it = mByHandle.find(handle);
    if (it == mByHandle.end()) return nullptr;
    if (it->second.object != nullptr) return it->second.object;
    return it->second.weak.promote();  // null while the object is being destroyed
}

sp<BBinder> ZelExportTable::releaseIfUnusedLocked(Entry& entry) {
    if (entry.inUse()) return nullptr;
    return std::move(entry.object);
}

void ZelExportTable::withdraw(const BBinder* object) {
    std::lock_guard<std::mutex> guard(mLock);
    auto found = mHandleOf.find(object);
    if (found == mHandleOf.end()) return;
    mByHandle.erase(found->second);
    mHandleOf.erase(found);
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
    if (holdDelta > 0 && entry.object == nullptr) entry.object = entry.weak.promote();
    return releaseIfUnusedLocked(entry);
}

std::vector<sp<BBinder>> ZelExportTable::dropEndpoint(const std::string& endpoint) {
    std::vector<sp<BBinder>> released;
    std::lock_guard<std::mutex> guard(mLock);
    for (auto& [handle, entry] : mByHandle) {
        entry.holds.erase(endpoint);
        entry.transfers.erase(endpoint);
        if (sp<BBinder> gone = releaseIfUnusedLocked(entry)) released.push_back(std::move(gone));
    }
    return released;
}

size_t ZelExportTable::size() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mByHandle.size();
}

}  // namespace zel::binder
