#pragma once

#include <string>
#include <vector>

#include <rapidjson/fwd.h>

// The members the daemon's loader reads in each kind of object of a policy
// document, in the order it reads them, and what it does when one is missing
// or of another JSON type. The checker's walk (ZelPolicyWalk) follows it; a
// member of no table is one the loader never reads.
namespace ZelPolicyMembers {

enum class Kind {
    kRoot, kGroup, kEvent, kComponent, kTask, kRule, kRuleTask, kDependencies, kDependency,
    kAction, kActionEvent,
};

enum class Type { kString, kInt32, kUint32, kDouble, kBool, kArray, kObject };

// What the loader does with a member that is missing, or present with
// another type.
enum class Effect {
    kRefuses,      // the document is refused
    kDefault,      // the default applies (missing only)
    kSkipsPiece,   // the object holding it is skipped
    kSkipsMember,  // the member is ignored: as if missing
    kFalse,        // counts as false
};

struct Member {
    const char* name;
    Type type;
    Effect missing;
    Effect wrongType;
    const char* fallback;  // what a missing member means, for kDefault
    const char* lost;      // what is lost when it is skipped or counts as false
};

const std::vector<Member>& of(Kind kind);
// What an object of `kind` is, for messages: "a component", "an action".
const char* nameOf(Kind kind);

// Whether `value` holds `type` as the loader tests it (IsString, IsInt,
// IsUint, IsDouble, IsBool, IsArray, IsObject).
bool holds(const rapidjson::Value& value, Type type);
// "a string", "a 32-bit integer", ...
const char* wanted(Type type);
// The value as a reader sees it: its JSON text for a scalar (strings cut
// short), "an object" or "an array" otherwise.
std::string describe(const rapidjson::Value& value);

// The known member of `kind` closest to `name` (case does not count, one
// edit in four may differ), or nullptr.
const Member* closest(Kind kind, const std::string& name);

}  // namespace ZelPolicyMembers
