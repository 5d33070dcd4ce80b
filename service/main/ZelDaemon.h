#pragma once

#include "ZelDaemonParts.h"

// The daemon's fixed start-up and shut-down sequence, over the parts it is
// given: the process entry (main.cpp) gives it the real ones, tests give it
// stand-ins.
namespace ZelDaemon {

// 0 after an orderly stop, 1 after any start-up failure (logged).
int run(ZelDaemonParts& parts);

}  // namespace ZelDaemon
