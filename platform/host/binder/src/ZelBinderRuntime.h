#pragma once

#include <sys/types.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>

#include <binder/BpBinder.h>
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>

#include "ZelDeadlines.h"
#include "ZelExportTable.h"
#include "ZelPeer.h"
#include "ZelRuntimeLimits.h"
#include "ZelSocket.h"
#include "zel/binder/ZelBinderStats.h"

namespace zel::binder {

// The host binder runtime of one process (behind ProcessState).
//
// It listens on $ZELD_ROOT/dev/binder/<endpoint>, where the endpoint is
// "<pid>-<random>". Pool threads wait together on one epoll set holding the
// listening socket, every accepted connection (one-shot: one thread at a
// time reads a connection and takes every complete frame of that read), the
// primary connection of every peer (hang-up, and room while bytes wait on
// it), the exit of processes that held objects of this one, and one timer
// for every deadline. The reading thread re-arms the connection, then runs
// what it read; one-way transactions of a connection run one after the
// other in arrival order. When every pool thread is busy another is spawned,
// up to the maximum; spawned threads leave after a while idle.
//
// What a peer may cost is bounded (ZelRuntimeLimits.h): a connection must
// say HELLO, for its own pid, within the hello deadline and complete every
// frame within the frame deadline; its read buffer grows only with what
// arrives; replies are sent without blocking, and one that waits is the
// only output a connection may have; a process that closed its connections
// costs one pidfd until it exits. Out of descriptors, accepting pauses.
//
// Locks, in the order they may nest: a peer's lock, then mLock; a
// connection's lock, then its send queue's; a peer connection's arm lock,
// then its send queue's, then the timer's. The export table's, a proxy's,
// mPoolLock and the timer's are leaves. No lock is held while a binder
// object may be destroyed, while a transaction runs, or across a socket
// call that can wait: sockets are only read or written without blocking,
// except by a synchronous caller waiting for its own request to go out and
// for its reply.
class ZelBinderRuntime {
public:
    // The process's runtime; a child of fork() gets a fresh one.
    static ZelBinderRuntime& instance();

    // Creates the endpoint directory (mode 0700) and starts listening, once.
    // NO_INIT when the directory cannot be created or used.
    status_t ensureOnline();
    const std::string& endpoint() const { return mEndpoint; }
    const ZelSocketDir& socketDir() const { return mDir; }
    std::string servicesDir() const { return mDir.path + "/services"; }

    // Parcel <-> frame: local objects are exported to `to`; references
    // arriving from `from` become local objects or proxies; the frame
    // carries dups of the parcel's descriptors, and a parcel made from a
    // frame owns the frame's. FAILED_TRANSACTION when the parcel is too
    // large or its descriptors cannot be duplicated.
    status_t flatten(const android::Parcel& parcel, const std::string& to, ZelFrame* frame);
    void unflatten(ZelFrame&& frame, const std::string& from, android::Parcel* parcel);

    // The one proxy for (endpoint, handle), acknowledging `acknowledged`
    // transfers to its owner.
    android::sp<android::BpBinder> proxyFor(const std::string& endpoint, uint32_t handle,
                                            uint32_t acknowledged);
    void onProxyDestroyed(android::BpBinder* proxy);
    // The peer's process is gone (or its connection broke): proxies die.
    void onPeerDead(const std::shared_ptr<ZelPeer>& peer);
    // Watches a peer's primary connection for hang-up; armPeer also for
    // room, while bytes wait on it. The send deadline prompts the peer to
    // look whether they still move.
    void watchPeer(const std::shared_ptr<ZelPeer>& peer, int fd);
    void armPeer(uint64_t peerId, int fd, bool writable);
    void setSendDeadline(uint64_t peerId, ZelDeadlines::Clock::time_point when);
    const ZelRuntimeDeadlines& deadlines() const { return mDeadlines; }

    uint32_t pinService(const android::sp<android::BBinder>& service);
    // A local object that had a handle is being destroyed.
    void withdraw(const android::BBinder* object) { mExports.withdraw(object); }
    android::sp<android::BBinder> localObject(uint32_t handle) const;
    android::sp<android::IServiceManager> serviceManager();

    void startThreadPool();
    void spawnPooledThread(bool isMain);
    void joinThreadPool(bool isMain);
    void stopProcess();
    status_t setMaxThreads(size_t maxThreads);
    size_t maxThreads() const { return mMaxThreads.load(); }
    // True while pool threads serve the epoll set (and so send what waits).
    bool poolServing() const { return mPoolStarted.load() && !mStopping.load(); }

