#include "ZelPolicyGraph.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <vector>

namespace {

// A DOT quoted string.
std::string quoted(const std::string& text) {
    std::string result = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            result += '\\';
            result += c;
        } else if (c == '\n') {
            result += "\\n";
        } else if (static_cast<unsigned char>(c) < 0x20) {
            char escaped[8];
            snprintf(escaped, sizeof(escaped), "\\\\x%02x", static_cast<unsigned char>(c));
            result += escaped;
        } else {
            result += c;
        }
    }
    return result + "\"";
}

}  // namespace

void ZelPolicyGraph::writeDot(const ZelPolicy& policy, std::ostream& out) {
    std::map<std::string, std::vector<std::pair<std::string, const PolicyTask*>>> byComponent;
    std::vector<std::pair<TaskKey, const PolicyTask*>> tasks;
    policy.taskTable->forEach([&](const TaskKey& key, const PolicyTask& task) {
        tasks.emplace_back(key, &task);
    });
    // Nodes are numbered in key order: identifiers may hold any character.
    std::map<TaskKey, std::string> nodeIds;
    for (const auto& [key, task] : tasks) {
        byComponent[key.first].emplace_back(key.second, task);
        nodeIds.emplace(key, "t" + std::to_string(nodeIds.size()));
    }

    out << "digraph zel_policy {\n";
    out << "  rankdir=LR;\n";
    out << "  node [shape=box];\n";
    int cluster = 0;
    for (const auto& [component, members] : byComponent) {
        out << "  subgraph cluster_" << cluster++ << " {\n";
        out << "    label=" << quoted(component) << ";\n";
        for (const auto& [taskId, task] : members) {
            const TaskKey key(component, taskId);
            out << "    " << nodeIds.at(key) << " [label=" << quoted(taskId);
            if (std::find(policy.autoStartTasks.begin(), policy.autoStartTasks.end(), key) !=
                policy.autoStartTasks.end()) {
                out << ", peripheries=2";
            }
            if (task->priorityType == "ZEL_TASK_CRITICAL") out << ", color=red";
            out << "];\n";
        }
        out << "  }\n";
    }
    for (const auto& [key, task] : tasks) {
        for (const TaskKey& dependency : task->allowList) {
            out << "  " << nodeIds.at(key) << " -> " << nodeIds.at(dependency) << ";\n";
        }
        for (const TaskKey& denied : task->denyList) {
            out << "  " << nodeIds.at(key) << " -> " << nodeIds.at(denied)
                << " [style=dashed, label=\"deny\"];\n";
        }
    }
    out << "}\n";
}
