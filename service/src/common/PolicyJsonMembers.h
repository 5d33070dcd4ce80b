#pragma once

#include <cstdint>
#include <string>

#include "ZelRapidJson.h"

// Typed member reads for the policy document. None of them logs; each tests
// the JSON type before reading, so a value is never read as a type it does not
// hold. `object` must be a JSON object (test IsObject() first).
namespace PolicyJsonMembers {

// The first member called `name`, or null.
const rapidjson::Value* find(const rapidjson::Value& object, const char* name);

// Required members: false when missing or of another type.
bool readString(const rapidjson::Value& object, const char* name, std::string& out);
bool readInt(const rapidjson::Value& object, const char* name, int32_t& out);

// Optional members: `out` keeps its value when the member is missing; false
// only when the member is present with another type.
bool readOptionalString(const rapidjson::Value& object, const char* name, std::string& out);
bool readOptionalInt(const rapidjson::Value& object, const char* name, int32_t& out);
bool readOptionalUint(const rapidjson::Value& object, const char* name, uint32_t& out);

// True only for the JSON literal true; `fallback` when the member is missing.
bool readFlag(const rapidjson::Value& object, const char* name, bool fallback);

std::string toString(const rapidjson::Value& stringValue);

}  // namespace PolicyJsonMembers
