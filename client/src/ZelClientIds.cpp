#include "ZelClientIds.h"

#include <unistd.h>

#include "zel/client/ZelClient.h"

namespace zel::client {

namespace {

constexpr uint32_t kBase = static_cast<uint32_t>(kClientIdPidBase);
static_assert(kBase + ((ZelClientIdPool::kSize - 1) << ZelClientIdPool::kPidBits) +
                              ((1u << ZelClientIdPool::kPidBits) - 1) <= 0x7fffffffu,
              "every pooled identifier is a positive 32-bit value");

}  // namespace

int32_t ZelClientIdPool::acquire() {
    std::lock_guard<std::mutex> guard(mLock);
    for (size_t sequence = 0; sequence < kSize; ++sequence) {
        if (mInUse[sequence]) continue;
        mInUse[sequence] = true;
        const uint32_t pid = static_cast<uint32_t>(getpid());
        return static_cast<int32_t>(kBase + (static_cast<uint32_t>(sequence) << kPidBits) + pid);
    }
    return 0;
}

void ZelClientIdPool::release(int32_t id) {
    const size_t sequence = (static_cast<uint32_t>(id) - kBase) >> kPidBits;
    std::lock_guard<std::mutex> guard(mLock);
    if (sequence < kSize) mInUse[sequence] = false;
}

// Never destroyed: a connection held by a static object may go after them.
ZelClientIdPool& zelRequestClientIds() {
    static ZelClientIdPool* const pool = new ZelClientIdPool();
    return *pool;
}

ZelClientIdPool& zelEventParticipantIds() {
    static ZelClientIdPool* const pool = new ZelClientIdPool();
    return *pool;
}

ZelClientIdLease::ZelClientIdLease(ZelClientIdPool& pool, int32_t requested)
    : mPool(requested == 0 ? &pool : nullptr), mId(requested == 0 ? pool.acquire() : requested) {}

ZelClientIdLease::~ZelClientIdLease() {
    if (mPool != nullptr && mId != 0) mPool->release(mId);
}

}  // namespace zel::client
