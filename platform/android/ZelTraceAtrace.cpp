// The device's trace back end: libcutils' atrace functions under zeld's tag
// (ZelTraceSwitch.h), so zeld's slices land in the kernel's trace buffer
// beside the scheduler and binder events of the same capture.
//
// atrace gives a slice only a name: its arguments join the name as
// "name: key=value key=value", cut to kNameSize bytes. An instant is a slice
// of no length (Android 10's atrace has no instant event).

#include <cinttypes>
#include <cstdio>

#include <cutils/trace.h>

#include "ZelTraceBackEnd.h"
#include "ZelTraceSwitch.h"

namespace zel::trace {

namespace {

constexpr std::size_t kNameSize = 256;

// Writes name and arguments into out (always NUL-terminated) and returns it.
const char* sliceName(char (&out)[kNameSize], const char* name, const ZelTraceArg* args,
                      std::size_t count) {
    std::size_t used = 0;
    auto append = [&](int written) {
        if (written > 0) used += static_cast<std::size_t>(written);
        if (used >= kNameSize) used = kNameSize - 1;  // cut: snprintf wrote what fitted
    };
    append(snprintf(out, kNameSize, "%s", name));
    for (std::size_t i = 0; i < count && used < kNameSize - 1; ++i) {
        const ZelTraceArg& arg = args[i];
        const char* separator = i == 0 ? ": " : " ";
        if (arg.value.isNumber) {
            append(snprintf(out + used, kNameSize - used, "%s%s=%" PRId64, separator, arg.key,
                            arg.value.number));
        } else {
            append(snprintf(out + used, kNameSize - used, "%s%s=%.*s", separator, arg.key,
                            static_cast<int>(arg.value.text.size()), arg.value.text.data()));
        }
    }
    return out;
}

}  // namespace

void beginSlice(const char* name, const ZelTraceArg* args, std::size_t count) {
    if (count == 0) return atrace_begin(kZelAtraceTag, name);
    char text[kNameSize];
    atrace_begin(kZelAtraceTag, sliceName(text, name, args, count));
}

void endSlice(const char*) { atrace_end(kZelAtraceTag); }

void counter(const char* name, int64_t value) { atrace_int64(kZelAtraceTag, name, value); }

void instant(const char* name, const ZelTraceArg* args, std::size_t count) {
    beginSlice(name, args, count);
    atrace_end(kZelAtraceTag);
}

}  // namespace zel::trace
