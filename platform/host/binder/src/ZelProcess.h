#pragma once

#include <sys/types.h>

#include <string>

namespace zel::binder {

// True when `pid` has exited (gone, or a zombie not yet reaped).
bool zelProcessGone(pid_t pid);

// The pid an endpoint name ("<pid>-<random>") was made for; 0 if none.
pid_t zelEndpointPid(const std::string& endpoint);

// A new endpoint name for this process.
std::string zelNewEndpointName();

}  // namespace zel::binder
