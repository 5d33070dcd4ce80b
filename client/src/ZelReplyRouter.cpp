#include "ZelReplyRouter.h"

#include <utility>

namespace zel::client {

void ZelReplyRouter::beginRequest() {
    std::lock_guard<std::mutex> guard(mLock);
    mInFlight = true;
    mReply.reset();
    mDeathsAtRequest = mDeaths;
}

ZelResult<ZelReply> ZelReplyRouter::awaitReply(Clock::time_point deadline) {
    std::unique_lock<std::mutex> lock(mLock);
    const bool settled = mChanged.wait_until(
            lock, deadline, [this] { return mReply.has_value() || mDeaths != mDeathsAtRequest; });
    mInFlight = false;
    if (mReply.has_value()) return *std::exchange(mReply, std::nullopt);
    return settled ? ZelClientError::kDied : ZelClientError::kTimedOut;
}

void ZelReplyRouter::expectApproval(int32_t token) {
    std::lock_guard<std::mutex> guard(mLock);
    if (mApproved.count(token) == 0) mExpected.insert(token);
}

ZelResult<ZelReply> ZelReplyRouter::awaitApproval(int32_t token, Clock::time_point deadline) {
    std::unique_lock<std::mutex> lock(mLock);
    const uint64_t deaths = mDeaths;
    const bool settled = mChanged.wait_until(
            lock, deadline, [&] { return mApproved.count(token) != 0 || mDeaths != deaths; });
    auto it = mApproved.find(token);
    if (it != mApproved.end()) {
        const ZelReply approval = it->second;
        mApproved.erase(it);
        return approval;
    }
    return settled ? ZelClientError::kDied : ZelClientError::kTimedOut;
}

void ZelReplyRouter::setApprovalListener(std::function<void(const ZelReply&)> listener) {
    std::lock_guard<std::mutex> guard(mLock);
    mApprovalListener = std::move(listener);
}

void ZelReplyRouter::onReply(const ZelReply& reply) {
    std::function<void(const ZelReply&)> listener;
    {
        std::lock_guard<std::mutex> guard(mLock);
        const bool approvalShape = reply.canStart && reply.status == 0;
        const bool expected = approvalShape && mExpected.erase(reply.token) != 0;
        if (!expected && mInFlight && !mReply.has_value()) {
            mReply = reply;
        } else if (approvalShape) {
            if (mApproved.size() >= kMaxKeptApprovals) mApproved.erase(mApproved.begin());
            mApproved[reply.token] = reply;
            listener = mApprovalListener;
        } else {
            return;  // nothing asked for it
        }
        mChanged.notify_all();
    }
    if (listener) listener(reply);
}

void ZelReplyRouter::onDaemonDied() {
    std::lock_guard<std::mutex> guard(mLock);
    ++mDeaths;
    mExpected.clear();
    mChanged.notify_all();
}

}  // namespace zel::client
