#include "ZelSendQueue.h"

#include <errno.h>
#include <sys/socket.h>

#include <cstring>

#include "zel/binder/ZelWireFrame.h"

namespace zel::binder {

using android::DEAD_OBJECT;
using android::OK;
using android::status_t;

namespace {
// Sends from `data` with `fds` as SCM_RIGHTS, without waiting.
ssize_t sendWithFds(int fd, const uint8_t* data, size_t len, const std::vector<android::base::unique_fd>& fds) {
    iovec bytes{const_cast<uint8_t*>(data), len};
    alignas(cmsghdr) uint8_t control[CMSG_SPACE(sizeof(int) * kZelMaxFds)];
    msghdr msg{};
    msg.msg_iov = &bytes;
    msg.msg_iovlen = 1;
    msg.msg_control = control;
    msg.msg_controllen = CMSG_SPACE(sizeof(int) * fds.size());
    cmsghdr* c = CMSG_FIRSTHDR(&msg);
    c->cmsg_level = SOL_SOCKET;
    c->cmsg_type = SCM_RIGHTS;
    c->cmsg_len = CMSG_LEN(sizeof(int) * fds.size());
    for (size_t i = 0; i < fds.size(); ++i) {
        const int raw = fds[i].get();
        std::memcpy(CMSG_DATA(c) + i * sizeof(int), &raw, sizeof(int));
    }
    return sendmsg(fd, &msg, MSG_DONTWAIT | MSG_NOSIGNAL);
}
}  // namespace

status_t ZelSendQueue::push(int fd, std::vector<uint8_t>&& bytes, std::vector<android::base::unique_fd>&& fds,
                            bool* waiting) {
    std::lock_guard<std::mutex> guard(mLock);
    const bool wasEmpty = mFrames.empty();
    mBytes += bytes.size();
    mFrames.push_back(Frame{std::move(bytes), std::move(fds)});
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
        Frame& front = mFrames.front();
        const uint8_t* data = front.bytes.data() + mSent;
        const size_t len = front.bytes.size() - mSent;
        const ssize_t n = front.fds.empty() ? send(fd, data, len, MSG_DONTWAIT | MSG_NOSIGNAL)
                                            : sendWithFds(fd, data, len, front.fds);
        if (n < 0) {
            if (errno == EINTR) continue;
            if (errno == EAGAIN || errno == EWOULDBLOCK) break;
            mFrames.clear();
            mSent = mBytes = 0;
            return DEAD_OBJECT;
        }
        progressed = true;
        front.fds.clear();  // the receiver has its own now
        mSent += static_cast<size_t>(n);
        mBytes -= static_cast<size_t>(n);
        if (mSent == front.bytes.size()) {
            mFrames.pop_front();
            mSent = 0;
        }
    }
    if (progressed && !mFrames.empty()) mLastProgress = Clock::now();
    return OK;
}

}  // namespace zel::binder
