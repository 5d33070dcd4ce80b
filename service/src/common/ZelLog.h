#pragma once

// The daemon's one logging header. Every line goes to the system log buffer
// under the tag "zeld" as "<file>::<function>:<line> - <text>", where <file>
// is the source file's base name without its extension.

#include <log/log.h>

#include <cstddef>
#include <type_traits>

namespace zel::log {

inline constexpr const char* kTag = "zeld";

// Offset of the base name inside a path given by __FILE__.
constexpr std::size_t baseNameOffset(const char* path) {
    std::size_t offset = 0;
    for (std::size_t i = 0; path[i] != '\0'; ++i) {
        if (path[i] == '/') offset = i + 1;
    }
    return offset;
}

// Length of the base name up to (not including) its last '.'.
constexpr int baseNameLength(const char* path) {
    const std::size_t start = baseNameOffset(path);
    std::size_t end = start;
    std::size_t dot = 0;
    bool sawDot = false;
    for (; path[end] != '\0'; ++end) {
        if (path[end] == '.') {
            dot = end;
            sawDot = true;
        }
    }
    return static_cast<int>((sawDot ? dot : end) - start);
}

static_assert(baseNameLength("/a/b/ZelTaskManager.cpp") == 14 && baseNameOffset("/a/b/ZelTaskManager.cpp") == 5);
static_assert(baseNameLength("main.cpp") == 4 && baseNameLength("dir/noext") == 5);
static_assert(baseNameLength("dir/x.tar.gz") == 5, "up to the last dot");
static_assert(baseNameLength("dir.d/file") == 4, "a dot in a folder is no extension");

}  // namespace zel::log

// Forced to compile-time constants so no path is scanned at run time.
#define ZEL_LOG_BASE_LEN_ (std::integral_constant<int, ::zel::log::baseNameLength(__FILE__)>::value)
#define ZEL_LOG_BASE_OFF_ \
    (std::integral_constant<std::size_t, ::zel::log::baseNameOffset(__FILE__)>::value)

#define ZEL_LOG_PRINT_(prio, fmt, ...)                                                         \
    ((void)__android_log_buf_print(LOG_ID_SYSTEM, (prio), ::zel::log::kTag,                    \
                                   "%.*s::%s:%d - " fmt, ZEL_LOG_BASE_LEN_, &__FILE__[ZEL_LOG_BASE_OFF_], \
                                   __func__, __LINE__, ##__VA_ARGS__))

#define ZEL_LOGD(fmt, ...) ZEL_LOG_PRINT_(ANDROID_LOG_DEBUG, fmt, ##__VA_ARGS__)
#define ZEL_LOGI(fmt, ...) ZEL_LOG_PRINT_(ANDROID_LOG_INFO, fmt, ##__VA_ARGS__)
#define ZEL_LOGW(fmt, ...) ZEL_LOG_PRINT_(ANDROID_LOG_WARN, fmt, ##__VA_ARGS__)
#define ZEL_LOGE(fmt, ...) ZEL_LOG_PRINT_(ANDROID_LOG_ERROR, fmt, ##__VA_ARGS__)
