#include "ZelFrameReader.h"

#include <errno.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>

namespace zel::binder {

using android::BAD_VALUE;
using android::DEAD_OBJECT;
using android::OK;
using android::status_t;

namespace {
// Room asked of each recv at least; a buffer larger than kShrinkAbove is
// given back once it is empty.
constexpr size_t kReadChunk = 4096;
constexpr size_t kShrinkAbove = 64 * 1024;
}  // namespace

status_t ZelFrameReader::fill(int fd, int flags) {
    const size_t held = mEnd - mBegin;
    size_t frameSize = kZelFrameHeaderSize;  // of the frame begun, once its header is in
    if (held >= kZelFrameHeaderSize) {
        ZelFrameHeader header;
        if (decodeZelFrameHeader(mBuffer.get() + mBegin, &header) != OK) return BAD_VALUE;
        frameSize += header.bodySize;
    }
    // Room for a chunk, or for as much again as arrived, never past the end
    // of the frame begun: a large frame is read in a few doublings.
    const size_t lacking = frameSize > held ? frameSize - held : 0;
    const size_t room = std::max(kReadChunk, std::min(lacking, held));
    if (mCapacity - mEnd < room) {
        if (mBegin > 0) {
            std::memmove(mBuffer.get(), mBuffer.get() + mBegin, held);
            mBegin = 0;
            mEnd = held;
        }
        if (mCapacity - mEnd < room) {
            std::unique_ptr<uint8_t[]> bigger(new uint8_t[mEnd + room]);
            if (mEnd > 0) std::memcpy(bigger.get(), mBuffer.get(), mEnd);
            mBuffer = std::move(bigger);
            mCapacity = mEnd + room;
        }
    }
    for (;;) {
        iovec room{mBuffer.get() + mEnd, mCapacity - mEnd};
        alignas(cmsghdr) uint8_t control[CMSG_SPACE(sizeof(int) * kZelMaxFds)];
        msghdr msg{};
        msg.msg_iov = &room;
        msg.msg_iovlen = 1;
        msg.msg_control = control;
        msg.msg_controllen = sizeof(control);
        const ssize_t n = recvmsg(fd, &msg, flags | MSG_CMSG_CLOEXEC);
        if (n > 0 && msg.msg_controllen > 0) {
            for (cmsghdr* c = CMSG_FIRSTHDR(&msg); c != nullptr; c = CMSG_NXTHDR(&msg, c)) {
                if (c->cmsg_level != SOL_SOCKET || c->cmsg_type != SCM_RIGHTS) continue;
                const size_t count = (c->cmsg_len - CMSG_LEN(0)) / sizeof(int);
                for (size_t i = 0; i < count; ++i) {
                    int received;
                    std::memcpy(&received, CMSG_DATA(c) + i * sizeof(int), sizeof(int));
                    mFds.emplace_back(received);
                }
            }
        }
        if (n > 0) {
            mEnd += static_cast<size_t>(n);
            // Descriptors the kernel dropped, or more than one frame can claim.
            if ((msg.msg_flags & MSG_CTRUNC) != 0 || mFds.size() > kZelMaxFds) return BAD_VALUE;
            return OK;
        }
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return android::WOULD_BLOCK;
        return mEnd > mBegin ? BAD_VALUE : DEAD_OBJECT;
    }
}

status_t ZelFrameReader::take(ZelFrame* out, bool* taken) {
    *taken = false;
    const size_t held = mEnd - mBegin;
    if (held < kZelFrameHeaderSize) return OK;
    ZelFrameHeader header;
    if (decodeZelFrameHeader(mBuffer.get() + mBegin, &header) != OK) return BAD_VALUE;
    const size_t size = kZelFrameHeaderSize + header.bodySize;
    if (held < size) return OK;
    // The frame's descriptors came with its first byte.
    if (header.fdCount > mFds.size()) return BAD_VALUE;
    status_t status = decodeZelFrameBody(header, mBuffer.get() + mBegin + kZelFrameHeaderSize,
                                         header.bodySize, out);
    if (status != OK) return status;
    for (uint32_t i = 0; i < header.fdCount; ++i) {
        out->fds.push_back(std::move(mFds.front()));
        mFds.pop_front();
    }
    *taken = true;
    mBegin += size;
    if (mBegin == mEnd) {
        if (!mFds.empty()) return BAD_VALUE;  // no frame left to claim them
        mBegin = mEnd = 0;
        if (mCapacity > kShrinkAbove) {
            mBuffer.reset();
            mCapacity = 0;
        }
    }
    return OK;
}

status_t ZelFrameReader::readAvailable(int fd, std::vector<ZelFrame>* out) {
    status_t status = fill(fd, MSG_DONTWAIT);
    if (status == android::WOULD_BLOCK) status = OK;  // woken with nothing to read
    for (;;) {
        ZelFrame frame;
        bool taken = false;
        const status_t parsed = take(&frame, &taken);
        if (parsed != OK) return parsed;
        if (!taken) return status;
        out->push_back(std::move(frame));
    }
}

status_t ZelFrameReader::readOne(int fd, ZelFrame* out) {
    for (;;) {
        bool taken = false;
        status_t status = take(out, &taken);
        if (status != OK || taken) return status;
        status = fill(fd, 0);
        if (status == android::WOULD_BLOCK) return android::TIMED_OUT;
        if (status != OK) return status;
    }
}

}  // namespace zel::binder
