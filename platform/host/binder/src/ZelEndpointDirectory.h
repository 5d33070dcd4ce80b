#pragma once

// The directory of endpoints under the device root: made on first use,
// swept of the sockets of processes that exited, and rid of this process's
// own socket when it exits normally.

#include <string>

namespace zel::binder {

// Creates `dir` (mode 0700) and any missing parent (0755), and the registry
// directory "services" in it (0700).
[[nodiscard]] bool zelMakeEndpointDirectory(const std::string& dir);

// Removes the sockets of endpoints whose process has exited.
void zelSweepStaleEndpoints(const std::string& dir);

// Unlinks `path` at normal exit of this process (not of a child of fork()).
void zelUnlinkAtExit(const std::string& path);

}  // namespace zel::binder
