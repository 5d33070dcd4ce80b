#include "ZelPolicyEngine.h"

#include <new>
#include <utility>

#include "ZelLog.h"

std::shared_ptr<ZelPolicyEngine> ZelPolicyEngine::create(const std::string& policyFilePath) {
    ZEL_LOGD("creating ZelPolicyEngine");
    std::shared_ptr<ZelPolicy> policy(new (std::nothrow) ZelPolicy());
    if (!policy || !policy->processJsonPolicyFromFile(policyFilePath)) {
        ZEL_LOGE("Failed to construct ZEL policy");
        return nullptr;
    }
    return std::shared_ptr<ZelPolicyEngine>(new ZelPolicyEngine(std::move(policy), policyFilePath));
}

namespace {

ZelPolicyEngine::Summary summarise(const ZelPolicy& policy, std::string path) {
    ZelPolicyEngine::Summary summary;
    summary.path = std::move(path);
    summary.eventGroups = policy.eventGroups.size();
    for (const auto& group : policy.groupEvents) summary.events += group.second.size();
    summary.components = policy.components.size();
    summary.tasks = policy.taskTable ? policy.taskTable->size() : 0;
    summary.autoStartTasks = policy.autoStartTasks.size();
    return summary;
}

}  // namespace

ZelPolicyEngine::ZelPolicyEngine(std::shared_ptr<const ZelPolicy> policy, std::string path)
    : mPolicy(std::move(policy)), mSummary(summarise(*mPolicy, std::move(path))) {}

std::shared_ptr<PolicyTask> ZelPolicyEngine::findTask(const std::string& compId,
                                                      const std::string& taskId) const {
    return mPolicy->taskTable->find(TaskKey(compId, taskId));
}

template <typename Field>
Field ZelPolicyEngine::taskField(const std::string& compId, const std::string& taskId,
                                 Field PolicyTask::*field) const {
    const auto task = findTask(compId, taskId);
    return task ? (*task).*field : Field();
}

template <typename Field>
Field ZelPolicyEngine::componentField(const std::string& compId, const std::string& taskId,
                                      Field PolicyComponent::*field) const {
    const auto task = findTask(compId, taskId);
    const auto component = task ? task->component.lock() : nullptr;
    return component ? (*component).*field : Field();
}

bool ZelPolicyEngine::isValidTask(const std::string& compId, const std::string& taskId) const {
    return findTask(compId, taskId) != nullptr;
}

std::string ZelPolicyEngine::getPriorityType(const std::string& compId,
                                             const std::string& taskId) const {
    return taskField(compId, taskId, &PolicyTask::priorityType);
}

int32_t ZelPolicyEngine::getMinimumGuaranteedRuntime(const std::string& compId,
                                                     const std::string& taskId) const {
    return taskField(compId, taskId, &PolicyTask::minimumGuaranteedRuntime);
}

bool ZelPolicyEngine::isPreemptable(const std::string& compId, const std::string& taskId) const {
    return taskField(compId, taskId, &PolicyTask::preempt);
}

TaskKeyList ZelPolicyEngine::getAllowList(const std::string& compId,
                                          const std::string& taskId) const {
    return taskField(compId, taskId, &PolicyTask::allowList);
}

PolicyEventList ZelPolicyEngine::getStartEvents(const std::string& compId,
                                                const std::string& taskId) const {
    return taskField(compId, taskId, &PolicyTask::startEvents);
}

PolicyEventList ZelPolicyEngine::getStopEvents(const std::string& compId,
                                               const std::string& taskId) const {
    return taskField(compId, taskId, &PolicyTask::stopEvents);
}

bool ZelPolicyEngine::isAutoStart(const std::string& compId, const std::string& taskId) const {
    return componentField(compId, taskId, &PolicyComponent::autostart);
}

uint32_t ZelPolicyEngine::getMemoryRequirement(const std::string& compId,
                                               const std::string& taskId) const {
    return componentField(compId, taskId, &PolicyComponent::memoryRequirement);
}

PropertySetting ZelPolicyEngine::getStartProperty(const std::string& compId,
                                                  const std::string& taskId) const {
    return componentField(compId, taskId, &PolicyComponent::startProperty);
}

PropertySetting ZelPolicyEngine::getStopProperty(const std::string& compId,
                                                 const std::string& taskId) const {
    return componentField(compId, taskId, &PolicyComponent::stopProperty);
}

std::list<TaskKey> ZelPolicyEngine::getAutoStartTasks() const {
    return mPolicy->autoStartTasks;
}
