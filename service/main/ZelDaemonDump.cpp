#include "ZelDaemonDump.h"

#include <cinttypes>
#include <utility>

#include "ZelDumpFormat.h"
#include "ZelReaperSync.h"

namespace {

using namespace ZelDumpFormat;

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

}  // namespace

namespace ZelDaemonDump {

ZelDumpFunction function(std::weak_ptr<ZelTaskManager> manager) {
    return [manager = std::move(manager)](const std::vector<int32_t>& clients, bool asJson) {
        ZelDaemonState state;
        if (const std::shared_ptr<ZelTaskManager> locked = manager.lock()) {
            state.manager = locked->snapshot();
            state.metrics = ZelMetricsRegistry::instance().snapshot();
            state.droppedMetrics = ZelMetricsRegistry::instance().dropped();
        }
        state.clients = clients;
        return asJson ? json(state) : text(state);
    };
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
    const ZelTaskManager::State& m = state.manager;
    const ZelPolicyEngine::Summary& policy = m.policy;
    std::string out = format("zeld at monotonic %" PRId64 "s\n", m.now);
    out +=
            format("policy: %s (%zu event groups, %zu events, %zu components, %zu tasks, "
                   "%zu auto-start)\n",
                   policy.path.c_str(), policy.eventGroups, policy.events, policy.components,
                   policy.tasks, policy.autoStartTasks);
    if (m.memory.timestamp == 0) {
        out += "memory: no report yet\n";
    } else {
        out += format("memory: status %u value %" PRIu64 " threshold %" PRIu64 " at %" PRId64
                      "s (%" PRId64 "s ago)\n",
                      m.memory.status, m.memory.value, m.memory.criticalThreshold,
                      m.memory.timestamp, m.now - m.memory.timestamp);
    }
    out += format("reaper: %s, purging %s, %" PRIu64 " purges, last at %" PRId64
                  "s, %d waiting for a purge's end\n",
                  reaperStateName(m.reaper.command), m.reaper.purging ? "yes" : "no",
                  m.reaper.purges, m.reaper.lastPurgeTime, m.reaper.waiting);
    textTable(out, "mTaskList", m.tasks, m.now);
    textTable(out, "mRunningTaskList", m.running, m.now);
    textTable(out, "mPendingTaskList", m.pending, m.now);
    out += format("mStoppedTaskList: %zu\n", m.stopped.size());
    for (const TaskKey& key : m.stopped) {
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
    const ZelTaskManager::State& m = state.manager;
    return jsonObject([&state, &m](Writer& writer) {
        number(writer, "now", m.now);
        writer.Key("policy");
        writer.StartObject();
        string(writer, "path", m.policy.path);
        number(writer, "eventGroups", static_cast<int64_t>(m.policy.eventGroups));
        number(writer, "events", static_cast<int64_t>(m.policy.events));
        number(writer, "components", static_cast<int64_t>(m.policy.components));
        number(writer, "tasks", static_cast<int64_t>(m.policy.tasks));
        number(writer, "autoStartTasks", static_cast<int64_t>(m.policy.autoStartTasks));
        writer.EndObject();
        writer.Key("memory");
        writer.StartObject();
        number(writer, "status", m.memory.status);
        writer.Key("value");
        writer.Uint64(m.memory.value);
        writer.Key("threshold");
        writer.Uint64(m.memory.criticalThreshold);
        number(writer, "timestamp", m.memory.timestamp);
        writer.EndObject();
        writer.Key("reaper");
        writer.StartObject();
        string(writer, "state", reaperStateName(m.reaper.command));
        writer.Key("purging");
        writer.Bool(m.reaper.purging);
        writer.Key("purges");
        writer.Uint64(m.reaper.purges);
        number(writer, "lastPurgeTime", m.reaper.lastPurgeTime);
        number(writer, "waiting", m.reaper.waiting);
        writer.EndObject();
        taskTable(writer, "mTaskList", m.tasks, m.now);
        taskTable(writer, "mRunningTaskList", m.running, m.now);
        taskTable(writer, "mPendingTaskList", m.pending, m.now);
        writer.Key("mStoppedTaskList");
        writer.StartArray();
        for (const TaskKey& stopped : m.stopped) {
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

}  // namespace ZelDaemonDump
