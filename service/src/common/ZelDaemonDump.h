#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "PolicyTaskKey.h"
#include "ResourceStatusInfo.h"
#include "ZelMetricsRegistry.h"
#include "ZelPolicyEngine.h"
#include "ZelTask.h"

class ZelTaskManager;

// What the client service's dump prints: a copy of the daemon's state, taken
// lock by lock (each held only for its own copy), then formatted unlocked.
struct ZelDaemonState {
    int64_t now = 0;  // monotonic seconds when taken
    ZelPolicyEngine::Summary policy;
    ResourceStatusInfo memory;
    int32_t reaperState = 0;
    bool purgeInProgress = false;
    uint64_t purgeCount = 0;
    int64_t lastPurgeTime = 0;
    std::vector<ZelTask::Fields> tasks;    // mTaskList
    std::vector<ZelTask::Fields> running;  // mRunningTaskList
    std::vector<ZelTask::Fields> pending;  // mPendingTaskList
    std::vector<TaskKey> stopped;          // mStoppedTaskList
    std::vector<int32_t> clients;          // the client service's registry
    std::vector<ZelMetricsRegistry::Value> metrics;
    int64_t droppedMetrics = 0;
};

// Takes a ZelDaemonState when the client service is asked for its dump.
using ZelStateSource = std::function<ZelDaemonState()>;

// What the event service's dump prints.
struct ZelEventState {
    struct Subscription {
        int32_t publisher;
        int32_t groupId;
        int32_t eventId;
        std::vector<int32_t> subscribers;
    };
    std::vector<int32_t> participants;  // with a registered callback
    bool localDelivery = false;         // participant 1 reached in-process
    std::vector<Subscription> subscriptions;
};

namespace ZelDaemonDump {

// Takes the reaper mutex, the stopped-list mutex, each table mutex and each
// record mutex in turn, in the task manager's lock order, never two at once.
// Leaves `clients` empty: the client service fills it.
ZelDaemonState capture(ZelTaskManager& manager);

std::string text(const ZelDaemonState& state);
std::string json(const ZelDaemonState& state);
std::string text(const ZelEventState& state);
std::string json(const ZelEventState& state);

// "1" CREATED ... "5" COMPLETED; "UNKNOWN(n)" otherwise.
std::string stateName(int32_t state);
// One record as the text form prints it (without indentation).
std::string taskLine(const ZelTask::Fields& task, int64_t now);

}  // namespace ZelDaemonDump
