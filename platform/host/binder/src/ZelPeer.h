#pragma once

#include <sys/types.h>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <binder/Parcel.h>

#include "ZelFrameReader.h"
#include "ZelPeerHost.h"
#include "ZelSendQueue.h"
#include "ZelSocket.h"

namespace zel::binder {

// The outgoing side towards one other process (an endpoint): the
// connections this process opened to it, over which its proxies of that
// process's objects call and keep their references.
//
// The primary connection carries every one-way call and every reference
// update in order, so one-way calls from this process arrive in the order
// they were made; a synchronous call takes the primary connection when it is
// free and otherwise a spare one, and reads its own reply there: exactly one
// synchronous call is in flight on a connection. At most
// kZelMaxConnectionsToPeer are open at once (the peer refuses a process
// more than kZelMaxConnectionsPerProcess); a synchronous call beyond them
// waits until one is free. The primary connection is
// watched for hang-up, which is how the runtime learns that the process died.
//
// Nothing here waits on the peer while holding a lock. Connecting never
// waits. What a connection cannot take at once waits in its send queue: a
// synchronous caller waits (unlocked) for its request to go out, as it then
// waits for the reply; a one-way call or reference update leaves the rest to
// the pool threads, which send it when the primary connection is writable
// (without a pool, the caller sends it itself). A peer that takes none of
// what waits for it for the send deadline is treated as gone.
class ZelPeer : public std::enable_shared_from_this<ZelPeer> {
public:
    ZelPeer(ZelPeerHost& host, std::string endpoint, uint64_t id);
    ~ZelPeer();
    ZelPeer(const ZelPeer&) = delete;
    ZelPeer& operator=(const ZelPeer&) = delete;

    const std::string& endpoint() const { return mEndpoint; }
    uint64_t id() const { return mId; }
    bool isDead() const { return mDead.load(); }

    // Calls object `handle` of the peer. DEAD_OBJECT once the peer is gone.
    [[nodiscard]] status_t transact(uint32_t handle, uint32_t code, const android::Parcel& data,
                      android::Parcel* reply, uint32_t flags);
    // Sends a REFS frame for the peer's object `handle`; a peer that cannot
    // take it is gone.
    void sendRefs(uint32_t handle, int32_t holdDelta, uint32_t acknowledged);

    // Marks the peer dead and shuts its connections; true the first time.
    bool markDead();

    // Pool threads: the primary connection is writable again, or its send
    // deadline has come.
    void onWritable();
    void onSendDeadline();

    // Guarded by the proxy table's lock: proxies that use this peer.
    size_t mProxyCount = 0;

private:
    struct Connection {
        unique_fd fd;
        ZelSendQueue out;
        ZelFrameReader reader;  // used by the synchronous call that has the connection
        std::mutex armLock;     // orders the epoll updates of the primary; before out's and the timer's lock
    };

    // Opens a connection and introduces this process on it.
    [[nodiscard]] status_t openLocked(std::shared_ptr<Connection>* out);
    [[nodiscard]] status_t primaryLocked(std::shared_ptr<Connection>* out);
    [[nodiscard]] status_t primary(std::shared_ptr<Connection>* out);
    // The primary connection if one is open; opens none.
    std::shared_ptr<Connection> currentPrimary();
    // A connection for one synchronous call: the primary when free, else a
    // spare, else a new one; waits while as many as may be are in use.
    [[nodiscard]] status_t checkout(std::shared_ptr<Connection>* out);
    void checkin(const std::shared_ptr<Connection>& conn);
    // Sends `frame` on `conn`. With `mayLeave` (the primary, in a process
    // whose pool runs) what the socket does not take now is left to the pool.
    [[nodiscard]] status_t send(Connection& conn, ZelFrame&& frame, bool mayLeave);
    // Sends what waits on `conn`, waiting (unlocked) for it to be writable;
    // DEAD_OBJECT when it takes nothing for the send deadline.
    [[nodiscard]] status_t drain(Connection& conn);
    // Watches the primary for hang-up, and for room while bytes wait on it.
    void armPrimary(Connection& conn);
    // The peer is treated as gone (fail: because of `status`, returned).
    // Call without mLock.
    void gone();
    [[nodiscard]] status_t fail(status_t status);

    ZelPeerHost& mHost;
    const std::string mEndpoint;
    const uint64_t mId;
    std::atomic<bool> mDead{false};

    // Guards the connections below. May be held while taking the proxy
    // table's lock (watchPeer); never across a call that waits.
    std::mutex mLock;
    std::shared_ptr<Connection> mPrimary;
    bool mPrimaryBusy = false;  // a synchronous call is reading from the primary
    std::vector<std::shared_ptr<Connection>> mSpare;
    size_t mOpen = 0;  // the primary, the spares and those checked out
    std::condition_variable mReturned;  // a connection was checked in, or the peer died
};

}  // namespace zel::binder
