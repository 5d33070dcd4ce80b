#include "ZelDaemonDump.h"

#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <map>
#include <mutex>

#include "PolicyRapidJson.h"
#include "ZelReaperSync.h"
#include "ZelTaskManager.h"
#include "ZelTime.h"

namespace {

using Writer = rapidjson::Writer<rapidjson::StringBuffer>;

std::string format(const char* pattern, ...) __attribute__((format(printf, 1, 2)));
std::string format(const char* pattern, ...) {
    char line[512];
    va_list args;
    va_start(args, pattern);
    vsnprintf(line, sizeof(line), pattern, args);
    va_end(args);
    return line;
}

const char* reaperStateName(int32_t state) {
    switch (state) {
        case REAPER_STATE_PURGE: return "PURGE";
        case REAPER_STATE_WAIT: return "WAIT";
        case REAPER_STATE_EXIT: return "EXIT";
        default: return "UNKNOWN";
    }
}

// Seconds a running record has run; 0 for any other.
int64_t runTime(const ZelTask::Fields& task, int64_t now) {
    return task.state == TASK_STATE_RUNNING && task.startTime > 0 ? now - task.startTime : 0;
}

// Each record is copied once, so every table shows one record the same way.
std::vector<ZelTask::Fields> rowsOf(const LockedTaskMap::Map& table,
                                    std::map<const ZelTask*, ZelTask::Fields>& copied) {
    std::vector<ZelTask::Fields> rows;
    for (const auto& entry : table) {
        if (entry.second == nullptr) continue;
        auto it = copied.find(entry.second.get());
        if (it == copied.end())
            it = copied.emplace(entry.second.get(), entry.second->fields()).first;
        rows.push_back(it->second);
    }
    return rows;
}

// One JSON object, filled by `members`, and a newline.
template <typename Members>
std::string jsonObject(Members members) {
    rapidjson::StringBuffer buffer;
    Writer writer(buffer);
    writer.StartObject();
    members(writer);
    writer.EndObject();
    return std::string(buffer.GetString(), buffer.GetSize()) + "\n";
}

void string(Writer& writer, const char* name, const std::string& value) {
    writer.Key(name);
    writer.String(value.c_str(), static_cast<rapidjson::SizeType>(value.size()));
}

void number(Writer& writer, const char* name, int64_t value) {
    writer.Key(name);
    writer.Int64(value);
}

void ids(Writer& writer, const char* name, const std::vector<int32_t>& values) {
    writer.Key(name);
    writer.StartArray();
    for (const int32_t value : values) writer.Int(value);
    writer.EndArray();
}

void taskTable(Writer& writer, const char* name, const std::vector<ZelTask::Fields>& rows,
               int64_t now) {
    writer.Key(name);
    writer.StartArray();
    for (const ZelTask::Fields& task : rows) {
        writer.StartObject();
        string(writer, "compId", task.compId);
        string(writer, "taskId", task.taskId);
        string(writer, "state", ZelDaemonDump::stateName(task.state));
        number(writer, "token", task.token);
        string(writer, "tokenHex", format("%x", task.token));
        number(writer, "notify", task.notify);
        number(writer, "duration", task.duration);
        number(writer, "ensureRunTime", task.ensureRunTime);
        number(writer, "startTime", task.startTime);
        number(writer, "runTime", runTime(task, now));
        writer.EndObject();
    }
    writer.EndArray();
}

void textTable(std::string& out, const char* name, const std::vector<ZelTask::Fields>& rows,
               int64_t now) {
    out += format("%s: %zu\n", name, rows.size());
    for (const ZelTask::Fields& task : rows)
        out += "  " + ZelDaemonDump::taskLine(task, now) + "\n";
}

std::string joined(const std::vector<int32_t>& values, const char* separator) {
    std::string out;
    for (const int32_t value : values)
        out += (out.empty() ? "" : separator) + std::to_string(value);
    return out;
}

}  // namespace

