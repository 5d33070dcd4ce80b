#pragma once

// One event of the Trace Event format (the JSON that Perfetto's UI and
// Chrome's trace viewer open), as the host back end writes it.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "ZelTraceBackEnd.h"

namespace zel::trace {

struct ZelTraceEvent {
    char phase;          // 'B', 'E', 'C', 'i' or 'M'
    const char* name;
    int pid;
    int tid;
    int64_t timeNs;      // CLOCK_MONOTONIC; written as "ts" in microseconds
    const ZelTraceArg* args = nullptr;
    std::size_t argCount = 0;
};

// Appends the event as one JSON object on one line.
void appendJsonEvent(std::string& out, const ZelTraceEvent& event);

// Appends text as a JSON string: quotes, backslashes and control characters
// escaped; bytes that are not well-formed UTF-8 (a client's identifier may
// hold any bytes) become U+FFFD, so the file always reads as UTF-8.
void appendJsonString(std::string& out, std::string_view text);

}  // namespace zel::trace
