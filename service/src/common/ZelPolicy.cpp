#include "ZelPolicy.h"

#include <cstdio>
#include <memory>
#include <utility>

#include "PolicyJsonMembers.h"
#include "ZelRapidJson.h"
#include "ZelLog.h"

// Every line of the loader names one of the three entry points, so the log
// names the stage (file, parse and version, document walk) that produced it;
// the walk is split into one function per section of the document.

namespace {

using rapidjson::Value;
using namespace PolicyJsonMembers;

constexpr const char* kStartProcessTask = "START_PROCESS";
constexpr const char* kTaskStartedMessage = "ZEL_TASK_STARTED";
constexpr const char* kTaskCompletedMessage = "ZEL_TASK_COMPLETED";

struct FileCloser {
    void operator()(FILE* file) const { fclose(file); }
};

bool readWholeFile(FILE* file, std::string& text) {
    char buffer[64 * 1024];
    size_t count;
    while ((count = fread(buffer, 1, sizeof(buffer), file)) > 0) text.append(buffer, count);
    return ferror(file) == 0;
}

// A rule's dependency list: its JSON key, its name in log texts, its target.
struct DependencyList {
    const char* jsonKey;
    const char* logName;
    TaskKeyList PolicyTask::*list;
};

}  // namespace

ZelPolicy::ZelPolicy() : taskTable(std::make_shared<PolicyTaskTable>()) {
    eventGroups.max_load_factor(1.0f);
    groupEvents.max_load_factor(1.0f);
}

bool ZelPolicy::processJsonPolicyFromFile(const std::string& path) {
    ZEL_LOGD("building ZelPolicy from file '%s'", path.c_str());
    std::unique_ptr<FILE, FileCloser> file(fopen(path.c_str(), "r"));
    if (!file) {
        ZEL_LOGE("Invalid ZEL policy file '%s'", path.c_str());
        return false;
    }
    // A read error leaves a truncated text, which the parser then refuses.
    std::string text;
    (void)readWholeFile(file.get(), text);
    file.reset();
    return processJsonPolicyFromBuffer(text);
}

bool ZelPolicy::processJsonPolicyFromBuffer(const std::string& text) {
    rapidjson::Document document;
    // Iterative parsing accepts exactly the documents the default recursive
    // parser accepts, but deep nesting cannot exhaust the thread's stack. The
    // text ends at its first NUL byte.
    document.Parse<rapidjson::kParseIterativeFlag>(text.c_str());
    if (!document.IsObject()) {
        ZEL_LOGE("Invalid ZEL policy file format");
        return false;
    }
    const Value* version = find(document, "version");
    if (version == nullptr || !version->IsDouble()) {
        ZEL_LOGE("ZEL policy doc is missing version");
        return false;
    }
    // Other versions are refused without a message.
    if (version->GetDouble() != 1.0) return false;
    return processJsonPolicy_v1_0(document);
}

// The document walk's lines name processJsonPolicy_v1_0 whichever section
// function writes them: the log names the stage, not the helper.
#define WALK_LOGD(...) ZEL_LOGD_AS("ZelPolicy", "processJsonPolicy_v1_0", __VA_ARGS__)
#define WALK_LOGI(...) ZEL_LOGI_AS("ZelPolicy", "processJsonPolicy_v1_0", __VA_ARGS__)
#define WALK_LOGW(...) ZEL_LOGW_AS("ZelPolicy", "processJsonPolicy_v1_0", __VA_ARGS__)
#define WALK_LOGE(...) ZEL_LOGE_AS("ZelPolicy", "processJsonPolicy_v1_0", __VA_ARGS__)

bool ZelPolicy::processJsonPolicy_v1_0(const rapidjson::Document& root) {
    // The document's sections, walked in document order.
    const Value* eventGroups = root.IsObject() ? find(root, "eventGroups") : nullptr;
    const Value* components = root.IsObject() ? find(root, "components") : nullptr;
    const Value* rules = root.IsObject() ? find(root, "rules") : nullptr;
    if (eventGroups == nullptr || components == nullptr || rules == nullptr) {
        WALK_LOGE("ZEL policy doc has no events, components, or rules");
        return false;
    }
    return loadEventGroups(*eventGroups) && loadComponents(*components) && loadRules(*rules);
}

// Event groups and their events. A repeated name keeps its first id.
bool ZelPolicy::loadEventGroups(const Value& section) {
    if (!section.IsArray()) {
        WALK_LOGE("Invalid event group definition in ZEL policy document.");
        return false;
    }
    for (const Value& group : section.GetArray()) {
        std::string groupName;
        int32_t groupId = 0;
        if (!group.IsObject() || !readString(group, "groupName", groupName) ||
            !readInt(group, "groupId", groupId)) {
            WALK_LOGE("Invalid event group definition in ZEL policy document.");
            return false;
        }
        WALK_LOGD("Added event group (%s, %d)", groupName.c_str(), groupId);
        eventGroups.emplace(groupName, groupId);
        auto& groupMap = groupEvents[groupName];
        groupMap.max_load_factor(1.0f);
        const Value* events = find(group, "events");
        if (events == nullptr || !events->IsArray()) {
            WALK_LOGE("Invalid event definition for eventGroup %s", groupName.c_str());
            return false;
        }
        for (const Value& event : events->GetArray()) {
            std::string eventName;
            int32_t eventId = 0;
            if (!event.IsObject() || !readString(event, "eventName", eventName) ||
                !readInt(event, "eventId", eventId)) {
                WALK_LOGE("Invalid event definition in ZEL policy document.");
                return false;
            }
            WALK_LOGD("Added event (%s, %d) to eventGroup %s", eventName.c_str(), eventId,
                      groupName.c_str());
            groupMap.emplace(std::move(eventName), eventId);
        }
    }
    WALK_LOGI("Parsed eventGroups and events");
    return true;
}

