#include "ZelBinderRuntime.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <cstring>
#include <vector>

#include "ZelBinderLog.h"
#include "ZelDevicePath.h"
#include "ZelEndpointDirectory.h"
#include "ZelProcess.h"
#include "ZelTerminateLog.h"

namespace zel::binder {

using android::BBinder;
using android::NO_INIT;
using android::OK;
using android::sp;

ZelBinderRuntime& ZelBinderRuntime::instance() {
    static std::mutex* lock = new std::mutex();
    static ZelBinderRuntime* runtime = nullptr;
    std::lock_guard<std::mutex> guard(*lock);
    // After fork() the parent's runtime stays behind untouched: its threads
    // do not exist here.
    if (runtime == nullptr || runtime->mPid != getpid()) runtime = new ZelBinderRuntime();
    return *runtime;
}

ZelBinderRuntime::ZelBinderRuntime()
    : mPid(getpid()),
      mEndpoint(zelNewEndpointName()),
      mDeadlines(ZelRuntimeDeadlines::fromEnvironment()),
      mPool(mPid),
      mProxies(*this, mIds),
      mFrames(mEndpoint, mExports, mProxies),
      mExits(mPool, mIds, [this](const std::string& endpoint) { onEndpointGone(endpoint); }),
      mIncoming(mPool, mTimer, mExports, mFrames, mExits, mDeadlines, mIds),
      mListener(mPool, mTimer, mIncoming) {
    // A process that serves binder says which call ended it, if one does.
    zelInstallTerminateLog();
}

status_t ZelBinderRuntime::ensureOnline() {
    std::lock_guard<std::mutex> guard(mLock);
    if (mOnline) return OK;
    const std::string dir = zelDevicePath("/dev/binder");
    if (!zelMakeEndpointDirectory(dir)) {
        ZEL_BINDER_LOGE("cannot create %s: %s", dir.c_str(), strerror(errno));
        return NO_INIT;
    }
    mDir.path = dir;
    mDir.fd.reset(open(dir.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    zelSweepStaleEndpoints(dir);
    const auto dispatch = [this](ZelSource source, uint64_t id, uint32_t events) { this->dispatch(source, id, events); };
    if (mPool.init(dispatch) != OK || mTimer.init(mPool.epollFd(), ZelThreadPool::tag(ZelSource::TIMER, 0)) != OK) {
        ZEL_BINDER_LOGE("cannot set up the binder event loop: %s", strerror(errno));
        return NO_INIT;
    }
    const status_t status = mListener.listen(mDir, mEndpoint);
    if (status != OK) {
        ZEL_BINDER_LOGE("cannot listen on %s/%s: %d", dir.c_str(), mEndpoint.c_str(), status);
        return NO_INIT;
    }
    zelUnlinkAtExit(dir + "/" + mEndpoint);
    mOnline = true;
    return OK;
}

void ZelBinderRuntime::dispatch(ZelSource source, uint64_t id, uint32_t events) {
    switch (source) {
        case ZelSource::LISTENER:
            return mListener.acceptAll();
        case ZelSource::TIMER:
            return onTimer();
        case ZelSource::INCOMING:
            return mIncoming.onEvent(id, events);
        case ZelSource::PEER:
            if (const std::shared_ptr<ZelPeer> peer = mProxies.watched(id)) {
                if ((events & (EPOLLRDHUP | EPOLLHUP | EPOLLERR)) != 0) return onPeerDead(peer);
                peer->onWritable();
            }
            return;
        case ZelSource::EXIT:
            return mExits.onExit(id);
        case ZelSource::WAKE:
            return;
    }
}

void ZelBinderRuntime::onTimer() {
    for (const ZelDeadlines::Key& key : mTimer.takeExpired()) {
        if (key.kind == ZelDeadlines::Kind::ACCEPT) {
            mListener.resume();
        } else if (!mIncoming.onDeadline(key.id, key.kind)) {
            if (const std::shared_ptr<ZelPeer> peer = mProxies.watched(key.id)) peer->onSendDeadline();
        }
    }
}

// ---- peers -------------------------------------------------------------------

void ZelBinderRuntime::watchPeer(const std::shared_ptr<ZelPeer>& peer, int fd) {
    mProxies.watch(peer);
    // Not for input: replies on this connection are read by their callers.
    // Without the watch the peer's death shows at its next call.
    (void)mPool.add(fd, EPOLLRDHUP | EPOLLONESHOT, ZelSource::PEER, peer->id());
}

void ZelBinderRuntime::armPeer(uint64_t peerId, int fd, bool writable, ZelDeadlines::Clock::time_point deadline) {
    mPool.modify(fd, EPOLLRDHUP | EPOLLONESHOT | (writable ? static_cast<uint32_t>(EPOLLOUT) : 0u), ZelSource::PEER,
                 peerId);
    // The send deadline prompts the peer to look whether its bytes still move.
    if (writable) mTimer.set({peerId, ZelDeadlines::Kind::OUTPUT}, deadline);
}

void ZelBinderRuntime::onPeerDead(const std::shared_ptr<ZelPeer>& peer) {
    if (!peer->markDead()) return;
    // Dropped last, outside every lock.
    const std::vector<sp<BBinder>> released = mExports.dropEndpoint(peer->endpoint());
    mProxies.onPeerDead(peer);
}

void ZelBinderRuntime::onEndpointGone(const std::string& endpoint) {
    const std::vector<sp<BBinder>> released = mExports.dropEndpoint(endpoint);
    if (const std::shared_ptr<ZelPeer> peer = mProxies.peerOf(endpoint)) onPeerDead(peer);
}

// ---- thread pool -------------------------------------------------------------

void ZelBinderRuntime::startThreadPool() {
    if (mPool.markStarted()) spawnPooledThread(true);
}

void ZelBinderRuntime::spawnPooledThread(bool isMain) {
    if (ensureOnline() == OK) mPool.spawn(isMain);
}

void ZelBinderRuntime::joinThreadPool(bool isMain) {
    if (ensureOnline() == OK) mPool.join(isMain);
}

ZelBinderStats ZelBinderRuntime::stats() const {
    ZelBinderStats stats;
    stats.exportedObjects = mExports.size();
    stats.poolThreads = mPool.threads();
    stats.proxies = mProxies.proxies();
    stats.peers = mProxies.peers();
    stats.incomingConnections = mIncoming.size();
    std::lock_guard<std::mutex> guard(mLock);
    stats.endpoint = mOnline ? mEndpoint : std::string();
    return stats;
}

ZelBinderStats zelBinderStats() { return ZelBinderRuntime::instance().stats(); }

}  // namespace zel::binder
