#include "ZelPolicyWalk.h"

#include "PolicyJsonMembers.h"
#include "ZelRapidJson.h"
#include "ZelJsonLocator.h"

namespace {

using rapidjson::Value;
using namespace ZelPolicyMembers;
using ZelPolicyMembers::describe;
using PolicyJsonMembers::find;
using PolicyJsonMembers::toString;
using L = ZelJsonLocator;

// A tool's mark in the document's root that the loader does not read either.
constexpr const char* kSchemaMember = "$schema";

const Member* known(Kind kind, const std::string& name) {
    for (const Member& member : of(kind)) {
        if (name == member.name) return &member;
    }
    return nullptr;
}

std::string quoted(const std::string& name) {
    return describe(Value(name.data(), static_cast<rapidjson::SizeType>(name.size())));
}

// The string member `name` of `object`, or empty.
std::string textOf(const Value& object, const char* name) {
    const Value* value = object.IsObject() ? find(object, name) : nullptr;
    return value != nullptr && value->IsString() ? toString(*value) : "";
}

// "a string, ", "a number, ", ... : what a value that is no flag is (null
// says it itself).
const char* kindOf(const Value& value) {
    if (value.IsString()) return "a string, ";
    if (value.IsNumber()) return "a number, ";
    return "";
}

}  // namespace

ZelPolicyWalk ZelPolicyWalk::run(const Value& document) {
    ZelPolicyWalk walk;
    walk.walkRoot(document);
    return walk;
}

bool ZelPolicyWalk::walkRoot(const Value& root) {
    if (!root.IsObject()) return refuse("", false, "the document is " + describe(root) + ", not an object");
    checkUnknown(root, Kind::kRoot, "", {});
    const Value* version = find(root, "version");
    if (version != nullptr && !version->IsDouble()) {
        return refuse("version", false,
                      describe(*version) + " is not a number written with a fraction or "
                                           "exponent: write 1.0");
    }
    if (version != nullptr && version->GetDouble() != 1.0) {
        return refuse("version", false,
                      describe(*version) + " is not 1.0: the loader refuses other versions, "
                                           "without a log line");
    }
    for (const char* section : {"version", "eventGroups", "components", "rules"}) {
        if (!checkMember(root, Kind::kRoot, section, "", {})) return false;
    }
    return walkGroups(*find(root, "eventGroups")) && walkComponents(*find(root, "components")) &&
           walkRules(*find(root, "rules"));
}

bool ZelPolicyWalk::walkGroups(const Value& groups) {
    for (rapidjson::SizeType i = 0; i < groups.Size(); ++i) {
        const std::string path = L::element("eventGroups", i);
        const Value& group = groups[i];
        if (!group.IsObject()) return refuse(path, false, describe(group) + " is not an object");
        ZelPolicyFinding who;
        who.group = textOf(group, "groupName");
        checkUnknown(group, Kind::kGroup, path, who);
        for (const char* name : {"groupName", "groupId", "events"}) {
            if (!checkMember(group, Kind::kGroup, name, path, who)) return false;
        }
        std::set<std::string>& names = mGroupEvents[who.group];
        const Value& events = *find(group, "events");
        for (rapidjson::SizeType j = 0; j < events.Size(); ++j) {
            const std::string eventPath = L::element(L::member(path, "events"), j);
            const Value& event = events[j];
            if (!event.IsObject()) return refuse(eventPath, false, describe(event) + " is not an object", who);
            checkUnknown(event, Kind::kEvent, eventPath, who);
            for (const char* name : {"eventName", "eventId"}) {
                if (!checkMember(event, Kind::kEvent, name, eventPath, who)) return false;
            }
            names.insert(textOf(event, "eventName"));
        }
    }
    return true;
}

bool ZelPolicyWalk::walkComponents(const Value& components) {
    for (rapidjson::SizeType i = 0; i < components.Size(); ++i) {
        const std::string path = L::element("components", i);
        const Value& component = components[i];
        if (!component.IsObject()) return refuse(path, false, describe(component) + " is not an object");
        ZelPolicyFinding who;
        who.component = textOf(component, "identifier");
        checkUnknown(component, Kind::kComponent, path, who);
        for (const Member& member : of(Kind::kComponent)) {
            if (!checkMember(component, Kind::kComponent, member.name, path, who)) return false;
        }
        checkNameable(who.component, L::member(path, "identifier"), who, "component");

        const Value& tasks = *find(component, "tasks");
        for (rapidjson::SizeType j = 0; j < tasks.Size(); ++j) {
            const std::string taskPath = L::element(L::member(path, "tasks"), j);
            const Value& task = tasks[j];
            ZelPolicyFinding taskWho = who;
            if (!task.IsObject()) return refuse(taskPath, false, describe(task) + " is not an object", who);
            taskWho.task = textOf(task, "identifier");
            checkUnknown(task, Kind::kTask, taskPath, taskWho);
            for (const Member& member : of(Kind::kTask)) {
                if (!checkMember(task, Kind::kTask, member.name, taskPath, taskWho)) return false;
            }
            checkNameable(taskWho.task, L::member(taskPath, "identifier"), taskWho, "task");
            mTasks.emplace(who.component, taskWho.task);
        }
    }
    return true;
}

