#pragma once

#include <cstdint>
#include <utility>

namespace zel::client {

// What went wrong with a call to the daemon, as a value a caller can act on.
enum class ZelClientError {
    kNone = 0,
    kNotRunning,       // the daemon's service was not found in time
    kTimedOut,         // the daemon took the request but no reply came in time
    kRefused,          // the daemon refused the call (EX_ILLEGAL_ARGUMENT, -3)
    kDied,             // the daemon died before it answered
    kInvalidArgument,  // refused here: an identifier does not fit its 64-byte field, id 0
    kTransport,        // any other binder failure
};

// A short name for messages ("timed out", "daemon not running", ...).
const char* toString(ZelClientError error);

// A value, or the error that prevented it.
template <typename T>
class ZelResult {
public:
    ZelResult(T value) : mValue(std::move(value)) {}  // NOLINT: implicit on purpose
    ZelResult(ZelClientError error) : mError(error) {}  // NOLINT

    bool ok() const { return mError == ZelClientError::kNone; }
    ZelClientError error() const { return mError; }
    // Meaningful only when ok().
    const T& value() const { return mValue; }
    const T* operator->() const { return &mValue; }

private:
    T mValue{};
    ZelClientError mError = ZelClientError::kNone;
};

}  // namespace zel::client
