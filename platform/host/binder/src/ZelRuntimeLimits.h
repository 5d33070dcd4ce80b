#pragma once

// Limits and deadlines of the host binder runtime: what one peer may cost a
// process, and how long it may take to do its part. docs/host-binder.md
// lists them for client developers.

#include <chrono>
#include <cstddef>

#include "zel/binder/ZelWireFrame.h"

namespace zel::binder {

// One-way calls read from a connection and not yet run; past either figure
// the connection is not read until they drain to half.
inline constexpr size_t kZelMaxQueuedOneway = 64;
inline constexpr size_t kZelMaxQueuedOnewayBytes = 2 * kZelMaxPayload;
// Bytes waiting to be sent on an outgoing connection; a transaction that
// would go past fails with FAILED_TRANSACTION, as on a device when the
// receiver's buffer is full.
inline constexpr size_t kZelMaxPendingOutput = 4 * kZelMaxPayload;
// Connections one process (by the pid of SO_PEERCRED) may have open to this
// one at a time; a further one is closed as soon as it is accepted. This
// process opens at most kZelMaxConnectionsToPeer to one peer: a synchronous
// call beyond them waits for one of them, so it is never refused, also
// while the peer has not yet seen the end of connections it closed.
inline constexpr size_t kZelMaxConnectionsPerProcess = 32;
inline constexpr size_t kZelMaxConnectionsToPeer = 16;
// Endpoint names one process may have used on connections that closed while
// it lives; past that, what it held under a further name is dropped at once.
inline constexpr size_t kZelMaxEndpointsPerProcess = 16;
// Pauses between attempts to accept while the process is out of
// descriptors and has none in reserve to refuse connections with.
inline constexpr std::chrono::milliseconds kZelFirstAcceptPause{50};
inline constexpr std::chrono::milliseconds kZelLastAcceptPause{1000};

// The deadlines, read once from the environment when the runtime starts
// (tests shorten them; a value that is not a positive number of
// milliseconds keeps the default).
struct ZelRuntimeDeadlines {
    // ZELD_BINDER_HELLO_TIMEOUT_MS: from accepting a connection to its HELLO.
    std::chrono::milliseconds hello{5000};
    // ZELD_BINDER_FRAME_TIMEOUT_MS: from a frame's first byte to its last.
    std::chrono::milliseconds frame{10000};
    // ZELD_BINDER_SEND_TIMEOUT_MS: longest a connection may take none of
    // the bytes waiting for it.
    std::chrono::milliseconds send{5000};

    static ZelRuntimeDeadlines fromEnvironment();
};

}  // namespace zel::binder
