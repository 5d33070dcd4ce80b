#pragma once

// What ends a process through std::terminate, in its log: the uncaught
// exception, and the incoming transaction the thread was serving (interface
// descriptor and code). Logged at the fatal level under the process's name as
// tag, as "ZelTerminateLog::<function>:<line> - <text>" like the daemon's own
// lines; then the handler it replaced ends the process as before (printing
// the exception, and abort).

#include <cstdint>

#include <utils/String16.h>

namespace zel::binder {

// Installs the handler, once per process (a child of fork() keeps it).
void zelInstallTerminateLog();

// The incoming transaction this thread runs, from zelBeginServing until
// zelEndServing. `descriptor` must outlive the call (it is the target's).
void zelBeginServing(const android::String16& descriptor, uint32_t code);
void zelEndServing();

}  // namespace zel::binder
