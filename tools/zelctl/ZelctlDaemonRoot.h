#pragma once

#include <string>

// Whether this process can reach a daemon under the device root, decided from
// the file system before the binder runtime is touched: the runtime creates
// $ZELD_ROOT/dev/binder when it is missing (so a mistyped root would get one)
// and reports each socket it cannot make when the directory is another
// user's. A client must neither create the daemon's root nor flood.
enum class ZelctlDaemonRoot {
    kReachable,  // the binder directory is there and this process may use it
    kMissing,    // no binder directory: no daemon has run under this root
    kDenied,     // this user may not use the binder directory
};

// `detail` gets the binder directory and, unless reachable, the reason.
ZelctlDaemonRoot zelctlDaemonRoot(std::string* detail);
