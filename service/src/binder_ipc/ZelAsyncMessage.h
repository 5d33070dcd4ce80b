#pragma once

#include <cstdint>

#include <com/ostrel/zeld/interfaces/IZelBinderIPCRequestCallback.h>
#include <com/ostrel/zeld/interfaces/MessageIdentifier.h>
#include <com/ostrel/zeld/interfaces/ServiceIdentifier.h>

// One client message as the client service hands it to the server. `data`
// points to the 140-byte task context owned by the running call: valid only
// during that call.
struct ZelAsyncMessage {
    com::ostrel::zeld::interfaces::MessageIdentifier messageId;
    com::ostrel::zeld::interfaces::ServiceIdentifier client;
    android::sp<com::ostrel::zeld::interfaces::IZelBinderIPCRequestCallback> callback;
    int32_t functionId = 0;
    const void* data = nullptr;
    int32_t length = 0;
};
