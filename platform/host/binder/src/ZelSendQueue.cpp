#include "ZelSendQueue.h"

#include <errno.h>
#include <sys/socket.h>

namespace zel::binder {

using android::DEAD_OBJECT;
using android::OK;
using android::status_t;

status_t ZelSendQueue::push(int fd, std::vector<uint8_t>&& bytes, bool* waiting) {
    std::lock_guard<std::mutex> guard(mLock);
    const bool wasEmpty = mFrames.empty();
    mBytes += bytes.size();
    mFrames.push_back(std::move(bytes));
    const status_t status = wasEmpty ? sendLocked(fd) : OK;
    if (wasEmpty && !mFrames.empty()) mLastProgress = Clock::now();  // waiting begins
    *waiting = !mFrames.empty();
    return status;
}

status_t ZelSendQueue::flush(int fd, bool* waiting) {
    std::lock_guard<std::mutex> guard(mLock);
    const status_t status = sendLocked(fd);
    *waiting = !mFrames.empty();
    return status;
}

size_t ZelSendQueue::pending() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mBytes;
}

ZelSendQueue::Clock::time_point ZelSendQueue::lastProgress() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mLastProgress;
}

status_t ZelSendQueue::sendLocked(int fd) {
    bool progressed = false;
    while (!mFrames.empty()) {
        const std::vector<uint8_t>& front = mFrames.front();
        const ssize_t n = send(fd, front.data() + mSent, front.size() - mSent, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (n < 0) {
            if (errno == EINTR) continue;
            if (errno == EAGAIN || errno == EWOULDBLOCK) break;
            mFrames.clear();
            mSent = mBytes = 0;
            return DEAD_OBJECT;
        }
        progressed = true;
        mSent += static_cast<size_t>(n);
        mBytes -= static_cast<size_t>(n);
        if (mSent == front.size()) {
            mFrames.pop_front();
            mSent = 0;
        }
    }
    if (progressed && !mFrames.empty()) mLastProgress = Clock::now();
    return OK;
}

}  // namespace zel::binder
