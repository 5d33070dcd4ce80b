#pragma once

#include <binder/IServiceManager.h>
#include <utils/String16.h>

// Whether the caller of the transaction served on this thread may read a
// dump: on the device, the callers the platform grants the dump permission.
inline bool zelCallerMayDump() {
    static const android::String16 kDumpPermission("android.permission.DUMP");
    return android::checkCallingPermission(kDumpPermission);
}
