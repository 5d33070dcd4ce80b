#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace com::ostrel::zeld::interfaces {

// The daemon's answer to one request, as a 12-byte record in memory.
struct ZelCallbackParams {
    int32_t token = 0;       // token of the task concerned
    bool canStart = false;   // start requests: the task may run now
    int32_t status = 0;      // result code, 0 = success
};

static_assert(sizeof(ZelCallbackParams) == 12, "ZelCallbackParams is a 12-byte record");
static_assert(offsetof(ZelCallbackParams, token) == 0, "token at 0");
static_assert(offsetof(ZelCallbackParams, canStart) == 4, "canStart at 4");
static_assert(offsetof(ZelCallbackParams, status) == 8, "status at 8");
static_assert(std::is_trivially_copyable_v<ZelCallbackParams> && std::is_standard_layout_v<ZelCallbackParams>,
              "ZelCallbackParams is copied as bytes");

}  // namespace com::ostrel::zeld::interfaces
