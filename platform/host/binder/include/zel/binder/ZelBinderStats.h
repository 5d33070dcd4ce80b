#pragma once

#include <cstddef>
#include <string>

namespace zel::binder {

// What the host binder runtime of this process holds right now; tests use it
// to show that nothing grows while peers come and go.
struct ZelBinderStats {
    std::string endpoint;            // this process's endpoint name ("" while offline)
    size_t exportedObjects = 0;      // local objects other processes may reference
    size_t proxies = 0;              // live proxies of remote objects
    size_t peers = 0;                // processes this one holds proxies of
    size_t incomingConnections = 0;  // connections accepted and still open
    size_t poolThreads = 0;          // threads serving incoming transactions
};

ZelBinderStats zelBinderStats();

}  // namespace zel::binder
