#include "PolicyDocumentGenerator.h"

std::string generatePolicyDocument(int components, int tasksPerComponent, int eventGroups) {
    constexpr int kEventsPerGroup = 100;
    std::string text = "{\n  \"version\": 1.0,\n  \"eventGroups\": [\n";
    for (int g = 0; g < eventGroups; ++g) {
        text += "    {\"groupName\": \"group" + std::to_string(g) + "\", \"groupId\": " +
                std::to_string(g + 1) + ", \"events\": [";
        for (int e = 0; e < kEventsPerGroup; ++e) {
            text += std::string(e ? ", " : "") + "{\"eventName\": \"event" + std::to_string(e) +
                    "\", \"eventId\": " + std::to_string(e + 1) + "}";
        }
        text += g + 1 < eventGroups ? "]},\n" : "]}\n";
    }
    text += "  ],\n  \"components\": [\n";
    for (int c = 0; c < components; ++c) {
        const std::string id = "component" + std::to_string(c);
        text += "    {\"identifier\": \"" + id + "\", \"processName\": \"" + id +
                "d\", \"startProperty\": \"ctl.start " + id + "d\", \"stopProperty\": \"ctl.stop " +
                id + "d\", \"memoryRequirement\": " + std::to_string(c % 64) +
                ", \"autostart\": " + (c % 4 == 0 ? "true" : "false") + ", \"tasks\": [";
        for (int t = 0; t < tasksPerComponent; ++t) {
            text += std::string(t ? ", " : "") + "{\"identifier\": \"" +
                    (t == 0 ? std::string("START_PROCESS") : "task" + std::to_string(t)) +
                    "\", \"priorityType\": \"ZEL_TASK_NORMAL\", \"priorityValue\": " +
                    std::to_string(t + 1) + ", \"minimumGuaranteedRuntime\": 4000, \"preempt\": " +
                    (t % 2 ? "true" : "false") + "}";
        }
        text += c + 1 < components ? "]},\n" : "]}\n";
    }
    text += "  ],\n  \"rules\": [\n";
    const std::string lastTask =
            tasksPerComponent > 1 ? "task" + std::to_string(tasksPerComponent - 1) : "START_PROCESS";
    for (int c = 0; c < components; ++c) {
        const std::string id = "component" + std::to_string(c);
        const std::string group = "group" + std::to_string(c % eventGroups);
        text += "    {\"name\": \"rule" + std::to_string(c) + "\", \"identifier\": {\"componentId\": \"" +
                id + "\", \"taskId\": \"" + lastTask +
                "\"}, \"dependencies\": {\"allowlist\": [{\"componentId\": \"" + id +
                "\", \"taskId\": \"START_PROCESS\"}], \"denylist\": []}, \"actions\": ["
                "{\"message\": \"ZEL_TASK_STARTED\", \"events\": [{\"eventGroup\": \"" + group +
                "\", \"eventName\": \"event" + std::to_string(c % 100) + "\"}]}, "
                "{\"message\": \"ZEL_TASK_COMPLETED\", \"events\": [{\"eventGroup\": \"" + group +
                "\", \"eventName\": \"event" + std::to_string((c + 1) % 100) + "\"}]}]}";
        text += c + 1 < components ? ",\n" : "\n";
    }
    text += "  ]\n}\n";
    return text;
}
