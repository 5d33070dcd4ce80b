#include "ZelPeer.h"

#include <poll.h>
#include <sys/socket.h>

#include "ZelBinderLog.h"
#include "ZelRuntimeLimits.h"

namespace zel::binder {

using android::DEAD_OBJECT;
using android::FAILED_TRANSACTION;
using android::OK;
using android::Parcel;

namespace {
// Idle spare connections kept per peer; more are closed when returned.
constexpr size_t kMaxSpareConnections = 2;
}  // namespace

ZelPeer::ZelPeer(ZelPeerHost& host, std::string endpoint, uint64_t id)
    : mHost(host), mEndpoint(std::move(endpoint)), mId(id) {}

ZelPeer::~ZelPeer() = default;

status_t ZelPeer::openLocked(std::shared_ptr<Connection>* out) {
    auto conn = std::make_shared<Connection>();
    const ZelPeerHost::Settings settings = mHost.peerSettings();
    if (zelConnect(settings.dir, mEndpoint, &conn->fd) != OK) return DEAD_OBJECT;
    ZelFrame hello;
    hello.type = ZelFrameType::HELLO;
    const std::string& self = settings.self;
    hello.payload.assign(self.begin(), self.end());
    std::vector<uint8_t> bytes;
    bool waiting = false;
    // A new connection takes a HELLO at once, or is broken.
    if (encodeZelFrame(hello, &bytes) != OK || conn->out.push(conn->fd.get(), std::move(bytes), {}, &waiting) != OK ||
        waiting) {
        return DEAD_OBJECT;
    }
    *out = std::move(conn);
    return OK;
}

status_t ZelPeer::primaryLocked(std::shared_ptr<Connection>* out) {
    if (mDead) return DEAD_OBJECT;
    if (mPrimary == nullptr) {
        status_t status = openLocked(&mPrimary);
        if (status != OK) return status;
        mOpen += 1;
        mHost.watchPeer(shared_from_this(), mPrimary->fd.get());
    }
    *out = mPrimary;
    return OK;
}

status_t ZelPeer::primary(std::shared_ptr<Connection>* out) {
    std::lock_guard<std::mutex> guard(mLock);
    return primaryLocked(out);
}

status_t ZelPeer::checkout(std::shared_ptr<Connection>* out) {
    std::unique_lock<std::mutex> lock(mLock);
    for (;;) {
        status_t status = primaryLocked(out);
        if (status != OK) return status;
        if (!mPrimaryBusy) {
            mPrimaryBusy = true;
            return OK;
        }
        if (!mSpare.empty()) {
            *out = std::move(mSpare.back());
            mSpare.pop_back();
            return OK;
        }
        if (mOpen < kZelMaxConnectionsToPeer) {
            status = openLocked(out);
            if (status == OK) mOpen += 1;
            return status;
        }
        // As many as this process opens to one peer are in use: the peer
        // would refuse more. One comes back when its call is answered.
        mReturned.wait(lock);
    }
}

void ZelPeer::checkin(const std::shared_ptr<Connection>& conn) {
    {
        std::lock_guard<std::mutex> guard(mLock);
        if (conn == mPrimary) {
            mPrimaryBusy = false;
        } else if (!mDead && mSpare.size() < kMaxSpareConnections) {
            mSpare.push_back(conn);
        } else {
            mOpen -= 1;  // closed with its last user
        }
    }
    mReturned.notify_one();
}

status_t ZelPeer::send(Connection& conn, ZelFrame&& frame, bool mayLeave) {
    std::vector<uint8_t> bytes;
    status_t status = encodeZelFrame(frame, &bytes);
    if (status != OK) return status;
    bool waiting = false;
    status = conn.out.push(conn.fd.get(), std::move(bytes), std::move(frame.fds), &waiting);
    if (status != OK || !waiting) return status;
    if (mayLeave && mHost.poolServing()) {
        armPrimary(conn);
        return OK;
    }
    return drain(conn);
}

status_t ZelPeer::drain(Connection& conn) {
    for (;;) {
        bool waiting = false;
        if (conn.out.flush(conn.fd.get(), &waiting) != OK) return DEAD_OBJECT;
        if (!waiting) return OK;
        const auto left = conn.out.lastProgress() + mHost.peerSettings().sendTimeout - ZelSendQueue::Clock::now();
        const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(left).count();
        if (ms <= 0) return DEAD_OBJECT;
        pollfd writable{conn.fd.get(), POLLOUT, 0};
        poll(&writable, 1, static_cast<int>(ms) + 1);
    }
}

void ZelPeer::armPrimary(Connection& conn) {
    std::lock_guard<std::mutex> guard(conn.armLock);
    mHost.armPeer(mId, conn.fd.get(), conn.out.pending() > 0,
                  conn.out.lastProgress() + mHost.peerSettings().sendTimeout);
}

std::shared_ptr<ZelPeer::Connection> ZelPeer::currentPrimary() {
    std::lock_guard<std::mutex> guard(mLock);
    return mPrimary;
}

void ZelPeer::onWritable() {
    const std::shared_ptr<Connection> conn = currentPrimary();
    if (conn == nullptr) return;
    bool waiting = false;
    if (conn->out.flush(conn->fd.get(), &waiting) != OK) return gone();
    armPrimary(*conn);
}

void ZelPeer::onSendDeadline() {
    const std::shared_ptr<Connection> conn = currentPrimary();
    if (conn == nullptr) return;
    bool waiting = false;
    if (conn->out.flush(conn->fd.get(), &waiting) == OK && !waiting) return;
    if (conn->out.lastProgress() + mHost.peerSettings().sendTimeout > ZelSendQueue::Clock::now()) {
        armPrimary(*conn);  // it took some since: a later deadline
        return;
    }
    ZEL_BINDER_LOGW("%s takes nothing of what is sent to it: treated as gone", mEndpoint.c_str());
    gone();
}

void ZelPeer::gone() { mHost.onPeerDead(shared_from_this()); }

status_t ZelPeer::fail(status_t status) {
    gone();
    return status;
}

status_t ZelPeer::transact(uint32_t handle, uint32_t code, const Parcel& data, Parcel* reply,
                           uint32_t flags) {
    if (mDead) return DEAD_OBJECT;
    if (data.dataSize() > kZelMaxPayload || data.objectsCount() > kZelMaxObjects) {
        return FAILED_TRANSACTION;
    }
    const bool oneway = (flags & kZelFlagOneway) != 0;
    ZelFrame frame;
    frame.type = ZelFrameType::TRANSACTION;
    frame.code = code;
    frame.flags = oneway ? kZelFlagOneway : 0;
    frame.handle = handle;

    std::shared_ptr<Connection> conn;
    if ((oneway ? primary(&conn) : checkout(&conn)) != OK) return fail(DEAD_OBJECT);
    // As on a device when the receiver's buffer is full: the call fails, the
    // peer stays.
    if (conn->out.pending() + data.dataSize() > kZelMaxPendingOutput) {
        if (!oneway) checkin(conn);
        return FAILED_TRANSACTION;
    }
    // A frame that cannot be made (descriptors that cannot be duplicated)
    // exports nothing and leaves the peer alone. Objects are exported only
    // once the frame is sure to be sent; if the send fails the peer is dead
    // and its pending transfers are dropped.
    status_t status = mHost.flatten(data, mEndpoint, &frame);
    if (status == OK && send(*conn, std::move(frame), oneway) != OK) status = fail(DEAD_OBJECT);
    if (status != OK) {
        if (!oneway) checkin(conn);
        return status;
    }
    if (oneway) return OK;

    ZelFrame answer;
    status = conn->reader.readOne(conn->fd.get(), &answer);
    checkin(conn);
    if (status != OK || answer.type != ZelFrameType::REPLY) return fail(DEAD_OBJECT);
    const auto result = static_cast<status_t>(answer.code);
    if (reply != nullptr) {
        mHost.unflatten(std::move(answer), mEndpoint, reply);
    } else if (!answer.objects.empty()) {
        // Acknowledge references the caller does not want.
        Parcel discarded;
        mHost.unflatten(std::move(answer), mEndpoint, &discarded);
    }
    return result;
}

void ZelPeer::sendRefs(uint32_t handle, int32_t holdDelta, uint32_t acknowledged) {
    ZelFrame frame;
    frame.type = ZelFrameType::REFS;
    frame.code = static_cast<uint32_t>(holdDelta);
    frame.flags = acknowledged;
    frame.handle = handle;
    std::shared_ptr<Connection> conn;
    if (primary(&conn) != OK || send(*conn, std::move(frame), true) != OK) gone();
}

bool ZelPeer::markDead() {
    std::lock_guard<std::mutex> guard(mLock);
    if (mDead.exchange(true)) return false;
    // Wake any thread blocked on a reply; the descriptors close with the
    // last user of each connection.
    if (mPrimary != nullptr) shutdown(mPrimary->fd.get(), SHUT_RDWR);
    for (const auto& conn : mSpare) shutdown(conn->fd.get(), SHUT_RDWR);
    mPrimary.reset();
    mSpare.clear();
    mReturned.notify_all();  // callers waiting for a connection: the peer is gone
    return true;
}

}  // namespace zel::binder
