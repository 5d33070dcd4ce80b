// libFuzzer target: any text handed to the policy loader is either accepted
// into a consistent model or refused; it never crashes or reads a JSON value
// as a type it does not hold (UBSan and RapidJSON's asserts would stop it).

#include <log/log.h>
#include <zel/ZelHostLog.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "ZelRapidJson.h"
#include "ZelPolicy.h"

namespace {

void require(bool condition) {
    if (!condition) __builtin_trap();
}

// Every key the model refers to names a task of the table.
void checkModel(const ZelPolicy& policy) {
    std::vector<TaskKey> referenced(policy.autoStartTasks.begin(), policy.autoStartTasks.end());
    policy.taskTable->forEach([&](const TaskKey& key, const PolicyTask& task) {
        require(key.second == task.identifier);
        referenced.insert(referenced.end(), task.allowList.begin(), task.allowList.end());
        referenced.insert(referenced.end(), task.denyList.begin(), task.denyList.end());
    });
    for (const TaskKey& key : referenced) require(policy.taskTable->find(key) != nullptr);
    for (const auto& [id, component] : policy.components) require(component->identifier == id);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool kQuiet = (zel::hostlog::setStderrMinPriority(ANDROID_LOG_SILENT), true);
    (void)kQuiet;
    const std::string text(reinterpret_cast<const char*>(data), size);

    ZelPolicy policy;
    if (policy.processJsonPolicyFromBuffer(text)) checkModel(policy);

    // The loader parses iteratively; it must accept exactly what the default
    // recursive parser accepts (inputs are small enough for its recursion).
    if (size <= 64 * 1024) {
        rapidjson::Document recursive;
        rapidjson::Document iterative;
        recursive.Parse(text.c_str());
        iterative.Parse<rapidjson::kParseIterativeFlag>(text.c_str());
        require(recursive.HasParseError() == iterative.HasParseError());
    }
    return 0;
}
