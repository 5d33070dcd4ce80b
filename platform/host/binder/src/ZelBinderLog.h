#pragma once

// Log lines of the host binder runtime: tag "zeld-binder" in the main buffer.

#include <log/log.h>

#define ZEL_BINDER_LOG_(prio, fmt, ...) \
    ((void)__android_log_buf_print(LOG_ID_MAIN, (prio), "zeld-binder", fmt, ##__VA_ARGS__))
#define ZEL_BINDER_LOGI(fmt, ...) ZEL_BINDER_LOG_(ANDROID_LOG_INFO, fmt, ##__VA_ARGS__)
#define ZEL_BINDER_LOGW(fmt, ...) ZEL_BINDER_LOG_(ANDROID_LOG_WARN, fmt, ##__VA_ARGS__)
#define ZEL_BINDER_LOGE(fmt, ...) ZEL_BINDER_LOG_(ANDROID_LOG_ERROR, fmt, ##__VA_ARGS__)
