#include "ZelPolicyFinding.h"

#include <cstdio>

namespace {

std::string shown(const std::string& name) {
    std::string out;
    for (const char c : name) {
        if (static_cast<unsigned char>(c) >= 0x20) {
            out += c;
            continue;
        }
        char escaped[8];
        snprintf(escaped, sizeof(escaped), "\\u%04x", static_cast<unsigned char>(c));
        out += escaped;
    }
    return out;
}

}  // namespace

void ZelPolicyFinding::print(std::ostream& stream) const {
    std::string who;
    if (!component.empty()) who += "component '" + shown(component) + "'";
    if (!task.empty()) who += (who.empty() ? "" : ", ") + std::string("task '") + shown(task) + "'";
    if (!group.empty()) who += (who.empty() ? "" : ", ") + std::string("event group '") + shown(group) + "'";
    stream << "warning: " << who << (who.empty() ? "" : ": ") << text;
    if (!path.empty()) stream << " (at " << path << (where.empty() ? "" : ", " + where) << ")";
    stream << "\n";
}