// Components and their tasks. A component whose identifier repeats an
// earlier one is not kept, so its tasks' weak references expire when
// `component` goes out of scope at the end of its element.
bool ZelPolicy::loadComponents(const Value& section) {
    if (!section.IsArray()) {
        WALK_LOGE("Invalid component definition in ZEL policy document.");
        return false;
    }
    for (const Value& element : section.GetArray()) {
        auto component = std::make_shared<PolicyComponent>();
        std::string startProperty;
        std::string stopProperty;
        if (!element.IsObject() || !readString(element, "identifier", component->identifier) ||
            !readString(element, "processName", component->processName) ||
            !readOptionalString(element, "startProperty", startProperty) ||
            !readOptionalString(element, "stopProperty", stopProperty) ||
            !readOptionalUint(element, "memoryRequirement", component->memoryRequirement)) {
            WALK_LOGE("Invalid component definition in ZEL policy document.");
            return false;
        }
        component->startProperty = PropertySetting::fromDocumentText(startProperty);
        component->stopProperty = PropertySetting::fromDocumentText(stopProperty);
        component->autostart = readFlag(element, "autostart", false);
        WALK_LOGI("Added component (%s, %s)", component->identifier.c_str(),
                  component->processName.c_str());
        components.emplace(component->identifier, component);
        if (!loadTasks(element, component)) return false;
    }
    return true;
}

// One component's tasks.
bool ZelPolicy::loadTasks(const Value& element, const std::shared_ptr<PolicyComponent>& component) {
    const std::string& compId = component->identifier;
    const Value* tasks = find(element, "tasks");
    if (tasks == nullptr || !tasks->IsArray()) {
        WALK_LOGE("Invalid task definition for component %s", compId.c_str());
        return false;
    }
    for (const Value& taskValue : tasks->GetArray()) {
        auto task = std::make_shared<PolicyTask>();
        if (!taskValue.IsObject() || !readString(taskValue, "identifier", task->identifier) ||
            !readString(taskValue, "priorityType", task->priorityType) ||
            !readOptionalInt(taskValue, "priorityValue", task->priorityValue) ||
            !readOptionalInt(taskValue, "minimumGuaranteedRuntime",
                             task->minimumGuaranteedRuntime)) {
            WALK_LOGE("Missing required task object members in ZEL policy document for "
                      "component %s",
                      compId.c_str());
            return false;
        }
        task->preempt = readFlag(taskValue, "preempt", true);
        task->component = component;
        const std::string& taskId = task->identifier;
        WALK_LOGD("Added task (%s, %s) to component %s", taskId.c_str(),
                  task->priorityType.c_str(), compId.c_str());
        taskTable->insert(TaskKey(compId, taskId), task);
        if (component->autostart && taskId == kStartProcessTask) {
            autoStartTasks.emplace_back(compId, taskId);
            // The text names task then component while the arguments give
            // component then task: readers of the log rely on this form.
            WALK_LOGD("Auto start task %s, in component %s", compId.c_str(), taskId.c_str());
        }
    }
    return true;
}

// Rules: dependencies and events attached to existing tasks.
bool ZelPolicy::loadRules(const Value& section) {
    if (!section.IsArray()) {
        WALK_LOGE("Invalid rules definition in ZEL policy document.");
        return false;
    }
    for (const Value& rule : section.GetArray()) {
        if (!loadRule(rule)) return false;
    }
    return true;
}

bool ZelPolicy::loadRule(const Value& rule) {
    std::string name;
    if (!rule.IsObject() || !readOptionalString(rule, "name", name)) {
        WALK_LOGE("Invalid rule definition in ZEL policy document.");
        return false;
    }
    const Value* identifier = find(rule, "identifier");
    if (identifier == nullptr) {
        WALK_LOGW("Rule '%s' definition does not include indentifier member.", name.c_str());
        return false;
    }
    TaskKey ruleKey;
    if (!identifier->IsObject() || !readString(*identifier, "componentId", ruleKey.first) ||
        !readString(*identifier, "taskId", ruleKey.second)) {
        WALK_LOGW("Rule '%s' definition includes invalid indentifier member.", name.c_str());
        return false;
    }
    const std::shared_ptr<PolicyTask> task = taskTable->find(ruleKey);
    if (!task) {
        WALK_LOGW("Rule '%s' definition includes invalid component:%s,task:%s", name.c_str(),
                  ruleKey.first.c_str(), ruleKey.second.c_str());
        return false;
    }
    const Value* dependencies = find(rule, "dependencies");
    if (dependencies == nullptr || !dependencies->IsObject()) {
        WALK_LOGI("Rule '%s' definition doesn't has any dependencies defined", name.c_str());
    } else if (!loadDependencies(name, ruleKey, *dependencies, *task)) {
        return false;
    }
    const Value* actions = find(rule, "actions");
    if (actions == nullptr || !actions->IsArray()) {
        WALK_LOGW("Rule '%s' definition includes invalid actions member.", name.c_str());
        return false;
    }
    for (const Value& action : actions->GetArray()) {
        if (!loadAction(name, ruleKey, action, *task)) return false;
    }
    return true;
}

