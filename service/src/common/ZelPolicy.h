#pragma once

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>

#include <rapidjson/fwd.h>

#include "PolicyComponent.h"
#include "PolicyEvent.h"
#include "PolicyPropertySetting.h"
#include "PolicyTask.h"
#include "PolicyTaskKey.h"
#include "PolicyTaskTable.h"

// The daemon's read-only policy: event groups, components, their tasks and
// the auto-start list. Filled once by the loader (single-threaded), then only
// read; the policy engine owns it through a shared reference.
class ZelPolicy {
public:
    ZelPolicy();

    // The loader. True only when the whole model was built; a false return
    // leaves a partly filled policy that the caller must discard.
    [[nodiscard]] bool processJsonPolicyFromFile(const std::string& path);
    [[nodiscard]] bool processJsonPolicyFromBuffer(const std::string& text);
    [[nodiscard]] bool processJsonPolicy_v1_0(const rapidjson::Document& root);

    // event group name -> group id
    std::unordered_map<std::string, int32_t> eventGroups;
    // event group name -> (event name -> event id)
    std::unordered_map<std::string, std::unordered_map<std::string, int32_t>> groupEvents;
    // component identifier -> component; the only strong references to components
    std::map<std::string, std::shared_ptr<PolicyComponent>> components;
    std::shared_ptr<PolicyTaskTable> taskTable;
    // "START_PROCESS" tasks of auto-start components, document order
    std::list<TaskKey> autoStartTasks;

private:
    // One function per section of the document, each false when the section
    // refuses the document.
    [[nodiscard]] bool loadEventGroups(const rapidjson::Value& section);
    [[nodiscard]] bool loadComponents(const rapidjson::Value& section);
    [[nodiscard]] bool loadTasks(const rapidjson::Value& element,
                                 const std::shared_ptr<PolicyComponent>& component);
    [[nodiscard]] bool loadRules(const rapidjson::Value& section);
    [[nodiscard]] bool loadRule(const rapidjson::Value& rule);
    [[nodiscard]] bool loadDependencies(const std::string& name, const TaskKey& ruleKey,
                                        const rapidjson::Value& dependencies, PolicyTask& task);
    [[nodiscard]] bool loadAction(const std::string& name, const TaskKey& ruleKey,
                                  const rapidjson::Value& action, PolicyTask& task);
};
