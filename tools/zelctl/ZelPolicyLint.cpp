#include "ZelPolicyLint.h"

#include <algorithm>
#include <set>

#include "PolicyJsonMembers.h"
#include "ZelRapidJson.h"
#include "ZelPolicyChains.h"
#include "ZelPolicyCycles.h"

namespace {

using rapidjson::Value;
using namespace PolicyJsonMembers;

constexpr const char* kStartProcessTask = "START_PROCESS";

std::string joinKeys(const TaskKeyList& keys, const char* separator) {
    std::string text;
    for (const TaskKey& key : keys) {
        if (!text.empty()) text += separator;
        text += key.first + "/" + key.second;
    }
    return text;
}

// The array member `name` of an accepted document's object, or an empty one.
const Value::ConstArray arrayOf(const Value& object, const char* name) {
    static const Value kEmpty(rapidjson::kArrayType);
    const Value* value = object.IsObject() ? find(object, name) : nullptr;
    return value != nullptr && value->IsArray() ? value->GetArray() : kEmpty.GetArray();
}

std::string textOf(const Value& object, const char* name) {
    std::string text;
    if (object.IsObject()) (void)readString(object, name, text);
    return text;
}

}  // namespace

std::vector<ZelPolicyFinding> ZelPolicyLint::run(const rapidjson::Document& document,
                                                 const ZelPolicy& policy) {
    Findings findings;
    checkDependencies(policy, findings);
    checkComponents(document, findings);
    checkActionMessages(document, findings);
    checkTasks(policy, findings);
    checkEventIds(policy, findings);
    return findings;
}

void ZelPolicyLint::checkDependencies(const ZelPolicy& policy, Findings& findings) {
    ZelPolicyCycles::Graph graph;
    policy.taskTable->forEach([&](const TaskKey& key, const PolicyTask& task) {
        if (!task.allowList.empty()) graph[key] = task.allowList;
    });
    for (const TaskKeyList& cycle : ZelPolicyCycles::find(graph)) {
        findings.push_back({cycle.front().first, cycle.front().second, "",
                            "dependency cycle " + joinKeys(cycle, " -> ") +
                                    ": the daemon refuses the nested start request that "
                                    "closes the cycle, so none of these tasks can be started "
                                    "while none of them runs"});
    }
    for (const TaskKeyList& chain : ZelPolicyChains::deeperThan(graph, kDeepestChain)) {
        const std::string levels = std::to_string(chain.size() - 1);
        const bool shortened = chain.size() > 6;
        const TaskKeyList shown(chain.begin(), shortened ? chain.begin() + 3 : chain.end());
        findings.push_back(
                {chain.front().first, chain.front().second, "",
                 "a start request walks a dependency chain " + levels + " levels deep (" +
                         joinKeys(shown, " -> ") +
                         (shortened ? " -> ... -> " + joinKeys({chain.back()}, "") : "") +
                         "): each level is a start request nested on one binder thread while "
                         "every other client waits, and each level that meets a purge waits for "
                         "the next memory report, so the request can take " + levels +
                         " memory reports (more than " + std::to_string(kDeepestChain) +
                         " levels: longer than the reaper's 5-second period at one report a "
                         "second)" +
                         (chain.size() - 1 >= kStackChain
                                  ? "; from " + std::to_string(kStackChain) +
                                            " levels on, the daemon refuses the start at the "
                                            "chain's bottom: it nests at most " +
                                            std::to_string(kStackChain) +
                                            " start decisions on one thread"
                                  : std::string())});
    }
}

void ZelPolicyLint::checkComponents(const rapidjson::Document& document, Findings& findings) {
    std::set<std::string> components;
    std::set<TaskKey> tasks;
    for (const Value& element : arrayOf(document, "components")) {
        const std::string id = textOf(element, "identifier");
        std::vector<std::string> taskIds;
        for (const Value& task : arrayOf(element, "tasks")) taskIds.push_back(textOf(task, "identifier"));

        if (!components.insert(id).second) {
            std::string names;
            for (const std::string& taskId : taskIds) names += (names.empty() ? "" : ", ") + taskId;
            findings.push_back(
                    {id, "", "",
                     "the identifier repeats an earlier component; the daemon keeps the first "
                     "definition and drops this one, so its tasks (" + names +
                             ") lose their component: no autostart, no memory requirement, no "
                             "start or stop property"});
        }
        for (const std::string& taskId : taskIds) {
            if (!tasks.insert({id, taskId}).second) {
                findings.push_back({id, taskId, "",
                                    "the task repeats an earlier task of this component; the "
                                    "daemon keeps the first definition and ignores this one"});
            }
        }

        for (const char* member : {"startProperty", "stopProperty"}) {
            const std::string text = textOf(element, member);
            const PropertySetting setting = PropertySetting::fromDocumentText(text);
            if (!text.empty() && (setting.name.empty() || setting.value.empty())) {
                findings.push_back({id, "", "",
                                    std::string(member) + " \"" + text +
                                            "\" does not split into a name and a value at one "
                                            "single space: nothing will be written"});
            }
        }
        const bool hasStartProcess =
                std::find(taskIds.begin(), taskIds.end(), kStartProcessTask) != taskIds.end();
        if (hasStartProcess && PropertySetting::fromDocumentText(textOf(element, "startProperty"))
                                       .name.empty()) {
            findings.push_back({id, kStartProcessTask, "",
                                "the component has no usable startProperty: starting this task "
                                "cannot start the component's process"});
        }
        if (readFlag(element, "autostart", false) && !hasStartProcess) {
            findings.push_back({id, "", "",
                                "autostart is set but the component has no START_PROCESS task: "
                                "nothing of it is started automatically"});
        }
    }
}

