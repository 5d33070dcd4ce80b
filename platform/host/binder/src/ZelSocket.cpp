#include "ZelSocket.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>

namespace zel::binder {

using android::BAD_VALUE;
using android::DEAD_OBJECT;
using android::OK;

namespace {

bool makeAddress(const ZelSocketDir& dir, const std::string& name, sockaddr_un* addr,
                 socklen_t* len) {
    std::memset(addr, 0, sizeof(*addr));
    addr->sun_family = AF_UNIX;
    std::string path = dir.path + "/" + name;
    if (path.size() >= sizeof(addr->sun_path)) {
        path = "/proc/self/fd/" + std::to_string(dir.fd.get()) + "/" + name;
        if (path.size() >= sizeof(addr->sun_path)) return false;
    }
    std::memcpy(addr->sun_path, path.c_str(), path.size() + 1);
    *len = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size() + 1);
    return true;
}

}  // namespace

status_t zelListen(const ZelSocketDir& dir, const std::string& name, unique_fd* out) {
    sockaddr_un addr;
    socklen_t len;
    if (!makeAddress(dir, name, &addr, &len)) return BAD_VALUE;
    unique_fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (fd.get() < 0) return -errno;
    unlink((dir.path + "/" + name).c_str());
    if (bind(fd.get(), reinterpret_cast<sockaddr*>(&addr), len) != 0) return -errno;
    if (listen(fd.get(), SOMAXCONN) != 0) return -errno;
    *out = std::move(fd);
    return OK;
}

status_t zelConnect(const ZelSocketDir& dir, const std::string& name, unique_fd* out) {
    sockaddr_un addr;
    socklen_t len;
    if (!makeAddress(dir, name, &addr, &len)) return BAD_VALUE;
    unique_fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (fd.get() < 0) return -errno;
    if (connect(fd.get(), reinterpret_cast<sockaddr*>(&addr), len) != 0) return DEAD_OBJECT;
    const int flags = fcntl(fd.get(), F_GETFL);
    if (flags < 0 || fcntl(fd.get(), F_SETFL, flags & ~O_NONBLOCK) != 0) return -errno;
    *out = std::move(fd);
    return OK;
}

bool zelPeerCredentials(int fd, pid_t* pid, uid_t* uid) {
    ucred cred;
    socklen_t len = sizeof(cred);
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &len) != 0) return false;
    *pid = cred.pid;
    *uid = cred.uid;
    return true;
}

}  // namespace zel::binder
