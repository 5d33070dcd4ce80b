#include "ZelProxyTable.h"

#include <vector>

namespace zel::binder {

using android::BpBinder;
using android::sp;

ZelProxyTable::ZelProxyTable(ZelPeerHost& host, std::atomic<uint64_t>& ids) : mHost(host), mIds(ids) {}

sp<BpBinder> ZelProxyTable::proxyFor(const std::string& endpoint, uint32_t handle, uint32_t acknowledged) {
    sp<BpBinder> proxy;
    std::shared_ptr<ZelPeer> peer;
    bool created = false;
    {
        std::lock_guard<std::mutex> guard(mLock);
        ProxySlot& slot = mProxies[{endpoint, handle}];
        proxy = slot.ref.promote();
        if (proxy == nullptr) {
            std::shared_ptr<ZelPeer>& shared = mPeers[endpoint];
            if (shared == nullptr) shared = std::make_shared<ZelPeer>(mHost, endpoint, mIds++);
            peer = shared;
            proxy = new BpBinder(peer, handle);
            peer->mProxyCount += 1;
            slot.ref = proxy;
            slot.raw = proxy.get();
            created = true;
        } else {
            peer = proxy->mPeer;
        }
    }
    // A failure here makes the peer dead, which the proxy then shows.
    if (created || acknowledged > 0) peer->sendRefs(handle, created ? 1 : 0, acknowledged);
    return proxy;
}

void ZelProxyTable::onProxyDestroyed(BpBinder* proxy) {
    const std::shared_ptr<ZelPeer>& peer = proxy->mPeer;
    {
        std::lock_guard<std::mutex> guard(mLock);
        auto it = mProxies.find({peer->endpoint(), proxy->handle()});
        if (it != mProxies.end() && it->second.raw == proxy) mProxies.erase(it);
        // A live peer keeps its connections without proxies: one-way calls
        // made through a later proxy then follow the earlier ones on the same
        // primary connection, and reach the peer after them.
        if (--peer->mProxyCount == 0 && peer->isDead()) forgetPeerLocked(peer);
    }
    if (!peer->isDead()) peer->sendRefs(proxy->handle(), -1, 0);
}

void ZelProxyTable::forgetPeerLocked(const std::shared_ptr<ZelPeer>& peer) {
    auto found = mPeers.find(peer->endpoint());
    if (found != mPeers.end() && found->second == peer) mPeers.erase(found);
}

void ZelProxyTable::onPeerDead(const std::shared_ptr<ZelPeer>& peer) {
    const std::string& endpoint = peer->endpoint();
    std::vector<sp<BpBinder>> dying;
    {
        std::lock_guard<std::mutex> guard(mLock);
        mWatched.erase(peer->id());
        if (peer->mProxyCount == 0) forgetPeerLocked(peer);
        for (auto it = mProxies.lower_bound({endpoint, 0}); it != mProxies.end() && it->first.first == endpoint; ++it) {
            if (it->second.raw == nullptr || it->second.raw->mPeer != peer) continue;
            if (sp<BpBinder> proxy = it->second.ref.promote()) dying.push_back(std::move(proxy));
        }
    }
    for (const sp<BpBinder>& proxy : dying) proxy->sendObituary();
}

void ZelProxyTable::watch(const std::shared_ptr<ZelPeer>& peer) {
    std::lock_guard<std::mutex> guard(mLock);
    mWatched[peer->id()] = peer;
}

std::shared_ptr<ZelPeer> ZelProxyTable::watched(uint64_t peerId) const {
    std::lock_guard<std::mutex> guard(mLock);
    auto it = mWatched.find(peerId);
    return it != mWatched.end() ? it->second.lock() : nullptr;
}

std::shared_ptr<ZelPeer> ZelProxyTable::peerOf(const std::string& endpoint) const {
    std::lock_guard<std::mutex> guard(mLock);
    auto found = mPeers.find(endpoint);
    return found != mPeers.end() ? found->second : nullptr;
}

size_t ZelProxyTable::proxies() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mProxies.size();
}

size_t ZelProxyTable::peers() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mPeers.size();
}

}  // namespace zel::binder
