#pragma once

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <mutex>

namespace zel::client {

// The identifiers that one process's connections to one of the daemon's
// services register under when the caller names none. The first is
// kClientIdPidBase + the process id, unique among running processes; each
// further live connection adds a sequence number in the bits above the
// largest process id (pid_max is at most 2^22), so that no two connections
// share one, in one process or in two. An identifier goes back to the pool
// when its connection is gone, never earlier. Thread-safe.
class ZelClientIdPool {
public:
    static constexpr int kPidBits = 22;
    // Sequence numbers that fit between the process id and kClientIdPidBase's
    // bit: every identifier stays a positive 32-bit value.
    static constexpr size_t kSize = 256;

    // The free identifier with the lowest sequence number; 0 when kSize live
    // connections of this process hold one each.
    int32_t acquire();
    // Gives back an identifier that acquire() returned.
    void release(int32_t id);

private:
    std::mutex mLock;  // a leaf: guards mInUse
    std::bitset<kSize> mInUse;
};

// One pool per service: the daemon keeps request clients and event
// participants in separate registries, so a client and a participant of one
// process may share an identifier.
ZelClientIdPool& zelRequestClientIds();
ZelClientIdPool& zelEventParticipantIds();

// The identifier one connection holds for its lifetime: the caller's own
// (`requested` non-zero, not pooled), or one of `pool`'s, given back when the
// lease goes. id() is 0 when the pool had none left.
class ZelClientIdLease {
public:
    ZelClientIdLease(ZelClientIdPool& pool, int32_t requested);
    ~ZelClientIdLease();
    ZelClientIdLease(const ZelClientIdLease&) = delete;
    ZelClientIdLease& operator=(const ZelClientIdLease&) = delete;

    int32_t id() const { return mId; }

private:
    ZelClientIdPool* const mPool;  // null for the caller's own identifier
    const int32_t mId;
};

}  // namespace zel::client
