#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ZelIpcServer.h"
#include "ZelMetricsRegistry.h"
#include "ZelTask.h"
#include "ZelTaskManager.h"

// What the client service's dump prints: the task manager's state, the
// clients with a registered callback and the metrics, each copied under its
// own locks, then formatted with none held.
struct ZelDaemonState {
    ZelTaskManager::State manager;
    std::vector<int32_t> clients;  // the client service's registry
    std::vector<ZelMetricsRegistry::Value> metrics;
    int64_t droppedMetrics = 0;
};

namespace ZelDaemonDump {

// The dump function the daemon hands the client service. It holds the task
// manager weakly: the published service may outlive the daemon's parts.
ZelDumpFunction function(std::weak_ptr<ZelTaskManager> manager);

std::string text(const ZelDaemonState& state);
std::string json(const ZelDaemonState& state);

// "1" CREATED ... "5" COMPLETED; "UNKNOWN(n)" otherwise.
std::string stateName(int32_t state);
// One record as the text form prints it (without indentation).
std::string taskLine(const ZelTask::Fields& task, int64_t now);

}  // namespace ZelDaemonDump
