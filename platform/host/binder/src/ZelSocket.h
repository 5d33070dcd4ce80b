#pragma once

// Socket plumbing of the host binder runtime: endpoints are SOCK_STREAM Unix
// sockets named after the process endpoint inside the runtime's directory.

#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

#include <android-base/unique_fd.h>
#include <utils/Errors.h>

#include "zel/binder/ZelWireFrame.h"

namespace zel::binder {

using android::base::unique_fd;
using android::status_t;

// The directory that holds the endpoints; `fd` is kept open so a socket
// path too long for sockaddr_un can be reached through /proc/self/fd.
struct ZelSocketDir {
    std::string path;
    unique_fd fd;
};

// Binds a listening socket for `name` (non-blocking, close-on-exec).
status_t zelListen(const ZelSocketDir& dir, const std::string& name, unique_fd* out);
// Connects to the endpoint `name`; DEAD_OBJECT when nobody listens there.
status_t zelConnect(const ZelSocketDir& dir, const std::string& name, unique_fd* out);

// Writes all of `len` bytes; DEAD_OBJECT when the peer is gone.
status_t zelWriteAll(int fd, const void* data, size_t len);
// Encodes and writes one frame.
status_t zelWriteFrame(int fd, const ZelFrame& frame);
// Reads frames from one stream socket through one buffer: a single recv
// usually brings a whole frame, or several; the start of a frame waits in
// the buffer for the rest. Not thread-safe: one reader at a time.
class ZelFrameReader {
public:
    // One recv without blocking; complete frames are appended to `out`, in
    // order. OK while the stream is good (maybe with no new frame),
    // DEAD_OBJECT at an end of stream between frames, BAD_VALUE for a
    // malformed frame or an end of stream inside one. Frames before the
    // fault are still appended.
    status_t readAvailable(int fd, std::vector<ZelFrame>* out);
    // Blocks until a whole frame is there.
    status_t readOne(int fd, ZelFrame* out);

private:
    status_t fill(int fd, int flags);
    // Takes the first frame out of the buffer when it is complete.
    status_t take(ZelFrame* out, bool* taken);

    std::unique_ptr<uint8_t[]> mBuffer;
    size_t mCapacity = 0;
    size_t mBegin = 0;  // first unread byte
    size_t mEnd = 0;    // end of the bytes received
};

// Peer credentials of a connected socket.
bool zelPeerCredentials(int fd, pid_t* pid, uid_t* uid);

}  // namespace zel::binder
