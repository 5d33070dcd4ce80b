#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>

#include "zel/client/ZelClientError.h"
#include "zel/client/ZelReply.h"

namespace zel::client {

// Tells a client's replies apart (they carry no request identifier): a reply
// { T, canStart true, status 0 } for a token T that the client was told to
// wait for is that start's deferred approval; any other reply answers the one
// request in flight; a reply with no request in flight is kept as an approval
// (it can overtake the start reply that names its token). Thread-safe: replies
// come from binder threads, waits from the caller's.
class ZelReplyRouter {
public:
    using Clock = std::chrono::steady_clock;

    // The caller holds the client's request lock from begin to end.
    void beginRequest();
    ZelResult<ZelReply> awaitReply(Clock::time_point deadline);

    // After a start answered canStart false with a token and notify set.
    void expectApproval(int32_t token);
    ZelResult<ZelReply> awaitApproval(int32_t token, Clock::time_point deadline);
    void setApprovalListener(std::function<void(const ZelReply&)> listener);

    void onReply(const ZelReply& reply);
    // Every waiter gets kDied; approvals expected from the dead daemon are
    // forgotten.
    void onDaemonDied();

private:
    // Unclaimed approvals kept at most; the oldest token goes first.
    static constexpr size_t kMaxKeptApprovals = 256;

    std::mutex mLock;  // guards everything below
    std::condition_variable mChanged;
    bool mInFlight = false;
    std::optional<ZelReply> mReply;
    std::set<int32_t> mExpected;
    std::map<int32_t, ZelReply> mApproved;
    uint64_t mDeaths = 0;
    uint64_t mDeathsAtRequest = 0;
    std::function<void(const ZelReply&)> mApprovalListener;
};

}  // namespace zel::client
