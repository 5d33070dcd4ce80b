#pragma once

#include <cstdint>

#include <binder/Status.h>

#include "zel/client/ZelClientError.h"

namespace zel::client {

// The error a binder call's status stands for.
ZelClientError errorOf(const android::binder::Status& status);

// The identifier a client or participant registers under: `requested`, or
// kClientIdPidBase + the process id when it is 0.
int32_t defaultClientId(int32_t requested);

}  // namespace zel::client
