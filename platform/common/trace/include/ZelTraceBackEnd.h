#pragma once

// What the trace seam (the daemon's ZelTrace.h) hands a platform's back end
// once the platform's flag (ZelTraceSwitch.h) says a trace is being taken.
// Each platform defines the four functions: platform/android/ZelTraceAtrace.cpp
// on the device, platform/host/trace on the host. This header and the flag
// are all that the seam and a back end share, so nothing under platform/
// includes a header of the daemon's.

#include <cstddef>
#include <cstdint>
#include <string_view>

// One argument's value: a text or a whole number.
struct ZelTraceValue {
    std::string_view text;
    int64_t number = 0;
    bool isNumber = false;
};

struct ZelTraceArg {
    const char* key = nullptr;
    ZelTraceValue value;
};

// Called only after zelTraceEnabled() said yes; `name` and the keys are
// string literals. Every function may be called from any thread.
namespace zel::trace {

void beginSlice(const char* name, const ZelTraceArg* args, std::size_t count);
void endSlice(const char* name);
void counter(const char* name, int64_t value);
void instant(const char* name, const ZelTraceArg* args, std::size_t count);

}  // namespace zel::trace
