#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <string>

#include "ZelPolicy.h"

// The task manager's read-only view of the policy. Every query names one task
// by (component identifier, task identifier) and answers a neutral value
// (false, 0, empty) when the task is unknown. Queries are safe from any
// thread: the only lock is the task table's, held for the lookup alone.
class ZelPolicyEngine {
public:
    // Loads the policy file; empty on failure (the loader logs the cause).
    static std::shared_ptr<ZelPolicyEngine> create(const std::string& policyFilePath);

    std::shared_ptr<PolicyTask> findTask(const std::string& compId,
                                         const std::string& taskId) const;
    bool isValidTask(const std::string& compId, const std::string& taskId) const;
    std::string getPriorityType(const std::string& compId, const std::string& taskId) const;
    int32_t getMinimumGuaranteedRuntime(const std::string& compId,
                                        const std::string& taskId) const;  // ms
    bool isPreemptable(const std::string& compId, const std::string& taskId) const;
    TaskKeyList getAllowList(const std::string& compId, const std::string& taskId) const;
    PolicyEventList getStartEvents(const std::string& compId, const std::string& taskId) const;
    PolicyEventList getStopEvents(const std::string& compId, const std::string& taskId) const;

    // Fields of the task's component: neutral also when the component record
    // was dropped (its identifier repeated an earlier component).
    bool isAutoStart(const std::string& compId, const std::string& taskId) const;
    uint32_t getMemoryRequirement(const std::string& compId, const std::string& taskId) const;
    PropertySetting getStartProperty(const std::string& compId, const std::string& taskId) const;
    PropertySetting getStopProperty(const std::string& compId, const std::string& taskId) const;

    std::list<TaskKey> getAutoStartTasks() const;

    // Where the policy came from and how much it holds, for diagnostics.
    struct Summary {
        std::string path;
        size_t eventGroups = 0;
        size_t events = 0;
        size_t components = 0;
        size_t tasks = 0;
        size_t autoStartTasks = 0;
    };
    const Summary& getSummary() const { return mSummary; }

private:
    ZelPolicyEngine(std::shared_ptr<const ZelPolicy> policy, std::string path);

    // A copy of the field of the task (or of its component), or the field
    // type's neutral value (false, 0, empty) when there is none.
    template <typename Field>
    Field taskField(const std::string& compId, const std::string& taskId,
                    Field PolicyTask::*field) const;
    template <typename Field>
    Field componentField(const std::string& compId, const std::string& taskId,
                         Field PolicyComponent::*field) const;

    const std::shared_ptr<const ZelPolicy> mPolicy;
    const Summary mSummary;  // counted once; the policy never changes
};
