#pragma once

// Socket plumbing of the host binder runtime: endpoints are SOCK_STREAM Unix
// sockets named after the process endpoint inside the runtime's directory.

#include <sys/types.h>

#include <string>

#include <android-base/unique_fd.h>
#include <utils/Errors.h>

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
[[nodiscard]] status_t zelListen(const ZelSocketDir& dir, const std::string& name, unique_fd* out);
// Connects to the endpoint `name` without waiting: DEAD_OBJECT when nobody
// listens there or its listen queue is full (a process that accepts nothing
// is as good as gone). The socket blocks on reads; every send of the
// runtime passes MSG_DONTWAIT.
[[nodiscard]] status_t zelConnect(const ZelSocketDir& dir, const std::string& name, unique_fd* out);

// Peer credentials of a connected socket.
[[nodiscard]] bool zelPeerCredentials(int fd, pid_t* pid, uid_t* uid);

}  // namespace zel::binder
