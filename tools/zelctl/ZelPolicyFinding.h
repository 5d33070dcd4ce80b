#pragma once

#include <ostream>
#include <string>

// Something a policy the daemon accepts would do wrong on a device.
struct ZelPolicyFinding {
    std::string component;  // empty when the finding concerns an event group
    std::string task;       // empty when it concerns a whole component
    std::string group;      // event group, for event id findings
    std::string text;

    // "warning: component 'c', task 't': text"
    void print(std::ostream& stream) const;
};
