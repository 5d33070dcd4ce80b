#pragma once

#include <cstdint>

#include <binder/Status.h>

#include "zel/client/ZelClientError.h"

namespace zel::client {

// The error a binder call's status stands for.
ZelClientError errorOf(const android::binder::Status& status);

}  // namespace zel::client
