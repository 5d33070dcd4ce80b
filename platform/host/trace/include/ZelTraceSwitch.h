#pragma once

#include <atomic>

namespace zel::trace {
// True while this process writes the trace file named by ZELD_TRACE: set
// before main when the variable names a file, cleared when the file cannot
// be opened or has been closed at exit.
extern std::atomic<bool> gEnabled;
}  // namespace zel::trace

inline bool zelTraceEnabled() { return zel::trace::gEnabled.load(std::memory_order_relaxed); }
