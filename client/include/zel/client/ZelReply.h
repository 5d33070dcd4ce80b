#pragma once

#include <cstdint>

namespace zel::client {

// The daemon's answer to one request (ZelCallbackParams).
struct ZelReply {
    int32_t token = 0;       // the task's token
    bool canStart = false;   // start requests: the task may run now
    int32_t status = 0;      // 0 success; see docs/client-guide.md for the codes
};

// A short text for a reply's status code ("ok", "unknown task", ...).
const char* statusText(int32_t status);

}  // namespace zel::client