bool ZelPolicyWalk::walkRules(const Value& rules) {
    for (rapidjson::SizeType i = 0; i < rules.Size(); ++i) {
        const std::string path = L::element("rules", i);
        const Value& rule = rules[i];
        if (!rule.IsObject()) return refuse(path, false, describe(rule) + " is not an object");
        const Value* identifier = find(rule, "identifier");
        ZelPolicyFinding who;
        if (identifier != nullptr) {
            who.component = textOf(*identifier, "componentId");
            who.task = textOf(*identifier, "taskId");
        }
        checkUnknown(rule, Kind::kRule, path, who);
        if (!checkMember(rule, Kind::kRule, "name", path, who) ||
            !checkMember(rule, Kind::kRule, "identifier", path, who)) {
            return false;
        }
        const std::string identifierPath = L::member(path, "identifier");
        checkUnknown(*identifier, Kind::kRuleTask, identifierPath, who);
        for (const char* name : {"componentId", "taskId"}) {
            if (!checkMember(*identifier, Kind::kRuleTask, name, identifierPath, who)) return false;
        }
        if (mTasks.count({who.component, who.task}) == 0) {
            return refuse(identifierPath, false,
                          "names the task " + who.component + "/" + who.task +
                                  ", which no component defines",
                          who);
        }
        if (!checkMember(rule, Kind::kRule, "dependencies", path, who)) return false;
        const Value* dependencies = find(rule, "dependencies");
        if (dependencies != nullptr && dependencies->IsObject() &&
            !walkDependencies(*dependencies, L::member(path, "dependencies"), who)) {
            return false;
        }
        if (!checkMember(rule, Kind::kRule, "actions", path, who) ||
            !walkActions(*find(rule, "actions"), L::member(path, "actions"), who)) {
            return false;
        }
    }
    return true;
}

bool ZelPolicyWalk::walkDependencies(const Value& dependencies, const std::string& path,
                                     const ZelPolicyFinding& who) {
    checkUnknown(dependencies, Kind::kDependencies, path, who);
    for (const char* list : {"allowlist", "denylist"}) {
        if (!checkMember(dependencies, Kind::kDependencies, list, path, who)) return false;
        const Value* entries = find(dependencies, list);
        if (entries == nullptr || !entries->IsArray()) continue;
        for (rapidjson::SizeType k = 0; k < entries->Size(); ++k) {
            const std::string entryPath = L::element(L::member(path, list), k);
            const Value& entry = (*entries)[k];
            if (!entry.IsObject()) return refuse(entryPath, false, describe(entry) + " is not an object", who);
            checkUnknown(entry, Kind::kDependency, entryPath, who);
            for (const char* name : {"componentId", "taskId"}) {
                if (!checkMember(entry, Kind::kDependency, name, entryPath, who)) return false;
            }
            const std::string component = textOf(entry, "componentId");
            const std::string task = textOf(entry, "taskId");
            if (mTasks.count({component, task}) == 0) {
                return refuse(entryPath, false,
                              "names the task " + component + "/" + task + ", which no component defines",
                              who);
            }
        }
    }
    return true;
}

bool ZelPolicyWalk::walkActions(const Value& actions, const std::string& path,
                                const ZelPolicyFinding& who) {
    for (rapidjson::SizeType k = 0; k < actions.Size(); ++k) {
        const std::string actionPath = L::element(path, k);
        const Value& action = actions[k];
        if (!action.IsObject()) {
            warn(actionPath, false, describe(action) + " is not an object: the loader skips the action", who);
            continue;
        }
        checkUnknown(action, Kind::kAction, actionPath, who);
        // Both must be there before either is read.
        if (!present(action, Kind::kAction, actionPath, who, "the action")) continue;
        if (!checkMember(action, Kind::kAction, "message", actionPath, who)) return false;
        const Value& events = *find(action, "events");
        if (!events.IsArray()) {
            warn(L::member(actionPath, "events"), false,
                 describe(events) + " is not an array: the loader skips the action, so its events "
                                    "are never published",
                 who);
            continue;
        }
        for (rapidjson::SizeType m = 0; m < events.Size(); ++m) {
            const std::string eventPath = L::element(L::member(actionPath, "events"), m);
            const Value& event = events[m];
            if (!event.IsObject()) {
                warn(eventPath, false, describe(event) + " is not an object: the loader skips the event", who);
                continue;
            }
            checkUnknown(event, Kind::kActionEvent, eventPath, who);
            if (!present(event, Kind::kActionEvent, eventPath, who, "the event")) continue;
            for (const char* name : {"eventGroup", "eventName"}) {
                if (!checkMember(event, Kind::kActionEvent, name, eventPath, who)) return false;
            }
            const std::string group = textOf(event, "eventGroup");
            const std::string name = textOf(event, "eventName");
            const auto groupEvents = mGroupEvents.find(group);
            if (groupEvents == mGroupEvents.end()) {
                return refuse(L::member(eventPath, "eventGroup"), false,
                              quoted(group) + " names no group of eventGroups", who);
            }
            if (groupEvents->second.count(name) == 0) {
                return refuse(L::member(eventPath, "eventName"), false,
                              quoted(name) + " names no event of the group " + quoted(group), who);
            }
        }
    }
    return true;
}

