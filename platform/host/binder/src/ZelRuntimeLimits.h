#pragma once

// Limits and deadlines of the host binder runtime: what one peer may cost a
// process, and how long it may take to do its part. docs/host-binder.md
// lists them for client developers.

#include <cstddef>

namespace zel::binder {

// Endpoint names one process may have used on connections that closed while
// it lives; past that, what it held under a further name is dropped at once.
inline constexpr size_t kZelMaxEndpointsPerProcess = 16;

}  // namespace zel::binder
