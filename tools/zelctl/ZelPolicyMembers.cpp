#include "ZelPolicyMembers.h"

#include <algorithm>
#include <cctype>

#include "ZelRapidJson.h"

namespace ZelPolicyMembers {

namespace {

constexpr size_t kLongestShownString = 40;

using T = Type;
using E = Effect;

// Each table lists the members in the order the loader reads them.
const std::vector<Member> kRoot = {
        {"version", T::kDouble, E::kRefuses, E::kRefuses, "", ""},
        {"eventGroups", T::kArray, E::kRefuses, E::kRefuses, "", ""},
        {"components", T::kArray, E::kRefuses, E::kRefuses, "", ""},
        {"rules", T::kArray, E::kRefuses, E::kRefuses, "", ""},
};
const std::vector<Member> kGroup = {
        {"groupName", T::kString, E::kRefuses, E::kRefuses, "", ""},
        {"groupId", T::kInt32, E::kRefuses, E::kRefuses, "", ""},
        {"events", T::kArray, E::kRefuses, E::kRefuses, "", ""},
};
const std::vector<Member> kEvent = {
        {"eventName", T::kString, E::kRefuses, E::kRefuses, "", ""},
        {"eventId", T::kInt32, E::kRefuses, E::kRefuses, "", ""},
};
const std::vector<Member> kComponent = {
        {"identifier", T::kString, E::kRefuses, E::kRefuses, "", ""},
        {"processName", T::kString, E::kRefuses, E::kRefuses, "", ""},
        {"startProperty", T::kString, E::kDefault, E::kRefuses, "none", ""},
        {"stopProperty", T::kString, E::kDefault, E::kRefuses, "none", ""},
        {"memoryRequirement", T::kUint32, E::kDefault, E::kRefuses, "0", ""},
        {"autostart", T::kBool, E::kDefault, E::kFalse, "false",
         "the component is not started automatically"},
        {"tasks", T::kArray, E::kRefuses, E::kRefuses, "", ""},
};
const std::vector<Member> kTask = {
        {"identifier", T::kString, E::kRefuses, E::kRefuses, "", ""},
        {"priorityType", T::kString, E::kRefuses, E::kRefuses, "", ""},
        {"priorityValue", T::kInt32, E::kDefault, E::kRefuses, "1", ""},
        {"minimumGuaranteedRuntime", T::kInt32, E::kDefault, E::kRefuses, "5000", ""},
        {"preempt", T::kBool, E::kDefault, E::kFalse, "true",
         "the task is never preempted (without the member it would be)"},
};
const std::vector<Member> kRule = {
        {"name", T::kString, E::kDefault, E::kRefuses, "empty", ""},
        {"identifier", T::kObject, E::kRefuses, E::kRefuses, "", ""},
        {"dependencies", T::kObject, E::kDefault, E::kSkipsMember, "none",
         "the rule adds no dependencies"},
        {"actions", T::kArray, E::kRefuses, E::kRefuses, "", ""},
};
const std::vector<Member> kTaskReference = {
        {"componentId", T::kString, E::kRefuses, E::kRefuses, "", ""},
        {"taskId", T::kString, E::kRefuses, E::kRefuses, "", ""},
};
const std::vector<Member> kDependencies = {
        {"allowlist", T::kArray, E::kDefault, E::kSkipsMember, "none",
         "the rule adds no dependencies"},
        {"denylist", T::kArray, E::kDefault, E::kSkipsMember, "none",
         "the rule adds no deny-list entries"},
};
const std::vector<Member> kAction = {
        {"message", T::kString, E::kSkipsPiece, E::kRefuses, "", "its events are never published"},
        {"events", T::kArray, E::kSkipsPiece, E::kSkipsPiece, "", "its events are never published"},
};
const std::vector<Member> kActionEvent = {
        {"eventGroup", T::kString, E::kSkipsPiece, E::kRefuses, "", "the event is never published"},
        {"eventName", T::kString, E::kSkipsPiece, E::kRefuses, "", "the event is never published"},
};

std::string lower(const std::string& text) {
    std::string out = text;
    std::transform(out.begin(), out.end(), out.begin(),
                   [](unsigned char c) { return static_cast<char>(tolower(c)); });
    return out;
}

size_t editDistance(const std::string& a, const std::string& b) {
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t above = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] != b[j - 1])});
            diagonal = above;
        }
    }
    return row[b.size()];
}

}  // namespace

const std::vector<Member>& of(Kind kind) {
    switch (kind) {
        case Kind::kRoot: return kRoot;
        case Kind::kGroup: return kGroup;
        case Kind::kEvent: return kEvent;
        case Kind::kComponent: return kComponent;
        case Kind::kTask: return kTask;
        case Kind::kRule: return kRule;
        case Kind::kRuleTask:
        case Kind::kDependency: return kTaskReference;
        case Kind::kDependencies: return kDependencies;
        case Kind::kAction: return kAction;
        case Kind::kActionEvent: return kActionEvent;
    }
    return kRoot;
}

const char* nameOf(Kind kind) {
    switch (kind) {
        case Kind::kRoot: return "the document";
        case Kind::kGroup: return "an event group";
        case Kind::kEvent: return "an event";
        case Kind::kComponent: return "a component";
        case Kind::kTask: return "a task";
        case Kind::kRule: return "a rule";
        case Kind::kRuleTask: return "a rule's identifier";
        case Kind::kDependencies: return "a rule's dependencies";
        case Kind::kDependency: return "a dependency";
        case Kind::kAction: return "an action";
        case Kind::kActionEvent: return "an action's event";
    }
    return "";
}

bool holds(const rapidjson::Value& value, Type type) {
    switch (type) {
        case Type::kString: return value.IsString();
        case Type::kInt32: return value.IsInt();
        case Type::kUint32: return value.IsUint();
        case Type::kDouble: return value.IsDouble();
        case Type::kBool: return value.IsBool();
        case Type::kArray: return value.IsArray();
        case Type::kObject: return value.IsObject();
    }
    return false;
}

const char* wanted(Type type) {
    switch (type) {
        case Type::kString: return "a string";
        case Type::kInt32: return "a 32-bit integer";
        case Type::kUint32: return "an unsigned 32-bit integer";
        case Type::kDouble: return "a number written with a fraction or exponent";
        case Type::kBool: return "true or false";
        case Type::kArray: return "an array";
        case Type::kObject: return "an object";
    }
    return "";
}

std::string describe(const rapidjson::Value& value) {
    if (value.IsObject()) return "an object";
    if (value.IsArray()) return "an array";
    rapidjson::StringBuffer text;
    rapidjson::Writer<rapidjson::StringBuffer> writer(text);
    if (value.IsString() && value.GetStringLength() > kLongestShownString) {
        const rapidjson::Value shortened(value.GetString(), kLongestShownString);
        shortened.Accept(writer);
        return std::string(text.GetString(), text.GetSize() - 1) + "...\"";
    }
    value.Accept(writer);
    return std::string(text.GetString(), text.GetSize());
}

const Member* closest(Kind kind, const std::string& name) {
    const Member* best = nullptr;
    size_t bestDistance = std::max<size_t>(1, name.size() / 4) + 1;
    for (const Member& member : of(kind)) {
        const size_t distance = editDistance(lower(name), lower(member.name));
        if (distance < bestDistance) {
            best = &member;
            bestDistance = distance;
        }
    }
    return best;
}

}  // namespace ZelPolicyMembers
