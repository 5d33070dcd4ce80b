#pragma once

#include <cstdint>

// Time as the daemon counts it: task and report stamps in whole seconds of the
// monotonic clock, handling times in whole milliseconds (nanoseconds / 10^6,
// truncated). The monotonic source is replaceable so tests can move time
// without sleeping; the daemon uses the real clock.
namespace ZelTime {

using MonotonicSource = int64_t (*)();  // nanoseconds

// Whole seconds of the monotonic clock.
int64_t monotonicSeconds();
// Nanoseconds of the monotonic clock, for measuring elapsed time.
int64_t monotonicNanos();
// Whole milliseconds from `startNanos` (a monotonicNanos() value) to now.
int64_t elapsedMillis(int64_t startNanos);

// Replaces the source; nullptr restores the real clock.
void setMonotonicSource(MonotonicSource source);

}  // namespace ZelTime
