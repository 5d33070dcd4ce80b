#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <mutex>
#include <vector>

#include <android-base/unique_fd.h>
#include <utils/Errors.h>

namespace zel::binder {

// What one connection still has to send, frame after frame. Sending never
// blocks: the bytes a socket does not take at once wait here, in order, and
// go out on a later flush, when the connection is writable again (whoever
// owns the connection watches for that). A frame's descriptors go with its
// first byte; until then the queue owns them.
class ZelSendQueue {
public:
    using Clock = std::chrono::steady_clock;

    // Sends `bytes` (a whole frame) and its descriptors after whatever
    // waits: OK when they went out or now wait, DEAD_OBJECT when the
    // connection broke. `*waiting` tells whether anything waits afterwards.
    [[nodiscard]] android::status_t push(int fd, std::vector<uint8_t>&& bytes, std::vector<android::base::unique_fd>&& fds,
                           bool* waiting);
    // Sends what waits, as far as the socket takes it.
    [[nodiscard]] android::status_t flush(int fd, bool* waiting);
    // Bytes waiting.
    size_t pending() const;
    // The last time the peer took some of the waiting bytes (or when they
    // began to wait).
    Clock::time_point lastProgress() const;

private:
    struct Frame {
        std::vector<uint8_t> bytes;
        std::vector<android::base::unique_fd> fds;  // until its first byte is sent
    };
    [[nodiscard]] android::status_t sendLocked(int fd);

    mutable std::mutex mLock;  // leaf lock; guards the fields below
    std::deque<Frame> mFrames;
    size_t mSent = 0;   // bytes of the first entry already sent
    size_t mBytes = 0;  // bytes waiting in all
    Clock::time_point mLastProgress;
};

}  // namespace zel::binder
