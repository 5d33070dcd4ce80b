#pragma once

// What the task manager's files share: the prefix of its log lines, its
// counters and the constants of its operations. Included only by them.

#include <cstddef>
#include <cstdint>

#include "ZelLog.h"
#include "ZelMetrics.h"
#include "ZelTrace.h"

// Every line of the task manager reads "ZelTaskManager::<operation>",
// whichever of its files holds the operation. A helper that writes a line of
// an operation names the operation with the *_FOR form.
#define ZEL_TM_LOGD(...) ZEL_LOGD_AS("ZelTaskManager", __func__, __VA_ARGS__)
#define ZEL_TM_LOGI(...) ZEL_LOGI_AS("ZelTaskManager", __func__, __VA_ARGS__)
#define ZEL_TM_LOGW(...) ZEL_LOGW_AS("ZelTaskManager", __func__, __VA_ARGS__)
#define ZEL_TM_LOGE(...) ZEL_LOGE_AS("ZelTaskManager", __func__, __VA_ARGS__)
#define ZEL_TM_LOGD_FOR(operation, ...) ZEL_LOGD_AS("ZelTaskManager", operation, __VA_ARGS__)
#define ZEL_TM_LOGI_FOR(operation, ...) ZEL_LOGI_AS("ZelTaskManager", operation, __VA_ARGS__)
#define ZEL_TM_LOGW_FOR(operation, ...) ZEL_LOGW_AS("ZelTaskManager", operation, __VA_ARGS__)
#define ZEL_TM_LOGE_FOR(operation, ...) ZEL_LOGE_AS("ZelTaskManager", operation, __VA_ARGS__)

namespace zel::taskmanager {

inline constexpr const char* kProcessStartTaskId = "START_PROCESS";
inline constexpr const char* kCriticalPriorityType = "ZEL_TASK_CRITICAL";
// Starts decided on one thread's stack at once, the requested task's
// included: a dependency request that would go deeper is refused. Each level
// takes about a kilobyte of the binder thread's stack (1 MiB on a device), so
// the limit keeps well inside it, sanitizer builds included, and far beyond
// any chain a policy needs.
inline constexpr size_t kDeepestDependencyNesting = 128;

// Adds 1 to one of the task-manager module's counters.
inline void countMetric(const char* name) {
    static const ZelMetricsFactory factory = makeZelMetricsFactory(kZelMetricsModuleTaskManager);
    factory().addCount(name, 1);
}

// The stopped list's length on the trace's counter when it changed. Called
// under mStoppedTaskLock, so the values follow the list's changes in order.
inline void traceStoppedTasks(std::size_t before, std::size_t after) {
    if (after != before) zelTraceCounter("stopped tasks", static_cast<int64_t>(after));
}

}  // namespace zel::taskmanager
