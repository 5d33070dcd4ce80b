#include "ZelctlDaemonRoot.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "ZelDevicePath.h"

ZelctlDaemonRoot zelctlDaemonRoot(std::string* detail) {
    const std::string binder = zelDevicePath("/dev/binder");
    *detail = binder;
    // The runtime lists, creates and connects to sockets in it.
    if (access(binder.c_str(), R_OK | W_OK | X_OK) == 0) return ZelctlDaemonRoot::kReachable;
    const int error = errno;
    *detail += std::string(": ") + strerror(error);
    return error == ENOENT || error == ENOTDIR ? ZelctlDaemonRoot::kMissing
                                               : ZelctlDaemonRoot::kDenied;
}