// A rule's allow and deny lists; each entry must name a known task.
bool ZelPolicy::loadDependencies(const std::string& name, const TaskKey& ruleKey,
                                 const Value& dependencies, PolicyTask& task) {
    for (const DependencyList& kind :
         {DependencyList{"allowlist", "allowList", &PolicyTask::allowList},
          DependencyList{"denylist", "denyList", &PolicyTask::denyList}}) {
        const Value* entries = find(dependencies, kind.jsonKey);
        if (entries == nullptr || !entries->IsArray()) {
            WALK_LOGI("Rule '%s' definition doesn't include %s member.", name.c_str(),
                      kind.logName);
            continue;
        }
        for (const Value& entry : entries->GetArray()) {
            TaskKey dependency;
            if (!entry.IsObject() || !readString(entry, "componentId", dependency.first) ||
                !readString(entry, "taskId", dependency.second)) {
                WALK_LOGW("Rule '%s' definition includes invalid %s member.", name.c_str(),
                          kind.logName);
                return false;
            }
            if (!taskTable->find(dependency)) {
                WALK_LOGW("Rule '%s' definition includes invalid %s component/task(%s,%s)",
                          name.c_str(), kind.logName, dependency.first.c_str(),
                          dependency.second.c_str());
                return false;
            }
            WALK_LOGI("Comp:%s, Task:%s depends on Comp:%s, Task:%s", ruleKey.first.c_str(),
                      ruleKey.second.c_str(), dependency.first.c_str(), dependency.second.c_str());
            (task.*kind.list).push_back(std::move(dependency));
        }
    }
    return true;
}

// One action of a rule: the events to publish when the task starts or
// completes. Pieces without a message or events are skipped; pieces of the
// wrong type refuse the document.
bool ZelPolicy::loadAction(const std::string& name, const TaskKey& ruleKey, const Value& action,
                           PolicyTask& task) {
    const Value* message = action.IsObject() ? find(action, "message") : nullptr;
    const Value* events = action.IsObject() ? find(action, "events") : nullptr;
    if (message == nullptr || events == nullptr) {
        WALK_LOGW("Rule '%s' definition doesn't includes actions member.", name.c_str());
        return true;
    }
    if (!message->IsString()) {
        WALK_LOGW("Rule '%s' definition doesn't includes actions member.", name.c_str());
        return false;
    }
    const std::string messageText = toString(*message);
    if (!events->IsArray()) {
        WALK_LOGW("Action '%s' definition doesn't includes events member.", messageText.c_str());
        return true;
    }
    for (const Value& entry : events->GetArray()) {
        const Value* groupName = entry.IsObject() ? find(entry, "eventGroup") : nullptr;
        const Value* eventName = entry.IsObject() ? find(entry, "eventName") : nullptr;
        if (groupName == nullptr || eventName == nullptr) {
            WALK_LOGW("Action '%s' definition includes invalid event.", messageText.c_str());
            continue;
        }
        if (!groupName->IsString() || !eventName->IsString()) {
            WALK_LOGW("Action '%s' definition includes invalid event.", messageText.c_str());
            return false;
        }
        const std::string group = toString(*groupName);
        const std::string event = toString(*eventName);
        const auto groupId = eventGroups.find(group);
        const auto groupMap = groupEvents.find(group);
        if (groupId == eventGroups.end() || groupMap == groupEvents.end()) {
            WALK_LOGW("Action '%s' definition includes invalid event group '%s'.",
                      messageText.c_str(), group.c_str());
            return false;
        }
        const auto eventId = groupMap->second.find(event);
        if (eventId == groupMap->second.end()) {
            WALK_LOGW("Action '%s' definition includes invalid event '%s'.", messageText.c_str(),
                      event.c_str());
            return false;
        }
        // The event service carries group ids in 8 bits.
        const PolicyEvent policyEvent{static_cast<uint8_t>(groupId->second), eventId->second};
        if (messageText == kTaskStartedMessage) {
            task.startEvents.push_back(policyEvent);
            WALK_LOGD("Added start event (%s, %s) to '%s'", group.c_str(), event.c_str(),
                      ruleKey.second.c_str());
        } else if (messageText == kTaskCompletedMessage) {
            task.stopEvents.push_back(policyEvent);
            WALK_LOGD("Added stop event (%s, %s) to '%s'", group.c_str(), event.c_str(),
                      ruleKey.second.c_str());
        }
    }
    return true;
}
