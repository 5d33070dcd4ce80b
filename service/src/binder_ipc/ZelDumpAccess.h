#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <binder/IPCThreadState.h>

// Who may read the services' dumps: root, system and shell (dumpsys from adb
// and from dumpstate), and the daemon's own uid. The rule looks at the
// calling uid alone and asks no other service, so a dump answers at once
// whatever runs beside the daemon: the platform's permission check would wait
// for the "permission" service (for good before system_server is up, or when
// SELinux hides it) and hold a binder thread all that time.
inline bool zelUidMayDump(uid_t caller, uid_t self) {
    constexpr uid_t kRootUid = 0;       // AID_ROOT
    constexpr uid_t kSystemUid = 1000;  // AID_SYSTEM
    constexpr uid_t kShellUid = 2000;   // AID_SHELL
    return caller == kRootUid || caller == kSystemUid || caller == kShellUid || caller == self;
}

// The rule for the caller of the transaction served on this thread.
inline bool zelCallerMayDump() {
    return zelUidMayDump(android::IPCThreadState::self()->getCallingUid(), getuid());
}