void ZelPolicyLint::checkActionMessages(const rapidjson::Document& document, Findings& findings) {
    for (const Value& rule : arrayOf(document, "rules")) {
        const Value* identifier = rule.IsObject() ? find(rule, "identifier") : nullptr;
        if (identifier == nullptr) continue;
        const std::string name = textOf(rule, "name");
        for (const Value& action : arrayOf(rule, "actions")) {
            const Value* message = action.IsObject() ? find(action, "message") : nullptr;
            if (message == nullptr || !message->IsString()) continue;
            const std::string text = toString(*message);
            if (text == "ZEL_TASK_STARTED" || text == "ZEL_TASK_COMPLETED") continue;
            findings.push_back({textOf(*identifier, "componentId"), textOf(*identifier, "taskId"), "",
                                "rule '" + name + "' has the action message '" + text +
                                        "', which is neither ZEL_TASK_STARTED nor "
                                        "ZEL_TASK_COMPLETED: its events are never published"});
        }
    }
}

void ZelPolicyLint::checkTasks(const ZelPolicy& policy, Findings& findings) {
    policy.taskTable->forEach([&](const TaskKey& key, const PolicyTask& task) {
        if (!task.denyList.empty()) {
            findings.push_back({key.first, key.second, "",
                                "deny list (" + joinKeys(task.denyList, ", ") +
                                        ") has no effect: the daemon never consults deny lists"});
        }
        if (task.minimumGuaranteedRuntime > kLongestEnforcedRuntimeMs) {
            findings.push_back({key.first, key.second, "",
                                "minimumGuaranteedRuntime " +
                                        std::to_string(task.minimumGuaranteedRuntime) +
                                        " ms is above 5000 ms: a start granted more than 5000 "
                                        "ms (a client's request is granted the smaller of its "
                                        "own run time and this one) is never ended by the "
                                        "reaper"});
        }
    });
    for (const TaskKey& key : policy.autoStartTasks) {
        const std::shared_ptr<PolicyTask> task = policy.taskTable->find(key);
        const int32_t runtime = task != nullptr ? task->minimumGuaranteedRuntime : -1;
        if (runtime == kUnlimitedRuntimeMs || runtime > kLongestEnforcedRuntimeMs) continue;
        findings.push_back({key.first, key.second, "",
                            "the auto-started process task has a run time of " +
                                    std::to_string(runtime) +
                                    " ms: the reaper ends it after that and the component's "
                                    "process is stopped until the next memory report starts "
                                    "it again; -1 keeps it running"});
    }
}

void ZelPolicyLint::checkEventIds(const ZelPolicy& policy, Findings& findings) {
    std::vector<std::string> groups;
    for (const auto& [name, id] : policy.eventGroups) groups.push_back(name);
    std::sort(groups.begin(), groups.end());
    for (const std::string& group : groups) {
        const int32_t id = policy.eventGroups.at(group);
        const uint8_t carried = static_cast<uint8_t>(id);
        if (carried == 0) {
            findings.push_back({"", "", group,
                                "group id " + std::to_string(id) +
                                        " is carried in 8 bits as 0: the daemon never publishes "
                                        "the group's events"});
        } else if (id != carried) {
            findings.push_back({"", "", group,
                                "group id " + std::to_string(id) + " is carried in 8 bits as " +
                                        std::to_string(carried)});
        }
        const auto events = policy.groupEvents.find(group);
        if (events == policy.groupEvents.end()) continue;
        std::vector<std::string> zeroIds;
        for (const auto& [event, eventId] : events->second) {
            if (eventId == 0) zeroIds.push_back(event);
        }
        std::sort(zeroIds.begin(), zeroIds.end());
        for (const std::string& event : zeroIds) {
            findings.push_back({"", "", group,
                                "event '" + event + "' has id 0: the daemon never publishes it"});
        }
    }
}
