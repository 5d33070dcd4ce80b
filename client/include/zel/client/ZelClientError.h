#pragma once

#include <cstdint>
#include <utility>

namespace zel::client {

// What went wrong with a call to the daemon, as a value a caller can act on.
enum class ZelClientError {
    kNone = 0,
    kNotRunning,          // the daemon's service was not found in time
    kTimedOut,            // the daemon took the request but no reply came in time
    kRefused,             // the daemon refused the call (EX_ILLEGAL_ARGUMENT, -3)
    kDied,                // the daemon died before it answered
    kInvalidArgument,     // refused here: an identifier does not fit its 64-byte field, id 0
    kTransport,           // any other binder failure
    kTooManyConnections,  // refused here: the process's 256 identifiers for the
                          // service are all held by its live connections
};

// A short name for messages ("timed out", "daemon not running", ...).
const char* toString(ZelClientError error);

// Ends the process with a message naming `error` on stderr: the value of a
// failed ZelResult was read. A failed result holds no reply, so reading one
// is the caller's mistake, stopped where it happens (as std::optional::value
// would throw) instead of passing for a reply of status 0.
[[noreturn]] void zelResultValueOfFailure(ZelClientError error);

// A value, or the error that prevented it. Check ok() (or the result itself)
// before value() or ->: on a failed result they end the process.
template <typename T>
class [[nodiscard]] ZelResult {
public:
    ZelResult(T value) : mValue(std::move(value)) {}  // NOLINT: implicit on purpose
    ZelResult(ZelClientError error) : mError(error) {}  // NOLINT

    bool ok() const { return mError == ZelClientError::kNone; }
    explicit operator bool() const { return ok(); }
    ZelClientError error() const { return mError; }
    const T& value() const {
        if (!ok()) zelResultValueOfFailure(mError);
        return mValue;
    }
    const T* operator->() const { return &value(); }

private:
    T mValue{};
    ZelClientError mError = ZelClientError::kNone;
};

}  // namespace zel::client
