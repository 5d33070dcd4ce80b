#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>

namespace com::ostrel::zeld::interfaces {

// The arguments of a client request: a fixed 140-byte record, copied by
// value. compId and taskId are NUL-terminated within their 64 bytes; readers
// never look past a field (getCompId/getTaskId stop at its end).
struct ZelTaskContext {
    static constexpr size_t kIdSize = 64;

    char compId[kIdSize] = {};
    char taskId[kIdSize] = {};
    int32_t token = 0;      // issued by the daemon; unused in a start request
    uint8_t notify = 0;     // non-zero: call back once the task may start
    uint8_t reserved[3] = {};
    int32_t duration = 0;   // run time asked for, milliseconds

    // notify is the byte a client sent, any value: it asks for a later
    // answer when it is not zero.
    bool wantsNotify() const { return notify != 0; }
    std::string getCompId() const { return fieldString(compId); }
    std::string getTaskId() const { return fieldString(taskId); }
    // False (field unchanged) when `id` does not fit with its terminator.
    bool setCompId(const std::string& id) { return setField(compId, id); }
    bool setTaskId(const std::string& id) { return setField(taskId, id); }

private:
    static std::string fieldString(const char (&field)[kIdSize]) {
        const void* nul = std::memchr(field, '\0', kIdSize);
        return std::string(field, nul ? static_cast<const char*>(nul) - field : kIdSize);
    }
    static bool setField(char (&field)[kIdSize], const std::string& id) {
        if (id.size() >= kIdSize || id.find('\0') != std::string::npos) return false;
        std::memset(field, 0, kIdSize);
        std::memcpy(field, id.data(), id.size());
        return true;
    }
};

static_assert(sizeof(ZelTaskContext) == 140, "ZelTaskContext is a 140-byte record");
static_assert(offsetof(ZelTaskContext, compId) == 0, "compId at 0");
static_assert(offsetof(ZelTaskContext, taskId) == 64, "taskId at 64");
static_assert(offsetof(ZelTaskContext, token) == 128, "token at 128");
static_assert(offsetof(ZelTaskContext, notify) == 132, "notify at 132");
static_assert(offsetof(ZelTaskContext, reserved) == 133, "reserved at 133");
static_assert(offsetof(ZelTaskContext, duration) == 136, "duration at 136");
static_assert(std::is_trivially_copyable_v<ZelTaskContext> && std::is_standard_layout_v<ZelTaskContext>,
              "ZelTaskContext is copied as bytes");

}  // namespace com::ostrel::zeld::interfaces
