#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include <binder/Binder.h>
#include <binder/BpBinder.h>
#include <binder/Parcel.h>

#include "ZelDeadlines.h"
#include "ZelExitWatch.h"
#include "ZelExportTable.h"
#include "ZelIncomingConnections.h"
#include "ZelListener.h"
#include "ZelParcelFrames.h"
#include "ZelPeer.h"
#include "ZelPeerHost.h"
#include "ZelProxyTable.h"
#include "ZelRuntimeLimits.h"
#include "ZelSocket.h"
#include "ZelThreadPool.h"
#include "zel/binder/ZelBinderStats.h"

namespace zel::binder {

// The host binder runtime of one process (behind ProcessState,
// IPCThreadState, BpBinder and the service registry). It puts its parts
// together and routes what wakes a pool thread to the part it concerns:
//   ZelListener             the endpoint $ZELD_ROOT/dev/binder/<pid>-<random>
//   ZelIncomingConnections  connections other processes opened to this one,
//                           and the calls they carry
//   ZelProxyTable, ZelPeer  proxies of other processes' objects, and the
//                           connections this process opened to call them
//   ZelExportTable          local objects other processes may reference
//   ZelParcelFrames         parcels to frames and back
//   ZelExitWatch            processes that may still hold objects of this one
//   ZelThreadPool           the pool threads and their epoll set
//   ZelDeadlines            the one timer for every deadline
//   ZelTerminateLog         the line that names what ends the process
// What a peer may cost is bounded (ZelRuntimeLimits.h).
//
// Locks, in the order they may nest: the runtime's (going online) before
// those of the parts it sets up; a peer's lock, then the proxy table's;
// the listener's, then those of the incoming connections; a connection's
// lock, then its send queue's, then the timer's; a peer connection's arm
// lock, then its send queue's, then the timer's. Every other lock is a leaf. No lock is held while a binder object may be
// destroyed, while a transaction runs, or across a socket call that can
// wait: sockets are only read or written without blocking, except by a
// synchronous caller waiting for its own request to go out and for its
// reply.
class ZelBinderRuntime final : public ZelPeerHost {
public:
    // The process's runtime; a child of fork() gets a fresh one.
    static ZelBinderRuntime& instance();

    // Creates the endpoint directory (mode 0700) and starts listening, once.
    // NO_INIT when the directory cannot be created or used.
    [[nodiscard]] status_t ensureOnline();
    const std::string& endpoint() const { return mEndpoint; }
    std::string servicesDir() const { return mDir.path + "/services"; }

    android::sp<android::BpBinder> proxyFor(const std::string& endpoint, uint32_t handle) {
        return mProxies.proxyFor(endpoint, handle, 0);
    }
    void onProxyDestroyed(android::BpBinder* proxy) { mProxies.onProxyDestroyed(proxy); }
    // A registered service: held for the life of the process.
    uint32_t pinService(const android::sp<android::BBinder>& service) { return mExports.pin(service); }
    // A local object that had a handle is being destroyed.
    void withdraw(const android::BBinder* object) { mExports.withdraw(object); }
    android::sp<android::BBinder> localObject(uint32_t handle) const { return mExports.lookup(handle); }

    void startThreadPool();
    void spawnPooledThread(bool isMain);
    void joinThreadPool(bool isMain);
    void stopProcess() { mPool.stop(); }
    [[nodiscard]] status_t setMaxThreads(size_t maxThreads) { return mPool.setMaxThreads(maxThreads); }
    size_t maxThreads() const { return mPool.maxThreads(); }

    ZelBinderStats stats() const;

    // ZelPeerHost
    Settings peerSettings() const override { return {mDir, mEndpoint, mDeadlines.send}; }
    [[nodiscard]] status_t flatten(const android::Parcel& parcel, const std::string& to, ZelFrame* frame) override {
        return mFrames.flatten(parcel, to, frame);
    }
    void unflatten(ZelFrame&& frame, const std::string& from, android::Parcel* parcel) override {
        mFrames.unflatten(std::move(frame), from, parcel);
    }
    void watchPeer(const std::shared_ptr<ZelPeer>& peer, int fd) override;
    void armPeer(uint64_t peerId, int fd, bool writable, ZelDeadlines::Clock::time_point deadline) override;
    bool poolServing() const override { return mPool.serving(); }
    void onPeerDead(const std::shared_ptr<ZelPeer>& peer) override;

private:
    ZelBinderRuntime();

    void dispatch(ZelSource source, uint64_t id, uint32_t events);
    void onTimer();
    // Forgets what the endpoint's process held: it has exited.
    void onEndpointGone(const std::string& endpoint);

    const pid_t mPid;
    const std::string mEndpoint;
    const ZelRuntimeDeadlines mDeadlines;
    // Ids of incoming connections, peers and exit watches: one space, as
    // they share the timer's keys.
    std::atomic<uint64_t> mIds{1};

    mutable std::mutex mLock;  // guards going online, held while the parts are set up
    bool mOnline = false;
    ZelSocketDir mDir;  // set once, going online

    ZelExportTable mExports;
    ZelThreadPool mPool;
    ZelDeadlines mTimer;
    ZelProxyTable mProxies;
    ZelParcelFrames mFrames;
    ZelExitWatch mExits;
    ZelIncomingConnections mIncoming;
    ZelListener mListener;
};

}  // namespace zel::binder