    ZelBinderStats stats() const;

private:
    struct Incoming;
    // A transaction as read: its target and arguments are resolved while the
    // connection is still read in order, so a later REFS frame from the same
    // caller cannot release an object the call refers to.
    struct Call {
        uint32_t code = 0;
        uint32_t flags = 0;
        android::sp<android::BBinder> target;
        std::unique_ptr<android::Parcel> data;
    };

    ZelBinderRuntime();

    // Drops a dead peer without proxies from mPeers.
    void forgetPeerLocked(const std::shared_ptr<ZelPeer>& peer);
    void poolLoop(bool isMain, bool counted);
    void spareThreadIfNeeded();
    void dispatch(uint64_t tag, uint32_t events);
    void onTimer();
    void acceptAll();
    // Out of descriptors: the listener rests for a growing pause.
    void pauseAccepting(int error);
    void armListener();
    // Reads and takes the connection's frames, unless another thread is at
    // it or it is paused; judges its input deadline.
    void serveConnection(const std::shared_ptr<Incoming>& conn);
    // Runs the connection's queued one-way calls, in order, until none is left.
    void drainOneway(const std::shared_ptr<Incoming>& conn, const std::string& endpoint);
    void execute(const std::shared_ptr<Incoming>& conn, const std::string& endpoint, Call&& call);
    void sendReply(const std::shared_ptr<Incoming>& conn, ZelFrame&& answer);
    // Sends what waits on the connection; on its send deadline, gives it up
    // when it took nothing for that long.
    void flushIncoming(const std::shared_ptr<Incoming>& conn, bool deadline);
    // Sets the connection's epoll interest from its state.
    void arm(const std::shared_ptr<Incoming>& conn);
    void closeIncoming(const std::shared_ptr<Incoming>& conn, const char* why);
    std::shared_ptr<Incoming> incoming(uint64_t id) const;
    // Forgets what the endpoint's process held once it has exited: watched
    // through one pidfd per process while it is still running.
    void watchExit(const std::string& endpoint, pid_t pid);
    void onEndpointGone(const std::string& endpoint);

    const pid_t mPid;
    std::string mEndpoint;
    ZelSocketDir mDir;
    unique_fd mListenFd;
    unique_fd mEpollFd;
    unique_fd mWakeFd;  // readable once stopProcess() ran
    const ZelRuntimeDeadlines mDeadlines;
    ZelDeadlines mTimer;
    // The listener's pause while out of descriptors, in ms; 0 when accepting.
    std::atomic<int64_t> mAcceptPauseMs{0};

    mutable std::mutex mLock;  // guards the maps below and going online
    bool mOnline = false;
    uint64_t mNextId = 1;
    std::map<uint64_t, std::shared_ptr<Incoming>> mIncoming;
    struct ProxySlot {
        android::wp<android::BpBinder> ref;
        android::BpBinder* raw = nullptr;  // identifies the proxy the slot was made for
    };
    std::map<std::pair<std::string, uint32_t>, ProxySlot> mProxies;
    // Every peer this process has had a proxy of, until its process is gone
    // and its last proxy with it.
    std::map<std::string, std::shared_ptr<ZelPeer>> mPeers;
    std::map<uint64_t, std::weak_ptr<ZelPeer>> mWatchedPeers;
    struct ExitWatch {
        unique_fd pidfd;
        pid_t pid = 0;
        std::set<std::string> endpoints;  // names the process used
    };
    std::map<uint64_t, ExitWatch> mExitWatches;
    std::map<pid_t, uint64_t> mExitWatchOf;  // pid -> id in mExitWatches
    android::sp<android::IServiceManager> mServiceManager;

    ZelExportTable mExports;

    std::mutex mPoolLock;  // guards spawning decisions
    std::atomic<bool> mPoolStarted{false};  // set under mPoolLock
    std::atomic<size_t> mMaxThreads;
    std::atomic<size_t> mSpawnedThreads{0};  // on-demand threads, bounded by mMaxThreads
    std::atomic<size_t> mPoolThreads{0};
    std::atomic<size_t> mIdleThreads{0};
    std::atomic<bool> mStopping{false};
};

}  // namespace zel::binder
