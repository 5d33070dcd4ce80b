#include "ZelIncomingConnections.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include <deque>

#include <binder/IPCThreadState.h>

#include "ZelBinderLog.h"
#include "ZelFrameReader.h"
#include "ZelProcess.h"
#include "ZelSendQueue.h"
#include "ZelSocket.h"
#include "ZelTerminateLog.h"

namespace zel::binder {

using android::BBinder;
using android::DEAD_OBJECT;
using android::FAILED_TRANSACTION;
using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;
using Clock = ZelDeadlines::Clock;
using Kind = ZelDeadlines::Kind;

namespace {
constexpr Clock::time_point kNever = Clock::time_point::max();
}  // namespace

// A transaction as read: its target and arguments are resolved while the
// connection is still read in order, so a later REFS frame from the same
// caller cannot release an object the call refers to.
struct ZelIncomingConnections::Call {
    uint32_t code = 0;
    uint32_t flags = 0;
    sp<BBinder> target;
    std::unique_ptr<Parcel> data;
};

// One accepted connection. The thread that set `reading` owns the reader and
// the input deadline until it clears it.
struct ZelIncomingConnections::Connection {
    uint64_t id = 0;
    android::base::unique_fd fd;
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

ZelIncomingConnections::ZelIncomingConnections(ZelThreadPool& pool, ZelDeadlines& timer, ZelExportTable& exports,
                                               ZelParcelFrames& frames, ZelExitWatch& exits,
                                               const ZelRuntimeDeadlines& deadlines, std::atomic<uint64_t>& ids)
    : mPool(pool), mTimer(timer), mExports(exports), mFrames(frames), mExits(exits), mDeadlines(deadlines), mIds(ids) {}

std::shared_ptr<ZelIncomingConnections::Connection> ZelIncomingConnections::find(uint64_t id) const {
    std::lock_guard<std::mutex> guard(mLock);
    auto it = mConnections.find(id);
    return it != mConnections.end() ? it->second : nullptr;
}

size_t ZelIncomingConnections::size() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mConnections.size();
}

void ZelIncomingConnections::adopt(android::base::unique_fd fd) {
    auto conn = std::make_shared<Connection>();
    conn->fd = std::move(fd);
    // A connection whose credentials cannot be read counts as pid 0's.
    (void)zelPeerCredentials(conn->fd.get(), &conn->pid, &conn->uid);
    conn->inputDeadline = Clock::now() + mDeadlines.hello;
    conn->id = mIds++;
    bool refused = false;
    bool firstRefusal = false;
    {
        std::lock_guard<std::mutex> guard(mLock);
        size_t& open = mOpenBy[conn->pid];
        refused = open >= kZelMaxConnectionsPerProcess;
        if (refused) {
            firstRefusal = mRefused.insert(conn->pid).second;
        } else {
            open += 1;
            mConnections[conn->id] = conn;
        }
    }
    // The newest is refused rather than an older one closed: the end of an
    // older one can tell its process that this one is gone, and its one-way
    // calls keep their order only on the one they began on.
    if (refused) {
        if (firstRefusal) {
            ZEL_BINDER_LOGW("pid %d has %zu connections open, as many as one process may: refusing more",
                            static_cast<int>(conn->pid), kZelMaxConnectionsPerProcess);
        }
        return;
    }
    mTimer.set({conn->id, Kind::INPUT}, conn->inputDeadline);
    if (!mPool.add(conn->fd.get(), EPOLLIN | EPOLLRDHUP | EPOLLONESHOT, ZelSource::INCOMING, conn->id)) {
        close(conn, "epoll");
    }
}

void ZelIncomingConnections::onEvent(uint64_t id, uint32_t events) {
    const std::shared_ptr<Connection> conn = find(id);
    if (conn == nullptr) return;
    if ((events & EPOLLOUT) != 0) flush(conn, false);
    if ((events & ~EPOLLOUT) != 0) {
        serve(conn);
    } else {
        arm(conn);
    }
}

bool ZelIncomingConnections::onDeadline(uint64_t id, Kind kind) {
    const std::shared_ptr<Connection> conn = find(id);
    if (conn == nullptr) return false;
    if (kind == Kind::INPUT) {
        serve(conn);
    } else {
        flush(conn, true);
    }
    return true;
}

void ZelIncomingConnections::arm(const std::shared_ptr<Connection>& conn) {
    std::lock_guard<std::mutex> guard(conn->lock);
    if (conn->closed) return;
    uint32_t events = EPOLLONESHOT;
    if (!conn->reading && !conn->paused) events |= EPOLLIN | EPOLLRDHUP;
    if (conn->out.pending() > 0) events |= EPOLLOUT;
    mPool.modify(conn->fd.get(), events, ZelSource::INCOMING, conn->id);
}

void ZelIncomingConnections::close(const std::shared_ptr<Connection>& conn, const char* why) {
    {
        std::lock_guard<std::mutex> guard(mLock);
        if (mConnections.erase(conn->id) == 0) return;
        auto open = mOpenBy.find(conn->pid);
        if (--open->second == 0) {
            mOpenBy.erase(open);
            mRefused.erase(conn->pid);
        }
    }
    std::string endpoint;
    {
        std::lock_guard<std::mutex> guard(conn->lock);
        conn->closed = true;
        endpoint = conn->endpoint;
    }
    mTimer.clear(conn->id);
    mPool.remove(conn->fd.get());
    shutdown(conn->fd.get(), SHUT_RDWR);
    if (why != nullptr) {
        ZEL_BINDER_LOGW("closing the connection from pid %d: %s", static_cast<int>(conn->pid), why);
    }
    if (!endpoint.empty()) mExits.watch(endpoint, conn->pid);
}

void ZelIncomingConnections::serve(const std::shared_ptr<Connection>& conn) {
    std::string endpoint;
    {
        std::lock_guard<std::mutex> guard(conn->lock);
        if (conn->reading || conn->paused || conn->closed) return;
        conn->reading = true;
        endpoint = conn->endpoint;
    }
    std::vector<ZelFrame> frames;
    const status_t status = conn->reader.readAvailable(conn->fd.get(), &frames);
    // Frames before a malformed one are still taken.
    const char* fault = status == OK || status == DEAD_OBJECT ? nullptr : "malformed frame";
    std::vector<Call> syncCalls;
    if (const char* frameFault = takeFrames(*conn, frames, &endpoint, &syncCalls)) fault = frameFault;
    if (fault == nullptr && status == OK) fault = judgeInput(*conn, !endpoint.empty(), !frames.empty());

    const bool drain = endRead(*conn);
    if (status != OK || fault != nullptr) {
        close(conn, fault);
    } else {
        arm(conn);
    }
    if (drain || !syncCalls.empty()) mPool.spareThreadIfNeeded();
    // Earlier one-way calls of this caller go before its synchronous call.
    if (drain) drainOneway(conn, endpoint);
    for (Call& call : syncCalls) execute(conn, endpoint, std::move(call));
}

const char* ZelIncomingConnections::takeFrames(Connection& conn, std::vector<ZelFrame>& frames,
                                               std::string* endpoint, std::vector<Call>* syncCalls) {
    for (ZelFrame& frame : frames) {
        if (endpoint->empty()) {
            const std::string named(frame.payload.begin(), frame.payload.end());
            if (frame.type != ZelFrameType::HELLO || !isValidZelEndpoint(named)) return "no HELLO";
            // An endpoint is named after the process that owns it; taking
            // another's would let this peer end it here.
            if (zelEndpointPid(named) != conn.pid) return "HELLO names another process's endpoint";
            *endpoint = named;
            std::lock_guard<std::mutex> guard(conn.lock);
            conn.endpoint = named;
            continue;
        }
        if (frame.type == ZelFrameType::REFS) {
            // Dropped here, outside every lock, if nothing holds it any more.
            const sp<BBinder> released =
                    mExports.applyRefs(*endpoint, frame.handle, static_cast<int32_t>(frame.code), frame.flags);
            continue;
        }
        if (frame.type != ZelFrameType::TRANSACTION) return "unexpected frame type";
        Call call;
        call.code = frame.code;
        call.flags = frame.flags;
        call.target = mExports.lookup(frame.handle);
        call.data = std::make_unique<Parcel>();
        mFrames.unflatten(std::move(frame), *endpoint, call.data.get());
        std::lock_guard<std::mutex> guard(conn.lock);
        if ((call.flags & kZelFlagOneway) != 0) {
            conn.onewayBytes += call.data->dataSize();
            conn.oneway.push_back(std::move(call));
            continue;
        }
        // One synchronous call at a time per connection, the reply taken
        // before the next: a caller's output is at most one reply.
        if (conn.replyOwed || conn.out.pending() > 0) return "called again before taking its reply";
        conn.replyOwed = true;
        syncCalls->push_back(std::move(call));
    }
    return nullptr;
}

const char* ZelIncomingConnections::judgeInput(Connection& conn, bool named, bool framesRead) {
    if (named && !conn.reader.midFrame()) {
        conn.inputDeadline = kNever;
    } else if (named && (framesRead || conn.inputDeadline == kNever)) {
        conn.inputDeadline = Clock::now() + mDeadlines.frame;  // a frame begins
        mTimer.set({conn.id, Kind::INPUT}, conn.inputDeadline);
    } else if (Clock::now() >= conn.inputDeadline) {
        return named ? "frame not completed in time" : "no HELLO in time";
    }
    return nullptr;
}

bool ZelIncomingConnections::endRead(Connection& conn) {
    std::lock_guard<std::mutex> guard(conn.lock);
    bool drain = false;
    if (!conn.oneway.empty() && !conn.onewayRunning) {
        conn.onewayRunning = true;
        drain = true;
    }
    // A full queue stops reading the connection (and judging its deadline)
    // until it drains.
    conn.paused = conn.oneway.size() >= kZelMaxQueuedOneway || conn.onewayBytes >= kZelMaxQueuedOnewayBytes;
    if (conn.paused) conn.inputDeadline = kNever;
    conn.reading = false;
    return drain;
}

void ZelIncomingConnections::drainOneway(const std::shared_ptr<Connection>& conn, const std::string& endpoint) {
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

void ZelIncomingConnections::execute(const std::shared_ptr<Connection>& conn, const std::string& endpoint,
                                     Call&& call) {
    Parcel reply;
    status_t status;
    {
        const Call done = std::move(call);  // arguments and target go before the reply is sent
        android::IPCThreadState* thread = android::IPCThreadState::self();
        const auto saved = thread->swapCallingIdentity({conn->pid, conn->uid});
        status = DEAD_OBJECT;
        if (done.target != nullptr) {
            // Named in the log if the call ends the process.
            zelBeginServing(done.target->getInterfaceDescriptor(), done.code);
            status = done.target->transact(done.code, *done.data, &reply, done.flags);
            zelEndServing();
        }
        thread->swapCallingIdentity(saved);
        if ((done.flags & kZelFlagOneway) != 0) return;
    }

    ZelFrame answer;
    answer.type = ZelFrameType::REPLY;
    answer.code = static_cast<uint32_t>(status);
    if (status == OK && mFrames.flatten(reply, endpoint, &answer) != OK) {
        answer.code = static_cast<uint32_t>(FAILED_TRANSACTION);
        answer.payload.clear();
        answer.objects.clear();
        answer.fds.clear();
    }
    sendReply(conn, std::move(answer));
}

void ZelIncomingConnections::sendReply(const std::shared_ptr<Connection>& conn, ZelFrame&& answer) {
    std::vector<uint8_t> bytes;
    if (encodeZelFrame(answer, &bytes) != OK) return close(conn, "reply cannot be encoded");
    {
        std::lock_guard<std::mutex> guard(conn->lock);
        conn->replyOwed = false;  // the caller may call again once it has the reply
    }
    bool waiting = false;
    if (conn->out.push(conn->fd.get(), std::move(bytes), std::move(answer.fds), &waiting) != OK) {
        return close(conn, nullptr);
    }
    if (!waiting) return;
    // The rest goes out when the caller reads; this thread is free.
    mTimer.set({conn->id, Kind::OUTPUT}, conn->out.lastProgress() + mDeadlines.send);
    arm(conn);
}

void ZelIncomingConnections::flush(const std::shared_ptr<Connection>& conn, bool deadline) {
    bool waiting = false;
    if (conn->out.flush(conn->fd.get(), &waiting) != OK) return close(conn, nullptr);
    if (!waiting || !deadline) return;
    const Clock::time_point due = conn->out.lastProgress() + mDeadlines.send;
    if (Clock::now() >= due) return close(conn, "reply not taken in time");
    mTimer.set({conn->id, Kind::OUTPUT}, due);
}

}  // namespace zel::binder
