#include "ZelBinderRuntime.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <thread>
#include <vector>

#include <binder/IPCThreadState.h>

#include "ZelBinderLog.h"
#include "ZelDevicePath.h"
#include "ZelHostServiceManager.h"
#include "ZelProcess.h"

namespace zel::binder {

using android::BBinder;
using android::BpBinder;
using android::DEAD_OBJECT;
using android::FAILED_TRANSACTION;
using android::IBinder;
using android::IPCThreadState;
using android::NO_INIT;
using android::OK;
using android::Parcel;
using android::sp;

namespace {

// epoll data: what kind of source in the top byte, an id below.
enum Tag : uint64_t { kTagListener = 1, kTagWake = 2, kTagIncoming = 3, kTagPeer = 4, kTagExit = 5, kTagTimer = 6 };
constexpr int kTagShift = 56;
constexpr uint64_t kIdMask = (uint64_t{1} << kTagShift) - 1;
uint64_t makeTag(Tag tag, uint64_t id) { return (static_cast<uint64_t>(tag) << kTagShift) | id; }

constexpr size_t kDefaultMaxThreads = 15;
// A spawned pool thread leaves once, for this long, another thread has always
// been idle when it woke: its spare capacity went unused.
constexpr int kIdleExitMs = 2000;
using Clock = ZelDeadlines::Clock;
using Kind = ZelDeadlines::Kind;
constexpr Clock::time_point kNever = Clock::time_point::max();

bool makeDirectory(const std::string& path, mode_t mode) {
    return mkdir(path.c_str(), mode) == 0 || errno == EEXIST;
}

// Creates `dir` (mode 0700) and any missing parent (0755).
bool makeEndpointDirectory(const std::string& dir) {
    for (size_t slash = dir.find('/', 1); slash != std::string::npos; slash = dir.find('/', slash + 1)) {
        if (!makeDirectory(dir.substr(0, slash), 0755)) return false;
    }
    if (!makeDirectory(dir, 0700)) return false;
    struct stat st;
    return stat(dir.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// Removes the sockets of endpoints whose process has exited.
void sweepStaleEndpoints(const std::string& dir) {
    DIR* d = opendir(dir.c_str());
    if (d == nullptr) return;
    while (dirent* entry = readdir(d)) {
        const std::string name = entry->d_name;
        const pid_t pid = zelEndpointPid(name);
        if (pid != 0 && isValidZelEndpoint(name) && zelProcessGone(pid)) {
            unlink((dir + "/" + name).c_str());
        }
    }
    closedir(d);
}

// Endpoint sockets to unlink at exit, with the pid that made each: a child
// of fork() must not remove its parent's.
std::mutex gExitLock;
std::vector<std::pair<pid_t, std::string>>* gExitSockets = nullptr;

void unlinkSocketsAtExit() {
    std::lock_guard<std::mutex> guard(gExitLock);
    for (const auto& [pid, path] : *gExitSockets) {
        if (pid == getpid()) unlink(path.c_str());
    }
}

void unlinkAtExit(const std::string& path) {
    std::lock_guard<std::mutex> guard(gExitLock);
    if (gExitSockets == nullptr) {
        gExitSockets = new std::vector<std::pair<pid_t, std::string>>();
        atexit(unlinkSocketsAtExit);
    }
    gExitSockets->emplace_back(getpid(), path);
}

// True once the process behind `pidfd` has exited.
bool processExited(int pidfd) {
    pollfd exited{pidfd, POLLIN, 0};
    return poll(&exited, 1, 0) > 0;
}

}  // namespace

// A connection another process opened to this one. The thread that set
// `reading` owns the reader and the input deadline until it clears it.
struct ZelBinderRuntime::Incoming {
    uint64_t id = 0;
    unique_fd fd;
    pid_t pid = 0;
    uid_t uid = 0;
    ZelSendQueue out;
    ZelFrameReader reader;
    Clock::time_point inputDeadline = kNever;  // for the HELLO, or for the frame begun

    std::mutex lock;  // guards the fields below; taken before out's lock
    std::string endpoint;  // from HELLO; empty until then
    bool reading = false;
    bool paused = false;     // not read until its one-way calls drain
    bool replyOwed = false;  // a synchronous call of the caller runs
    bool closed = false;
    std::deque<Call> oneway;  // waiting behind the one-way call being run
    size_t onewayBytes = 0;
    bool onewayRunning = false;
};

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
      mMaxThreads(kDefaultMaxThreads) {}

status_t ZelBinderRuntime::ensureOnline() {
    std::lock_guard<std::mutex> guard(mLock);
    if (mOnline) return OK;
    const std::string dir = zelDevicePath("/dev/binder");
    if (!makeEndpointDirectory(dir) || !makeDirectory(dir + "/services", 0700)) {
        ZEL_BINDER_LOGE("cannot create %s: %s", dir.c_str(), strerror(errno));
        return NO_INIT;
    }
    mDir.path = dir;
    mDir.fd.reset(open(dir.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    sweepStaleEndpoints(dir);
    status_t status = zelListen(mDir, mEndpoint, &mListenFd);
    if (status != OK) {
        ZEL_BINDER_LOGE("cannot listen on %s/%s: %d", dir.c_str(), mEndpoint.c_str(), status);
        return NO_INIT;
    }
    mEpollFd.reset(epoll_create1(EPOLL_CLOEXEC));
    mWakeFd.reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    epoll_event listen{};
    listen.events = EPOLLIN | EPOLLONESHOT;
    listen.data.u64 = makeTag(kTagListener, 0);
    epoll_event wake{};
    wake.events = EPOLLIN;  // level-triggered: wakes every pool thread
    wake.data.u64 = makeTag(kTagWake, 0);
    if (mEpollFd.get() < 0 || mWakeFd.get() < 0 ||
        epoll_ctl(mEpollFd.get(), EPOLL_CTL_ADD, mListenFd.get(), &listen) != 0 ||
        epoll_ctl(mEpollFd.get(), EPOLL_CTL_ADD, mWakeFd.get(), &wake) != 0 ||
        mTimer.init(mEpollFd.get(), makeTag(kTagTimer, 0)) != OK) {
        ZEL_BINDER_LOGE("cannot set up the binder event loop: %s", strerror(errno));
        return NO_INIT;
    }
    unlinkAtExit(dir + "/" + mEndpoint);
    mOnline = true;
    return OK;
}

// ---- parcels and references ------------------------------------------------

status_t ZelBinderRuntime::flatten(const Parcel& parcel, const std::string& to, ZelFrame* frame) {
    if (parcel.mData.size() > kZelMaxPayload || parcel.mObjects.size() > kZelMaxObjects ||
        parcel.mFds.size() > kZelMaxFds) {
        return FAILED_TRANSACTION;
    }
    // The frame owns dups of the parcel's descriptors: it may wait to be
    // sent after the parcel is gone. Made first, so that nothing is exported
    // for a frame that cannot be made.
    frame->fds.clear();
    for (const Parcel::FileDescriptor& entry : parcel.mFds) {
        frame->fds.emplace_back(fcntl(entry.fd, F_DUPFD_CLOEXEC, 0));
        if (frame->fds.back().get() < 0) return FAILED_TRANSACTION;
    }
    frame->payload = parcel.mData;
    frame->objects.clear();
    frame->objects.reserve(parcel.mObjects.size());
    for (const sp<IBinder>& object : parcel.mObjects) {
        ZelObjectRef ref{mEndpoint, 0};  // handle 0 names nothing
        if (object == nullptr) {
        } else if (BBinder* local = object->localBinder()) {
            ref.handle = mExports.exportTo(sp<BBinder>(local), to);
        } else if (BpBinder* remote = object->remoteBinder()) {
            ref = ZelObjectRef{remote->endpoint(), remote->handle()};
        }
        frame->objects.push_back(std::move(ref));
    }
    return OK;
}

void ZelBinderRuntime::unflatten(ZelFrame&& frame, const std::string& from, Parcel* parcel) {
    parcel->releaseFds();
    for (unique_fd& fd : frame.fds) parcel->mFds.push_back(Parcel::FileDescriptor{fd.release(), true});
    parcel->mData = std::move(frame.payload);
    parcel->mDataPos = 0;
    parcel->mObjects.clear();
    parcel->mObjects.reserve(frame.objects.size());
    for (const ZelObjectRef& ref : frame.objects) {
        if (ref.endpoint == mEndpoint) {
            parcel->mObjects.push_back(mExports.lookup(ref.handle));
        } else {
            // The sender counted a transfer only for objects it owns.
            parcel->mObjects.push_back(proxyFor(ref.endpoint, ref.handle, ref.endpoint == from ? 1 : 0));
        }
    }
}

sp<BpBinder> ZelBinderRuntime::proxyFor(const std::string& endpoint, uint32_t handle,
                                        uint32_t acknowledged) {
    sp<BpBinder> proxy;
    std::shared_ptr<ZelPeer> peer;
    bool created = false;
    {
        std::lock_guard<std::mutex> guard(mLock);
        ProxySlot& slot = mProxies[{endpoint, handle}];
        proxy = slot.ref.promote();
        if (proxy == nullptr) {
            std::shared_ptr<ZelPeer>& shared = mPeers[endpoint];
            if (shared == nullptr) shared = std::make_shared<ZelPeer>(*this, endpoint, mNextId++);
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
    if (created || acknowledged > 0) peer->sendRefs(handle, created ? 1 : 0, acknowledged);
    return proxy;
}

void ZelBinderRuntime::onProxyDestroyed(BpBinder* proxy) {
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

void ZelBinderRuntime::forgetPeerLocked(const std::shared_ptr<ZelPeer>& peer) {
    auto found = mPeers.find(peer->endpoint());
    if (found != mPeers.end() && found->second == peer) mPeers.erase(found);
}

void ZelBinderRuntime::onPeerDead(const std::shared_ptr<ZelPeer>& peer) {
    if (!peer->markDead()) return;
    const std::string& endpoint = peer->endpoint();
    std::vector<sp<BBinder>> released = mExports.dropEndpoint(endpoint);
    std::vector<sp<BpBinder>> dying;
    {
        std::lock_guard<std::mutex> guard(mLock);
        mWatchedPeers.erase(peer->id());
        if (peer->mProxyCount == 0) forgetPeerLocked(peer);
        for (auto it = mProxies.lower_bound({endpoint, 0});
             it != mProxies.end() && it->first.first == endpoint; ++it) {
            if (it->second.raw == nullptr || it->second.raw->mPeer != peer) continue;
            if (sp<BpBinder> proxy = it->second.ref.promote()) dying.push_back(std::move(proxy));
        }
    }
    for (const sp<BpBinder>& proxy : dying) proxy->sendObituary();
}

void ZelBinderRuntime::watchPeer(const std::shared_ptr<ZelPeer>& peer, int fd) {
    {
        std::lock_guard<std::mutex> guard(mLock);
        mWatchedPeers[peer->id()] = peer;
    }
    // Not for input: replies on this connection are read by their callers.
    epoll_event ev{};
    ev.events = EPOLLRDHUP | EPOLLONESHOT;
    ev.data.u64 = makeTag(kTagPeer, peer->id());
    epoll_ctl(mEpollFd.get(), EPOLL_CTL_ADD, fd, &ev);
}

void ZelBinderRuntime::armPeer(uint64_t peerId, int fd, bool writable) {
    epoll_event ev{};
    ev.events = EPOLLRDHUP | EPOLLONESHOT | (writable ? static_cast<uint32_t>(EPOLLOUT) : 0u);
    ev.data.u64 = makeTag(kTagPeer, peerId);
    epoll_ctl(mEpollFd.get(), EPOLL_CTL_MOD, fd, &ev);
}

void ZelBinderRuntime::setSendDeadline(uint64_t peerId, Clock::time_point when) {
    mTimer.set({peerId, Kind::OUTPUT}, when);
}

void ZelBinderRuntime::watchExit(const std::string& endpoint, pid_t pid) {
    if (pid <= 0) return;
    bool overBound = false;
    {
        std::lock_guard<std::mutex> guard(mLock);
        auto of = mExitWatchOf.find(pid);
        if (of != mExitWatchOf.end()) {
            ExitWatch& watch = mExitWatches.at(of->second);
            if (!processExited(watch.pidfd.get())) {  // the same process: its one pidfd
                overBound = watch.endpoints.count(endpoint) == 0 &&
                            watch.endpoints.size() >= kZelMaxEndpointsPerProcess;
                if (!overBound) {
                    watch.endpoints.insert(endpoint);
                    return;
                }
            } else {
                mExitWatchOf.erase(of);  // an earlier process of that pid; its exit is on its way
            }
        }
    }
    if (overBound) return onEndpointGone(endpoint);
    unique_fd pidfd(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
    if (pidfd.get() < 0) {
        if (errno == ESRCH) onEndpointGone(endpoint);
        return;
    }
    std::lock_guard<std::mutex> guard(mLock);
    auto of = mExitWatchOf.find(pid);
    if (of != mExitWatchOf.end()) {  // made meanwhile by another thread
        mExitWatches.at(of->second).endpoints.insert(endpoint);
        return;
    }
    const uint64_t id = mNextId++;
    epoll_event ev{};
    ev.events = EPOLLIN | EPOLLONESHOT;
    ev.data.u64 = makeTag(kTagExit, id);
    if (epoll_ctl(mEpollFd.get(), EPOLL_CTL_ADD, pidfd.get(), &ev) != 0) return;
    mExitWatchOf[pid] = id;
    mExitWatches[id] = ExitWatch{std::move(pidfd), pid, {endpoint}};
}

void ZelBinderRuntime::onEndpointGone(const std::string& endpoint) {
    std::vector<sp<BBinder>> released = mExports.dropEndpoint(endpoint);
    std::shared_ptr<ZelPeer> peer;
    {
        std::lock_guard<std::mutex> guard(mLock);
        auto found = mPeers.find(endpoint);
        if (found != mPeers.end()) peer = found->second;
    }
    if (peer != nullptr) onPeerDead(peer);
}

uint32_t ZelBinderRuntime::pinService(const sp<BBinder>& service) { return mExports.pin(service); }

sp<BBinder> ZelBinderRuntime::localObject(uint32_t handle) const { return mExports.lookup(handle); }

sp<android::IServiceManager> ZelBinderRuntime::serviceManager() {
    if (ensureOnline() != OK) return nullptr;
    std::lock_guard<std::mutex> guard(mLock);
    if (mServiceManager == nullptr) mServiceManager = new ZelHostServiceManager(*this);
    return mServiceManager;
}

// ---- thread pool -------------------------------------------------------------

void ZelBinderRuntime::startThreadPool() {
    {
        std::lock_guard<std::mutex> guard(mPoolLock);
        if (mPoolStarted) return;
        mPoolStarted = true;
    }
    spawnPooledThread(true);
}

void ZelBinderRuntime::spawnPooledThread(bool isMain) {
    if (ensureOnline() != OK) return;
    std::thread([this, isMain] { poolLoop(isMain, false); }).detach();
}

void ZelBinderRuntime::joinThreadPool(bool isMain) {
    if (ensureOnline() != OK) return;
    {
        std::lock_guard<std::mutex> guard(mPoolLock);
        mPoolStarted = true;
    }
    poolLoop(isMain, false);
}

void ZelBinderRuntime::stopProcess() {
    mStopping = true;
    if (mWakeFd.get() >= 0) {
        const uint64_t one = 1;
        (void)!write(mWakeFd.get(), &one, sizeof(one));
    }
}

status_t ZelBinderRuntime::setMaxThreads(size_t maxThreads) {
    if (maxThreads == 0) return android::BAD_VALUE;
    mMaxThreads = maxThreads;
    return OK;
}

void ZelBinderRuntime::spareThreadIfNeeded() {
    if (mIdleThreads.load() > 0) return;
    {
        std::lock_guard<std::mutex> guard(mPoolLock);
        if (!mPoolStarted || mStopping || mSpawnedThreads.load() >= mMaxThreads.load()) return;
        mSpawnedThreads += 1;
    }
    std::thread([this] { poolLoop(false, true); }).detach();
}

void ZelBinderRuntime::poolLoop(bool isMain, bool counted) {
    static std::atomic<int> sThreadNumber{0};
    char name[16];
    snprintf(name, sizeof(name), "binder:%d_%X", static_cast<int>(mPid), ++sThreadNumber);
    pthread_setname_np(pthread_self(), name);
    IPCThreadState::self();

    mPoolThreads += 1;
    // Timing out alone is not enough: a trickle of work (a memory report a
    // second) shared round-robin among the waiting threads would keep every
    // spawned thread from ever waiting its full time.
    auto neededAt = Clock::now();
    while (!mStopping) {
        mIdleThreads += 1;
        epoll_event ev;
        const int n = epoll_wait(mEpollFd.get(), &ev, 1, isMain ? -1 : kIdleExitMs);
        const size_t othersIdle = --mIdleThreads;
        if (mStopping) break;
        bool leave = false;
        if (!isMain) {
            const auto now = Clock::now();
            if (othersIdle == 0) {
                neededAt = now;
            } else {
                leave = now - neededAt >= std::chrono::milliseconds(kIdleExitMs);
            }
        }
        if (n > 0) dispatch(ev.data.u64, ev.events);
        if (leave) break;
    }
    mPoolThreads -= 1;
    if (counted) mSpawnedThreads -= 1;
}

void ZelBinderRuntime::dispatch(uint64_t tag, uint32_t events) {
    const uint64_t id = tag & kIdMask;
    switch (static_cast<Tag>(tag >> kTagShift)) {
        case kTagListener:
            acceptAll();
            return;
        case kTagWake:
            return;
        case kTagTimer:
            onTimer();
            return;
        case kTagIncoming: {
            const std::shared_ptr<Incoming> conn = incoming(id);
            if (conn == nullptr) return;
            if ((events & EPOLLOUT) != 0) flushIncoming(conn, false);
            if ((events & ~EPOLLOUT) != 0) {
                serveConnection(conn);
            } else {
                arm(conn);
            }
            return;
        }
        case kTagPeer: {
            std::shared_ptr<ZelPeer> peer;
            {
                std::lock_guard<std::mutex> guard(mLock);
                auto it = mWatchedPeers.find(id);
                if (it != mWatchedPeers.end()) peer = it->second.lock();
            }
            if (peer == nullptr) return;
            if ((events & (EPOLLRDHUP | EPOLLHUP | EPOLLERR)) != 0) {
                onPeerDead(peer);
            } else {
                peer->onWritable();
            }
            return;
        }
        case kTagExit: {
            std::set<std::string> endpoints;
            {
                std::lock_guard<std::mutex> guard(mLock);
                auto it = mExitWatches.find(id);
                if (it == mExitWatches.end()) return;
                endpoints = std::move(it->second.endpoints);
                auto of = mExitWatchOf.find(it->second.pid);
                if (of != mExitWatchOf.end() && of->second == id) mExitWatchOf.erase(of);
                mExitWatches.erase(it);  // closes the pidfd
            }
            for (const std::string& endpoint : endpoints) onEndpointGone(endpoint);
            return;
        }
    }
}

void ZelBinderRuntime::onTimer() {
    for (const ZelDeadlines::Key& key : mTimer.takeExpired()) {
        if (key.kind == Kind::ACCEPT) {
            armListener();
            continue;
        }
        if (const std::shared_ptr<Incoming> conn = incoming(key.id)) {
            if (key.kind == Kind::INPUT) {
                serveConnection(conn);
            } else {
                flushIncoming(conn, true);
            }
            continue;
        }
        std::shared_ptr<ZelPeer> peer;
        {
            std::lock_guard<std::mutex> guard(mLock);
            auto it = mWatchedPeers.find(key.id);
            if (it != mWatchedPeers.end()) peer = it->second.lock();
        }
        if (peer != nullptr) peer->onSendDeadline();
    }
}

// ---- incoming connections ------------------------------------------------------

std::shared_ptr<ZelBinderRuntime::Incoming> ZelBinderRuntime::incoming(uint64_t id) const {
    std::lock_guard<std::mutex> guard(mLock);
    auto it = mIncoming.find(id);
    return it != mIncoming.end() ? it->second : nullptr;
}

void ZelBinderRuntime::acceptAll() {
    for (;;) {
        const int fd = accept4(mListenFd.get(), nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) {
            if (errno == EINTR || errno == ECONNABORTED) continue;
            if (errno == EAGAIN || errno == EWOULDBLOCK) break;
            // Out of descriptors or memory: the listener stays readable, so
            // it is not armed again until a pause has passed.
            return pauseAccepting(errno);
        }
        if (mAcceptPauseMs.exchange(0) != 0) ZEL_BINDER_LOGI("accepting connections again");
        auto conn = std::make_shared<Incoming>();
        conn->fd.reset(fd);
        zelPeerCredentials(fd, &conn->pid, &conn->uid);
        conn->inputDeadline = Clock::now() + mDeadlines.hello;
        {
            std::lock_guard<std::mutex> guard(mLock);
            conn->id = mNextId++;
            mIncoming[conn->id] = conn;
        }
        mTimer.set({conn->id, Kind::INPUT}, conn->inputDeadline);
        epoll_event ev{};
        ev.events = EPOLLIN | EPOLLRDHUP | EPOLLONESHOT;
        ev.data.u64 = makeTag(kTagIncoming, conn->id);
        if (epoll_ctl(mEpollFd.get(), EPOLL_CTL_ADD, fd, &ev) != 0) closeIncoming(conn, "epoll");
    }
    armListener();
}

void ZelBinderRuntime::pauseAccepting(int error) {
    const int64_t last = mAcceptPauseMs.load();
    const int64_t pause = last == 0 ? kZelFirstAcceptPause.count() : std::min(2 * last, kZelLastAcceptPause.count());
    mAcceptPauseMs = pause;
    if (last == 0) {
        ZEL_BINDER_LOGE("cannot accept connections: %s; trying again at pauses of up to %lld ms", strerror(error),
                        static_cast<long long>(kZelLastAcceptPause.count()));
    }
    mTimer.set({0, Kind::ACCEPT}, Clock::now() + std::chrono::milliseconds(pause));
}

void ZelBinderRuntime::armListener() {
    epoll_event ev{};
    ev.events = EPOLLIN | EPOLLONESHOT;
    ev.data.u64 = makeTag(kTagListener, 0);
    epoll_ctl(mEpollFd.get(), EPOLL_CTL_MOD, mListenFd.get(), &ev);
}

void ZelBinderRuntime::arm(const std::shared_ptr<Incoming>& conn) {
    std::lock_guard<std::mutex> guard(conn->lock);
    if (conn->closed) return;
    epoll_event ev{};
    ev.events = EPOLLONESHOT;
    if (!conn->reading && !conn->paused) ev.events |= EPOLLIN | EPOLLRDHUP;
    if (conn->out.pending() > 0) ev.events |= EPOLLOUT;
    ev.data.u64 = makeTag(kTagIncoming, conn->id);
    epoll_ctl(mEpollFd.get(), EPOLL_CTL_MOD, conn->fd.get(), &ev);
}

void ZelBinderRuntime::closeIncoming(const std::shared_ptr<Incoming>& conn, const char* why) {
    {
        std::lock_guard<std::mutex> guard(mLock);
        if (mIncoming.erase(conn->id) == 0) return;
    }
    std::string endpoint;
    {
        std::lock_guard<std::mutex> guard(conn->lock);
        conn->closed = true;
        endpoint = conn->endpoint;
    }
    mTimer.clear(conn->id);
    epoll_ctl(mEpollFd.get(), EPOLL_CTL_DEL, conn->fd.get(), nullptr);
    shutdown(conn->fd.get(), SHUT_RDWR);
    if (why != nullptr) {
        ZEL_BINDER_LOGW("closing the connection from pid %d: %s", static_cast<int>(conn->pid), why);
    }
    if (!endpoint.empty()) watchExit(endpoint, conn->pid);
}

void ZelBinderRuntime::serveConnection(const std::shared_ptr<Incoming>& conn) {
    std::string endpoint;
    {
        std::lock_guard<std::mutex> guard(conn->lock);
        if (conn->reading || conn->paused || conn->closed) return;
        conn->reading = true;
        endpoint = conn->endpoint;
    }
    std::vector<ZelFrame> frames;
    const status_t status = conn->reader.readAvailable(conn->fd.get(), &frames);

    // Frames are taken in arrival order: references first resolved, one-way
    // calls queued, synchronous calls kept to run here.
    std::vector<Call> syncCalls;
    const char* fault = status == OK || status == DEAD_OBJECT ? nullptr : "malformed frame";
    for (ZelFrame& frame : frames) {
        if (endpoint.empty()) {
            const std::string named(frame.payload.begin(), frame.payload.end());
            if (frame.type != ZelFrameType::HELLO || !isValidZelEndpoint(named)) {
                fault = "no HELLO";
                break;
            }
            // An endpoint is named after the process that owns it; taking
            // another's would let this peer end it here.
            if (zelEndpointPid(named) != conn->pid) {
                fault = "HELLO names another process's endpoint";
                break;
            }
            endpoint = named;
            std::lock_guard<std::mutex> guard(conn->lock);
            conn->endpoint = endpoint;
            continue;
        }
        if (frame.type == ZelFrameType::REFS) {
            const sp<BBinder> released = mExports.applyRefs(
                    endpoint, frame.handle, static_cast<int32_t>(frame.code), frame.flags);
            continue;
        }
        if (frame.type != ZelFrameType::TRANSACTION) {
            fault = "unexpected frame type";
            break;
        }
        Call call;
        call.code = frame.code;
        call.flags = frame.flags;
        call.target = mExports.lookup(frame.handle);
        call.data = std::make_unique<Parcel>();
        unflatten(std::move(frame), endpoint, call.data.get());
        std::lock_guard<std::mutex> guard(conn->lock);
        if ((call.flags & kZelFlagOneway) != 0) {
            conn->onewayBytes += call.data->dataSize();
            conn->oneway.push_back(std::move(call));
            continue;
        }
        // One synchronous call at a time per connection, the reply taken
        // before the next: a caller's output is at most one reply.
        if (conn->replyOwed || conn->out.pending() > 0) {
            fault = "called again before taking its reply";
            break;
        }
        conn->replyOwed = true;
        syncCalls.push_back(std::move(call));
    }

    // The HELLO, and each frame from its first byte, must arrive in time.
    if (fault == nullptr && status == OK) {
        const bool named = !endpoint.empty();
        if (named && !conn->reader.midFrame()) {
            conn->inputDeadline = kNever;
        } else if (named && (!frames.empty() || conn->inputDeadline == kNever)) {
            conn->inputDeadline = Clock::now() + mDeadlines.frame;  // a frame begins
            mTimer.set({conn->id, Kind::INPUT}, conn->inputDeadline);
        } else if (Clock::now() >= conn->inputDeadline) {
            fault = named ? "frame not completed in time" : "no HELLO in time";
        }
    }

    bool drain = false;
    {
        std::lock_guard<std::mutex> guard(conn->lock);
        if (!conn->oneway.empty() && !conn->onewayRunning) {
            conn->onewayRunning = true;
            drain = true;
        }
        // A full queue stops reading the connection (and judging its
        // deadline) until it drains.
        conn->paused = conn->oneway.size() >= kZelMaxQueuedOneway || conn->onewayBytes >= kZelMaxQueuedOnewayBytes;
        if (conn->paused) conn->inputDeadline = kNever;
        conn->reading = false;
    }
    if (status != OK || fault != nullptr) {
        closeIncoming(conn, fault);
    } else {
        arm(conn);
    }
    if (drain || !syncCalls.empty()) spareThreadIfNeeded();
    // Earlier one-way calls of this caller go before its synchronous call.
    if (drain) drainOneway(conn, endpoint);
    for (Call& call : syncCalls) execute(conn, endpoint, std::move(call));
}

void ZelBinderRuntime::drainOneway(const std::shared_ptr<Incoming>& conn, const std::string& endpoint) {
    for (;;) {
        Call call;
        bool resume = false;
        {
            std::lock_guard<std::mutex> guard(conn->lock);
            if (conn->oneway.empty()) {
                conn->onewayRunning = false;
            } else {
                call = std::move(conn->oneway.front());
                conn->oneway.pop_front();
                conn->onewayBytes -= call.data->dataSize();
            }
            if (conn->paused && conn->oneway.size() < kZelMaxQueuedOneway / 2 &&
                conn->onewayBytes < kZelMaxQueuedOnewayBytes / 2) {
                conn->paused = false;
                resume = true;
            }
            if (!conn->onewayRunning && !resume) return;
        }
        if (resume) {
            arm(conn);
            // A frame begun before the pause is judged afresh.
            mTimer.set({conn->id, Kind::INPUT}, Clock::now());
        }
        if (call.data == nullptr) return;
        execute(conn, endpoint, std::move(call));
    }
}

void ZelBinderRuntime::execute(const std::shared_ptr<Incoming>& conn, const std::string& endpoint,
                               Call&& call) {
    Parcel reply;
    status_t status;
    {
        const Call done = std::move(call);  // arguments and target go before the reply is sent
        IPCThreadState* thread = IPCThreadState::self();
        const auto saved = thread->swapCallingIdentity({conn->pid, conn->uid});
        status = done.target != nullptr ? done.target->transact(done.code, *done.data, &reply, done.flags)
                                        : DEAD_OBJECT;
        thread->swapCallingIdentity(saved);
        if ((done.flags & kZelFlagOneway) != 0) return;
    }

    ZelFrame answer;
    answer.type = ZelFrameType::REPLY;
    answer.code = static_cast<uint32_t>(status);
    if (status == OK && flatten(reply, endpoint, &answer) != OK) {
        answer.code = static_cast<uint32_t>(FAILED_TRANSACTION);
        answer.payload.clear();
        answer.objects.clear();
        answer.fds.clear();
    }
    sendReply(conn, std::move(answer));
}

void ZelBinderRuntime::sendReply(const std::shared_ptr<Incoming>& conn, ZelFrame&& answer) {
    std::vector<uint8_t> bytes;
    if (encodeZelFrame(answer, &bytes) != OK) return closeIncoming(conn, "reply cannot be encoded");
    {
        std::lock_guard<std::mutex> guard(conn->lock);
        conn->replyOwed = false;  // the caller may call again once it has the reply
    }
    bool waiting = false;
    if (conn->out.push(conn->fd.get(), std::move(bytes), std::move(answer.fds), &waiting) != OK) {
        return closeIncoming(conn, nullptr);
    }
    if (!waiting) return;
    // The rest goes out when the caller reads; this thread is free.
    mTimer.set({conn->id, Kind::OUTPUT}, conn->out.lastProgress() + mDeadlines.send);
    arm(conn);
}

void ZelBinderRuntime::flushIncoming(const std::shared_ptr<Incoming>& conn, bool deadline) {
    bool waiting = false;
    if (conn->out.flush(conn->fd.get(), &waiting) != OK) return closeIncoming(conn, nullptr);
    if (!waiting || !deadline) return;
    const Clock::time_point due = conn->out.lastProgress() + mDeadlines.send;
    if (Clock::now() >= due) return closeIncoming(conn, "reply not taken in time");
    mTimer.set({conn->id, Kind::OUTPUT}, due);
}

ZelBinderStats ZelBinderRuntime::stats() const {
    ZelBinderStats stats;
    stats.exportedObjects = mExports.size();
    stats.poolThreads = mPoolThreads.load();
    std::lock_guard<std::mutex> guard(mLock);
    stats.endpoint = mOnline ? mEndpoint : std::string();
    stats.proxies = mProxies.size();
    stats.peers = mPeers.size();
    stats.incomingConnections = mIncoming.size();
    return stats;
}

ZelBinderStats zelBinderStats() { return ZelBinderRuntime::instance().stats(); }

}  // namespace zel::binder