void ZelPolicyWalk::checkUnknown(const Value& object, Kind kind, const std::string& path,
                                 const ZelPolicyFinding& who) {
    std::set<std::string> seen;
    for (const auto& entry : object.GetObject()) {
        const std::string name = toString(entry.name);
        const std::string memberPath = L::member(path, name);
        if (known(kind, name) != nullptr) {
            if (!seen.insert(name).second) {
                warn(path, false, quoted(name) + " is given twice: the loader reads the first one only",
                     who);
            }
            continue;
        }
        if (kind == Kind::kRoot && name == kSchemaMember) continue;
        std::string text = quoted(name) + " is not read by the loader";
        const Member* guess = closest(kind, name);
        if (guess == nullptr) {
            warn(memberPath, true, text + ": it has no effect", who);
            continue;
        }
        text += " (did you mean " + quoted(guess->name) + "?)";
        if (find(object, guess->name) == nullptr && guess->missing == Effect::kDefault) {
            text += std::string(", so ") + guess->name + " keeps its default, " + guess->fallback;
        }
        warn(memberPath, true, text, who);
    }
}

bool ZelPolicyWalk::present(const Value& object, Kind kind, const std::string& path,
                            const ZelPolicyFinding& who, const std::string& piece) {
    for (const Member& member : of(kind)) {
        if (find(object, member.name) != nullptr) continue;
        warn(path, false,
             "has no " + quoted(member.name) + missingHint(object, kind, member.name) +
                     ": the loader skips " + piece + ", so " + member.lost,
             who);
        return false;
    }
    return true;
}

bool ZelPolicyWalk::checkMember(const Value& object, Kind kind, const char* name,
                                const std::string& path, const ZelPolicyFinding& who) {
    const Member& member = *known(kind, name);
    const Value* value = find(object, name);
    if (value == nullptr) {
        if (member.missing != Effect::kRefuses) return true;
        return refuse(path, false,
                      (path.empty() ? "the document has no " : "has no ") + quoted(name) +
                              missingHint(object, kind, name),
                      who);
    }
    if (holds(*value, member.type)) return true;
    const std::string memberPath = L::member(path, name);
    switch (member.wrongType) {
        case Effect::kFalse:
            warn(memberPath, false,
                 describe(*value) + " is " + kindOf(*value) +
                         "not true or false: the loader counts it as false, so " + member.lost,
                 who);
            return true;
        case Effect::kSkipsMember:
            warn(memberPath, false,
                 describe(*value) + " is not " + wanted(member.type) + ": the loader skips it, so " +
                         member.lost,
                 who);
            return true;
        default:
            return refuse(memberPath, false, describe(*value) + " is not " + wanted(member.type), who);
    }
}

std::string ZelPolicyWalk::missingHint(const Value& object, Kind kind, const char* name) {
    for (const auto& entry : object.GetObject()) {
        const std::string given = toString(entry.name);
        const Member* guess = known(kind, given) == nullptr ? closest(kind, given) : nullptr;
        if (guess != nullptr && std::string(guess->name) == name) {
            return " (there is " + quoted(given) + ": member names are exact)";
        }
    }
    return "";
}

bool ZelPolicyWalk::refuse(const std::string& path, bool atKey, const std::string& text,
                           const ZelPolicyFinding& who) {
    ZelPolicyFinding finding = who;
    finding.text = text;
    finding.path = path;
    finding.atKey = atKey;
    refusal = finding;
    return false;
}

void ZelPolicyWalk::warn(const std::string& path, bool atKey, const std::string& text,
                         const ZelPolicyFinding& who) {
    ZelPolicyFinding finding = who;
    finding.text = text;
    finding.path = path;
    finding.atKey = atKey;
    warnings.push_back(std::move(finding));
}

void ZelPolicyWalk::checkNameable(const std::string& identifier, const std::string& path,
                                  const ZelPolicyFinding& who, const char* what) {
    std::string problem;
    if (identifier.empty()) {
        problem = "is empty: the daemon refuses a request with an empty identifier";
    } else if (identifier.find('\0') != std::string::npos) {
        problem = "holds a NUL character: a request's identifier ends at its first NUL";
    } else if (identifier.size() > kLongestIdentifier) {
        problem = "is " + std::to_string(identifier.size()) +
                  " bytes long: a request carries at most 63 (a 64-byte field with its NUL)";
    } else {
        return;
    }
    warn(path, false,
         std::string("the ") + what + " identifier " + problem + ", so no client can name it", who);
}
