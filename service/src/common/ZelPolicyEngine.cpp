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
    return std::shared_ptr<ZelPolicyEngine>(new ZelPolicyEngine(std::move(policy)));
}

ZelPolicyEngine::ZelPolicyEngine(std::shared_ptr<const ZelPolicy> policy)
    : mPolicy(std::move(policy)) {}

std::shared_ptr<PolicyTask> ZelPolicyEngine::findTask(const std::string& compId,
                                                      const std::string& taskId) const {
    return mPolicy->taskTable->find(TaskKey(compId, taskId));
}

std::shared_ptr<const PolicyComponent> ZelPolicyEngine::findComponent(
        const std::string& compId, const std::string& taskId) const {
    const auto task = findTask(compId, taskId);
    return task ? task->component.lock() : nullptr;
}

bool ZelPolicyEngine::isValidTask(const std::string& compId, const std::string& taskId) const {
    return findTask(compId, taskId) != nullptr;
}

std::string ZelPolicyEngine::getPriorityType(const std::string& compId,
                                             const std::string& taskId) const {
    const auto task = findTask(compId, taskId);
    return task ? task->priorityType : std::string();
}

int32_t ZelPolicyEngine::getMinimumGuaranteedRuntime(const std::string& compId,
                                                     const std::string& taskId) const {
    const auto task = findTask(compId, taskId);
    return task ? task->minimumGuaranteedRuntime : 0;
}

bool ZelPolicyEngine::isPreemptable(const std::string& compId, const std::string& taskId) const {
    const auto task = findTask(compId, taskId);
    return task ? task->preempt : false;
}

TaskKeyList ZelPolicyEngine::getAllowList(const std::string& compId,
                                          const std::string& taskId) const {
    const auto task = findTask(compId, taskId);
    return task ? task->allowList : TaskKeyList();
}

PolicyEventList ZelPolicyEngine::getStartEvents(const std::string& compId,
                                                const std::string& taskId) const {
    const auto task = findTask(compId, taskId);
    return task ? task->startEvents : PolicyEventList();
}

PolicyEventList ZelPolicyEngine::getStopEvents(const std::string& compId,
                                               const std::string& taskId) const {
    const auto task = findTask(compId, taskId);
    return task ? task->stopEvents : PolicyEventList();
}

bool ZelPolicyEngine::isAutoStart(const std::string& compId, const std::string& taskId) const {
    const auto component = findComponent(compId, taskId);
    return component ? component->autostart : false;
}

uint32_t ZelPolicyEngine::getMemoryRequirement(const std::string& compId,
                                               const std::string& taskId) const {
    const auto component = findComponent(compId, taskId);
    return component ? component->memoryRequirement : 0;
}

PropertySetting ZelPolicyEngine::getStartProperty(const std::string& compId,
                                                  const std::string& taskId) const {
    const auto component = findComponent(compId, taskId);
    return component ? component->startProperty : PropertySetting();
}

PropertySetting ZelPolicyEngine::getStopProperty(const std::string& compId,
                                                 const std::string& taskId) const {
    const auto component = findComponent(compId, taskId);
    return component ? component->stopProperty : PropertySetting();
}

std::list<TaskKey> ZelPolicyEngine::getAutoStartTasks() const {
    return mPolicy->autoStartTasks;
}
