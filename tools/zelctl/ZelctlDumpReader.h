#pragma once

#include <string>

#include <binder/IBinder.h>

// Reads a service's dump as dumpsys does: the dump call writes into a pipe
// that the calling thread drains meanwhile, so a dump larger than the pipe's
// buffer still completes. The call's status; `text` holds what was written.
android::status_t zelctlReadDump(const android::sp<android::IBinder>& service, bool json,
                                 std::string* text);
