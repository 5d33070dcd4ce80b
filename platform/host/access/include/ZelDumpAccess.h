#pragma once

#include <unistd.h>

#include <binder/IPCThreadState.h>

// Whether the caller of the transaction served on this thread may read a
// dump. On the host only processes of the daemon's own uid may: the runtime
// knows the caller's uid from the socket's peer credentials.
inline bool zelCallerMayDump() {
    return android::IPCThreadState::self()->getCallingUid() == getuid();
}