namespace ZelDaemonDump {

ZelDaemonState capture(ZelTaskManager& manager) {
    ZelDaemonState state;
    state.now = ZelTime::monotonicSeconds();
    if (manager.mPolicyEngine != nullptr) state.policy = manager.mPolicyEngine->getSummary();
    if (manager.mResourceStatus != nullptr)
        state.memory = manager.mResourceStatus->getMemoryStatus();
    const ZelReaperSync::State reaper = ZelReaperSync::state();
    state.reaperState = reaper.command;
    state.purgeInProgress = reaper.purging;
    state.purgeCount = reaper.purges;
    state.lastPurgeTime = reaper.lastPurgeTime;
    {
        std::lock_guard<std::mutex> guard(manager.mStoppedTaskLock);
        state.stopped.assign(manager.mStoppedTaskList.begin(), manager.mStoppedTaskList.end());
    }
    const LockedTaskMap::Map tasks = manager.mTaskList->snapshot();
    const LockedTaskMap::Map running = manager.mRunningTaskList->snapshot();
    const LockedTaskMap::Map pending = manager.mPendingTaskList->snapshot();
    std::map<const ZelTask*, ZelTask::Fields> copied;
    state.tasks = rowsOf(tasks, copied);
    state.running = rowsOf(running, copied);
    state.pending = rowsOf(pending, copied);
    state.metrics = ZelMetricsRegistry::instance().snapshot();
    state.droppedMetrics = ZelMetricsRegistry::instance().dropped();
    return state;
}

std::string stateName(int32_t state) {
    switch (state) {
        case TASK_STATE_CREATED: return "CREATED";
        case TASK_STATE_START_ALLOWED: return "START_ALLOWED";
        case TASK_STATE_START_PENDING: return "START_PENDING";
        case TASK_STATE_RUNNING: return "RUNNING";
        case TASK_STATE_COMPLETED: return "COMPLETED";
        default: return format("UNKNOWN(%d)", state);
    }
}

std::string taskLine(const ZelTask::Fields& task, int64_t now) {
    return format(
            "%s/%s state=%s token=%x notify=%d duration=%dms ensureRunTime=%d "
            "startTime=%" PRId64 "s runTime=%" PRId64 "s",
            task.compId.c_str(), task.taskId.c_str(), stateName(task.state).c_str(), task.token,
            task.notify, task.duration, task.ensureRunTime, task.startTime, runTime(task, now));
}

std::string text(const ZelDaemonState& state) {
    const ZelPolicyEngine::Summary& policy = state.policy;
    std::string out = format("zeld at monotonic %" PRId64 "s\n", state.now);
    out +=
            format("policy: %s (%zu event groups, %zu events, %zu components, %zu tasks, "
                   "%zu auto-start)\n",
                   policy.path.c_str(), policy.eventGroups, policy.events, policy.components,
                   policy.tasks, policy.autoStartTasks);
    if (state.memory.timestamp == 0) {
        out += "memory: no report yet\n";
    } else {
        out += format("memory: status %u value %" PRIu64 " threshold %" PRIu64 " at %" PRId64
                      "s (%" PRId64 "s ago)\n",
                      state.memory.status, state.memory.value, state.memory.criticalThreshold,
                      state.memory.timestamp, state.now - state.memory.timestamp);
    }
    out += format("reaper: %s, purging %s, %" PRIu64 " purges, last at %" PRId64 "s\n",
                  reaperStateName(state.reaperState), state.purgeInProgress ? "yes" : "no",
                  state.purgeCount, state.lastPurgeTime);
    textTable(out, "mTaskList", state.tasks, state.now);
    textTable(out, "mRunningTaskList", state.running, state.now);
    textTable(out, "mPendingTaskList", state.pending, state.now);
    out += format("mStoppedTaskList: %zu\n", state.stopped.size());
    for (const TaskKey& key : state.stopped) {
        out += "  " + key.first + "/" + key.second + "\n";
    }
    out += format("clients: %zu\n", state.clients.size());
    if (!state.clients.empty()) out += "  " + joined(state.clients, " ") + "\n";
    out += format("metrics: %zu (%" PRId64 " dropped)\n", state.metrics.size(),
                  state.droppedMetrics);
    for (const ZelMetricsRegistry::Value& metric : state.metrics) {
        out += format("  %s/%s count=%" PRId64, metric.module.c_str(), metric.name.c_str(),
                      metric.count);
        if (metric.timing) {
            out += format(" sum=%" PRId64 "ms buckets", metric.sum);
            for (size_t b = 0; b < metric.buckets.size(); ++b) {
                if (metric.buckets[b] == 0) continue;
                out += format(" %" PRId64 "ms:%" PRId64, ZelMetricsRegistry::bucketFloor(b),
                              metric.buckets[b]);
            }
        }
        out += "\n";
    }
    return out;
}

std::string json(const ZelDaemonState& state) {
    return jsonObject([&state](Writer& writer) {
        number(writer, "now", state.now);
        writer.Key("policy");
        writer.StartObject();
        string(writer, "path", state.policy.path);
        number(writer, "eventGroups", static_cast<int64_t>(state.policy.eventGroups));
        number(writer, "events", static_cast<int64_t>(state.policy.events));
        number(writer, "components", static_cast<int64_t>(state.policy.components));
        number(writer, "tasks", static_cast<int64_t>(state.policy.tasks));
        number(writer, "autoStartTasks", static_cast<int64_t>(state.policy.autoStartTasks));
        writer.EndObject();
        writer.Key("memory");
        writer.StartObject();
        number(writer, "status", state.memory.status);
        writer.Key("value");
        writer.Uint64(state.memory.value);
        writer.Key("threshold");
        writer.Uint64(state.memory.criticalThreshold);
        number(writer, "timestamp", state.memory.timestamp);
        writer.EndObject();
        writer.Key("reaper");
        writer.StartObject();
        string(writer, "state", reaperStateName(state.reaperState));
        writer.Key("purging");
        writer.Bool(state.purgeInProgress);
        writer.Key("purges");
        writer.Uint64(state.purgeCount);
        number(writer, "lastPurgeTime", state.lastPurgeTime);
        writer.EndObject();
        taskTable(writer, "mTaskList", state.tasks, state.now);
        taskTable(writer, "mRunningTaskList", state.running, state.now);
        taskTable(writer, "mPendingTaskList", state.pending, state.now);
        writer.Key("mStoppedTaskList");
        writer.StartArray();
        for (const TaskKey& stopped : state.stopped) {
            writer.StartObject();
            string(writer, "compId", stopped.first);
            string(writer, "taskId", stopped.second);
            writer.EndObject();
        }
        writer.EndArray();
        ids(writer, "clients", state.clients);
        writer.Key("metrics");
        writer.StartArray();
        for (const ZelMetricsRegistry::Value& metric : state.metrics) {
            writer.StartObject();
            string(writer, "module", metric.module);
            string(writer, "name", metric.name);
            number(writer, "count", metric.count);
            if (metric.timing) {
                number(writer, "sum", metric.sum);
                writer.Key("buckets");
                writer.StartArray();
                for (const int64_t bucket : metric.buckets) writer.Int64(bucket);
                writer.EndArray();
            }
            writer.EndObject();
        }
        writer.EndArray();
        number(writer, "droppedMetrics", state.droppedMetrics);
    });
}

std::string text(const ZelEventState& state) {
    std::string out = format("participants: %zu%s\n", state.participants.size(),
                             state.localDelivery ? " (and 1, in-process)" : "");
    if (!state.participants.empty()) out += "  " + joined(state.participants, " ") + "\n";
    out += format("subscriptions: %zu\n", state.subscriptions.size());
    for (const ZelEventState::Subscription& s : state.subscriptions) {
        out += format("  publisher=%d group=%d event=%d subscribers=%s\n", s.publisher, s.groupId,
                      s.eventId, joined(s.subscribers, ",").c_str());
    }
    return out;
}

std::string json(const ZelEventState& state) {
    return jsonObject([&state](Writer& writer) {
        ids(writer, "participants", state.participants);
        writer.Key("localDelivery");
        writer.Bool(state.localDelivery);
        writer.Key("subscriptions");
        writer.StartArray();
        for (const ZelEventState::Subscription& s : state.subscriptions) {
            writer.StartObject();
            number(writer, "publisher", s.publisher);
            number(writer, "groupId", s.groupId);
            number(writer, "eventId", s.eventId);
            ids(writer, "subscribers", s.subscribers);
            writer.EndObject();
        }
        writer.EndArray();
    });
}

}  // namespace ZelDaemonDump
