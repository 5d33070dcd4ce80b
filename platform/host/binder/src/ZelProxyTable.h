#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include <binder/BpBinder.h>

#include "ZelPeer.h"
#include "ZelPeerHost.h"

namespace zel::binder {

// This process's proxies of other processes' objects, at most one per
// (endpoint, handle), and the peers they call through: one per endpoint,
// kept from its first proxy until its process is gone and its last proxy
// with it (a live peer keeps its connections without proxies, so that
// one-way calls made through a later proxy follow those made through an
// earlier one on the same primary connection).
class ZelProxyTable {
public:
    ZelProxyTable(ZelPeerHost& host, std::atomic<uint64_t>& ids);

    // The one proxy for (endpoint, handle), acknowledging `acknowledged`
    // transfers to its owner.
    android::sp<android::BpBinder> proxyFor(const std::string& endpoint, uint32_t handle, uint32_t acknowledged);
    void onProxyDestroyed(android::BpBinder* proxy);
    // The peer has just been marked dead: its proxies die (their recipients
    // are told), and the peer is forgotten unless proxies still hold it.
    void onPeerDead(const std::shared_ptr<ZelPeer>& peer);

    // Peers whose primary connection is in the pool's epoll set, by id.
    void watch(const std::shared_ptr<ZelPeer>& peer);
    std::shared_ptr<ZelPeer> watched(uint64_t peerId) const;
    std::shared_ptr<ZelPeer> peerOf(const std::string& endpoint) const;

    size_t proxies() const;
    size_t peers() const;

private:
    // Drops a dead peer without proxies from mPeers.
    void forgetPeerLocked(const std::shared_ptr<ZelPeer>& peer);

    ZelPeerHost& mHost;
    std::atomic<uint64_t>& mIds;

    // Guards the maps below and the peers' proxy counts. Taken under a
    // peer's lock (watch); nothing is taken under it.
    mutable std::mutex mLock;
    struct ProxySlot {
        android::wp<android::BpBinder> ref;
        android::BpBinder* raw = nullptr;  // identifies the proxy the slot was made for
    };
    std::map<std::pair<std::string, uint32_t>, ProxySlot> mProxies;
    std::map<std::string, std::shared_ptr<ZelPeer>> mPeers;
    std::map<uint64_t, std::weak_ptr<ZelPeer>> mWatched;
};

}  // namespace zel::binder
