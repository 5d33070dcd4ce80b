#pragma once

// Tracing: what the daemon did, as slices, counters and instants on the
// timeline a platform engineer opens beside the scheduler and binder tracks.
// The back end is chosen at link time: atrace on the device
// (platform/android), a Trace Event JSON file named by ZELD_TRACE on the host
// (platform/host/trace). docs/tracing.md says how to capture either.
//
//     ZelTraceSlice slice("start request", "component", compId, "task", taskId);
//     zelTraceCounter("running tasks", runningCount);
//     zelTraceInstant("purge ended", "tasks", ended);
//
// Cost while tracing is off: one predictable branch on zelTraceEnabled(), the
// platform's flag, and nothing else. Names are string literals; arguments
// come as key, value pairs (keys literal) taken by reference and turned into
// text only when the back end writes them, so no string is built and no
// length is counted unless a trace is being taken. Counter values are plain
// integers the caller already has.
//
// A value is a std::string or std::string_view, a char array (read up to its
// first NUL within its size, so a fixed identifier field is never read past
// its end), a non-null C string, or an integer.
//
// Slices nest per thread: a slice ends on the thread that began it, when its
// scope ends. Every function here may be called from any thread.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <type_traits>

#include "ZelTraceBackEnd.h"  // the back end's functions and argument records
#include "ZelTraceSwitch.h"   // inline bool zelTraceEnabled(): the platform's flag

// Arguments turned into the back end's records, here on the daemon's side.
namespace zel::trace {

inline ZelTraceValue value(std::string_view text) { return {text, 0, false}; }

template <std::size_t N>
inline ZelTraceValue value(const char (&text)[N]) {
    return {std::string_view(text, strnlen(text, N)), 0, false};
}

template <typename T, std::enable_if_t<std::is_integral_v<T>, int> = 0>
inline ZelTraceValue value(T number) {
    return {{}, static_cast<int64_t>(number), true};
}

inline void collect(ZelTraceArg*) {}

template <typename V, typename... Rest>
inline void collect(ZelTraceArg* out, const char* key, const V& item, const Rest&... rest) {
    out->key = key;
    out->value = value(item);
    collect(out + 1, rest...);
}

}  // namespace zel::trace

// A slice from its construction to the end of its scope.
class ZelTraceSlice {
public:
    template <typename... KeysAndValues>
    explicit ZelTraceSlice(const char* name, const KeysAndValues&... keysAndValues) {
        static_assert(sizeof...(KeysAndValues) % 2 == 0, "arguments come as key, value pairs");
        if (__builtin_expect(zelTraceEnabled(), 0)) {
            ZelTraceArg args[sizeof...(KeysAndValues) / 2 + 1];
            zel::trace::collect(args, keysAndValues...);
            zel::trace::beginSlice(name, args, sizeof...(KeysAndValues) / 2);
            mName = name;
        }
    }

    // Ends only a slice that began: tracing that starts meanwhile gets no
    // end without a beginning.
    ~ZelTraceSlice() {
        if (mName != nullptr) zel::trace::endSlice(mName);
    }

    ZelTraceSlice(const ZelTraceSlice&) = delete;
    ZelTraceSlice& operator=(const ZelTraceSlice&) = delete;

private:
    const char* mName = nullptr;  // set when the slice began
};

inline void zelTraceCounter(const char* name, int64_t value) {
    if (__builtin_expect(zelTraceEnabled(), 0)) zel::trace::counter(name, value);
}

template <typename... KeysAndValues>
inline void zelTraceInstant(const char* name, const KeysAndValues&... keysAndValues) {
    static_assert(sizeof...(KeysAndValues) % 2 == 0, "arguments come as key, value pairs");
    if (__builtin_expect(zelTraceEnabled(), 0)) {
        ZelTraceArg args[sizeof...(KeysAndValues) / 2 + 1];
        zel::trace::collect(args, keysAndValues...);
        zel::trace::instant(name, args, sizeof...(KeysAndValues) / 2);
    }
}
