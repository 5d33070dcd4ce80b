#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

#include <android-base/unique_fd.h>

#include <utils/Errors.h>

#include "zel/binder/ZelWireFrame.h"

namespace zel::binder {

// Reads frames from one stream socket through one buffer: a single recv
// usually brings a whole frame, or several; the start of a frame waits in
// the buffer for the rest. The buffer grows with what arrives, never ahead
// of it: a header announcing a large body costs nothing until the body
// comes. Descriptors arrive with the first byte of their frame and wait in
// arrival order until the frame is complete; each frame takes its own. Not
// thread-safe: one reader at a time.
class ZelFrameReader {
public:
    // One recv without blocking; complete frames are appended to `out`, in
    // order. OK while the stream is good (maybe with no new frame),
    // DEAD_OBJECT at an end of stream between frames, BAD_VALUE for a
    // malformed frame, an end of stream inside one, or descriptors that
    // were lost or that no frame claims. Frames before the fault are still
    // appended.
    [[nodiscard]] android::status_t readAvailable(int fd, std::vector<ZelFrame>* out);
    // Blocks until a whole frame is there.
    [[nodiscard]] android::status_t readOne(int fd, ZelFrame* out);
    // True while the buffer holds the start of a frame.
    bool midFrame() const { return mEnd > mBegin; }

private:
    [[nodiscard]] android::status_t fill(int fd, int flags);
    // Takes the first frame out of the buffer when it is complete.
    [[nodiscard]] android::status_t take(ZelFrame* out, bool* taken);

    std::unique_ptr<uint8_t[]> mBuffer;
    size_t mCapacity = 0;
    size_t mBegin = 0;  // first unread byte
    size_t mEnd = 0;    // end of the bytes received
    std::deque<android::base::unique_fd> mFds;  // received, not yet taken by a frame
};

}  // namespace zel::binder
