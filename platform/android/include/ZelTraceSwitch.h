#pragma once

#include <cstdint>

#include <cutils/trace.h>

// zeld's slices, counters and instants belong to atrace's "am" category
// (activity manager): the category a platform engineer already captures to
// see processes started, stopped and killed, which is what zeld's decisions
// cause. docs/tracing.md says why and how to capture it.
inline constexpr uint64_t kZelAtraceTag = ATRACE_TAG_ACTIVITY_MANAGER;

// Whether a capture that wants the category runs: libcutils' own test, the
// one every ATRACE_CALL of the platform makes (the enabled-tags word, kept up
// to date from the tracing property).
inline bool zelTraceEnabled() { return atrace_is_tag_enabled(kZelAtraceTag) != 0; }
