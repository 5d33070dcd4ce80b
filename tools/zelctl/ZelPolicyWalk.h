#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "ZelRapidJson.h"

#include "ZelPolicyFinding.h"
#include "ZelPolicyMembers.h"

// Walks a parsed policy document in the order the daemon's loader reads it,
// member by member as ZelPolicyMembers lists them, and says what the loader's
// log does not: where it refuses the document and why (the first fault, as
// the loader stops there), and what it accepts but reads otherwise than
// written — members it does not read, flags that are not true or false,
// pieces it skips, identifiers no client can send. Findings name the JSON
// path of the value (or of the object that lacks a member).
class ZelPolicyWalk {
public:
    static ZelPolicyWalk run(const rapidjson::Value& document);

    std::optional<ZelPolicyFinding> refusal;
    std::vector<ZelPolicyFinding> warnings;

    // A client's identifier field holds 64 bytes with its NUL.
    static constexpr size_t kLongestIdentifier = 63;

private:
    using Kind = ZelPolicyMembers::Kind;
    using Value = rapidjson::Value;

    // Each returns false once the document is refused. `who` names the
    // component and task (or event group) a finding is filed under.
    bool walkRoot(const Value& root);
    bool walkGroups(const Value& groups);
    bool walkComponents(const Value& components);
    bool walkRules(const Value& rules);
    bool walkDependencies(const Value& dependencies, const std::string& path,
                          const ZelPolicyFinding& who);
    bool walkActions(const Value& actions, const std::string& path, const ZelPolicyFinding& who);

    // Warnings for the members of `object` that its kind does not know, and
    // for known ones given twice.
    void checkUnknown(const Value& object, Kind kind, const std::string& path,
                      const ZelPolicyFinding& who);
    // One known member of `object` at `path` as the loader reads it: false
    // when that refuses the document; a warning when the loader counts it as
    // false or skips it.
    bool checkMember(const Value& object, Kind kind, const char* name, const std::string& path,
                     const ZelPolicyFinding& who);
    // Whether every member of `kind` is there (actions and their events,
    // which the loader skips without one); else a warning that `piece` is
    // skipped.
    bool present(const Value& object, Kind kind, const std::string& path,
                 const ZelPolicyFinding& who, const std::string& piece);
    // " (there is \"Rules\": ...)" when `object` has an unknown member
    // close to the missing `name`.
    static std::string missingHint(const Value& object, Kind kind, const char* name);
    bool refuse(const std::string& path, bool atKey, const std::string& text,
                const ZelPolicyFinding& who = {});
    void warn(const std::string& path, bool atKey, const std::string& text,
              const ZelPolicyFinding& who);
    // A warning when no client can send `identifier` in its request.
    void checkNameable(const std::string& identifier, const std::string& path,
                       const ZelPolicyFinding& who, const char* what);

    std::set<std::pair<std::string, std::string>> mTasks;      // every task key defined
    std::map<std::string, std::set<std::string>> mGroupEvents;  // group name -> event names
};
