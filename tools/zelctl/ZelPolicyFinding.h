#pragma once

#include <ostream>
#include <string>
#include <utility>

// Something a policy the daemon accepts would do wrong on a device.
struct ZelPolicyFinding {
    ZelPolicyFinding() = default;
    ZelPolicyFinding(std::string component, std::string task, std::string group, std::string text)
        : component(std::move(component)),
          task(std::move(task)),
          group(std::move(group)),
          text(std::move(text)) {}

    std::string component;  // empty when the finding concerns an event group
    std::string task;       // empty when it concerns a whole component
    std::string group;      // event group, for event id findings
    std::string text;
    std::string path;       // the JSON path of the value concerned, if any
    bool atKey = false;     // the member's name concerned rather than its value
    std::string where;      // "line L, column C" of the path, once located

    // "warning: component 'c', task 't': text (at path, line L, column C)";
    // names with control characters show them escaped.
    void print(std::ostream& stream) const;
};
