#include "ZelClientStatus.h"

#include <cstdio>
#include <cstdlib>

#include "zel/client/ZelClient.h"

namespace zel::client {

using android::binder::Status;

ZelClientError errorOf(const Status& status) {
    if (status.isOk()) return ZelClientError::kNone;
    if (status.exceptionCode() == Status::EX_ILLEGAL_ARGUMENT) return ZelClientError::kRefused;
    if (status.transactionError() == android::DEAD_OBJECT) return ZelClientError::kDied;
    return ZelClientError::kTransport;
}

const char* statusText(int32_t status) {
    switch (status) {
        case 0: return "ok";
        case 1: return "invalid request";
        case 2: return "empty component identifier";
        case 3: return "unknown task";
        case 4: return "token mismatch";
        case 5: return "wrong state";
        case 7: return "event publication failed";
    }
    return "unknown status";
}

const char* toString(ZelClientError error) {
    switch (error) {
        case ZelClientError::kNone: return "ok";
        case ZelClientError::kNotRunning: return "daemon not running";
        case ZelClientError::kTimedOut: return "timed out";
        case ZelClientError::kRefused: return "refused by the daemon";
        case ZelClientError::kDied: return "daemon died";
        case ZelClientError::kInvalidArgument: return "invalid argument";
        case ZelClientError::kTransport: return "binder transport failure";
        case ZelClientError::kTooManyConnections: return "too many connections in this process";
    }
    return "unknown error";
}

void zelResultValueOfFailure(ZelClientError error) {
    std::fprintf(stderr, "libzelclient: the value of a failed ZelResult was read (error: %s)\n",
                 toString(error));
    std::abort();
}

}  // namespace zel::client
