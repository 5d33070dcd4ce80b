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

// A name given in place of the file's: a base name without extension.
constexpr bool isBaseName(const char* name) {
    if (name[0] == '\0') return false;
    for (std::size_t i = 0; name[i] != '\0'; ++i) {
        if (name[i] == '/' || name[i] == '.') return false;
    }
    return true;
}

static_assert(isBaseName("ZelTaskManager") && !isBaseName("a/b") && !isBaseName("a.cpp"));
static_assert(!isBaseName(""), "a name is not empty");

// Instantiated with the check's outcome, so a bad name stops the build.
template <bool kIsBaseName>
struct BaseNameCheck {
    static_assert(kIsBaseName, "ZEL_LOG*_AS takes a file's base name, without folder or extension");
};

}  // namespace zel::log

// Forced to compile-time constants so no path is scanned at run time.
#define ZEL_LOG_BASE_LEN_ (std::integral_constant<int, ::zel::log::baseNameLength(__FILE__)>::value)
#define ZEL_LOG_BASE_OFF_ \
    (std::integral_constant<std::size_t, ::zel::log::baseNameOffset(__FILE__)>::value)

#define ZEL_LOG_PRINT_(prio, fmt, ...)                                                         \
    ((void)__android_log_buf_print(LOG_ID_SYSTEM, (prio), ::zel::log::kTag,                    \
                                   "%.*s::%s:%d - " fmt, ZEL_LOG_BASE_LEN_, &__FILE__[ZEL_LOG_BASE_OFF_], \
                                   __func__, __LINE__, ##__VA_ARGS__))

#define ZEL_LOG_PRINT_AS_(prio, file, function, fmt, ...)                                        \
    ((void)::zel::log::BaseNameCheck<::zel::log::isBaseName(file)>{},                            \
     (void)__android_log_buf_print(LOG_ID_SYSTEM, (prio), ::zel::log::kTag, "%s::%s:%d - " fmt, \
                                   "" file, (function), __LINE__, ##__VA_ARGS__))

#define ZEL_LOGD(fmt, ...) ZEL_LOG_PRINT_(ANDROID_LOG_DEBUG, fmt, ##__VA_ARGS__)
#define ZEL_LOGI(fmt, ...) ZEL_LOG_PRINT_(ANDROID_LOG_INFO, fmt, ##__VA_ARGS__)
#define ZEL_LOGW(fmt, ...) ZEL_LOG_PRINT_(ANDROID_LOG_WARN, fmt, ##__VA_ARGS__)
#define ZEL_LOGE(fmt, ...) ZEL_LOG_PRINT_(ANDROID_LOG_ERROR, fmt, ##__VA_ARGS__)

// Lines that speak for another file and function than the ones they are
// written in: an operation split over several functions (or files) keeps the
// prefix it has always had. `file` must be a string literal holding a base
// name without extension (checked by the compiler); `function` any C string.
#define ZEL_LOGD_AS(file, function, fmt, ...) \
    ZEL_LOG_PRINT_AS_(ANDROID_LOG_DEBUG, file, function, fmt, ##__VA_ARGS__)
#define ZEL_LOGI_AS(file, function, fmt, ...) \
    ZEL_LOG_PRINT_AS_(ANDROID_LOG_INFO, file, function, fmt, ##__VA_ARGS__)
#define ZEL_LOGW_AS(file, function, fmt, ...) \
    ZEL_LOG_PRINT_AS_(ANDROID_LOG_WARN, file, function, fmt, ##__VA_ARGS__)
#define ZEL_LOGE_AS(file, function, fmt, ...) \
    ZEL_LOG_PRINT_AS_(ANDROID_LOG_ERROR, file, function, fmt, ##__VA_ARGS__)
