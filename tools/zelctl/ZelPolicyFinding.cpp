#include "ZelPolicyFinding.h"

void ZelPolicyFinding::print(std::ostream& stream) const {
    stream << "warning: ";
    if (!component.empty()) stream << "component '" << component << "'";
    if (!task.empty()) stream << ", task '" << task << "'";
    if (!group.empty()) stream << "event group '" << group << "'";
    stream << ": " << text << "\n";
}
