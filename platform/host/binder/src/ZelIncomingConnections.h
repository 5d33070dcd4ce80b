#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include <android-base/unique_fd.h>

#include "ZelDeadlines.h"
#include "ZelExitWatch.h"
#include "ZelExportTable.h"
#include "ZelParcelFrames.h"
#include "ZelRuntimeLimits.h"
#include "ZelThreadPool.h"

namespace zel::binder {

// The connections other processes opened to this one, from accepting them
// to closing them. A connection must say HELLO, for an endpoint of its own
// process, within the hello deadline, and complete every frame within the
// frame deadline; one pool thread at a time reads it and takes every
// complete frame of that read in order: references are applied, one-way
// calls queued (run one after the other, in arrival order; a full queue
// stops the reading), a synchronous call run by that thread, which then
// sends the reply without blocking (a reply the caller does not take waits
// on its connection, and the connection is closed when it takes none of it
// for the send deadline). One process may have at most
// kZelMaxConnectionsPerProcess connections open, counted by its pid; one
// beyond them is closed at once, logged once while that process has any.
//
// Locks: the table's (mLock) is a leaf; a connection's lock comes before its
// send queue's and the timer's.
class ZelIncomingConnections {
public:
    ZelIncomingConnections(ZelThreadPool& pool, ZelDeadlines& timer, ZelExportTable& exports,
                           ZelParcelFrames& frames, ZelExitWatch& exits, const ZelRuntimeDeadlines& deadlines,
                           std::atomic<uint64_t>& ids);

    // A connection just accepted; closed at once when its process has as
    // many as it may.
    void adopt(android::base::unique_fd fd);
    // Pool threads: the connection `id` is readable, writable or hung up.
    void onEvent(uint64_t id, uint32_t events);
    // A deadline of the connection `id` has come; false when there is no
    // such connection.
    bool onDeadline(uint64_t id, ZelDeadlines::Kind kind);

    size_t size() const;

private:
    struct Connection;
    struct Call;

    std::shared_ptr<Connection> find(uint64_t id) const;
    // Reads and takes the connection's frames, unless another thread is at
    // it or it is paused; judges its input deadline.
    void serve(const std::shared_ptr<Connection>& conn);
    // Takes the frames read, in arrival order: the HELLO names the caller,
    // references are applied, one-way calls queued, synchronous calls kept
    // to run. The fault that ends the connection, or null.
    const char* takeFrames(Connection& conn, std::vector<ZelFrame>& frames, std::string* endpoint,
                           std::vector<Call>* syncCalls);
    // The HELLO, and each frame from its first byte, must arrive in time.
    const char* judgeInput(Connection& conn, bool named, bool framesRead);
    // Ends a read: pauses a connection whose one-way queue is full; true
    // when this thread is to run the queue.
    bool endRead(Connection& conn);
    // Runs the connection's queued one-way calls, in order, until none is left.
    void drainOneway(const std::shared_ptr<Connection>& conn, const std::string& endpoint);
    void execute(const std::shared_ptr<Connection>& conn, const std::string& endpoint, Call&& call);
    void sendReply(const std::shared_ptr<Connection>& conn, ZelFrame&& answer);
    // Sends what waits on the connection; on its send deadline, gives it up
    // when it took nothing for that long.
    void flush(const std::shared_ptr<Connection>& conn, bool deadline);
    // Sets the connection's epoll interest from its state.
    void arm(const std::shared_ptr<Connection>& conn);
    void close(const std::shared_ptr<Connection>& conn, const char* why);

    ZelThreadPool& mPool;
    ZelDeadlines& mTimer;
    ZelExportTable& mExports;
    ZelParcelFrames& mFrames;
    ZelExitWatch& mExits;
    const ZelRuntimeDeadlines& mDeadlines;
    std::atomic<uint64_t>& mIds;

    mutable std::mutex mLock;  // leaf lock; guards the maps below
    std::map<uint64_t, std::shared_ptr<Connection>> mConnections;
    std::map<pid_t, size_t> mOpenBy;  // connections in mConnections, by process
    std::set<pid_t> mRefused;          // processes refused (and logged) while they have some
};

}  // namespace zel::binder
