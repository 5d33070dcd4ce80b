#include "PolicyJsonMembers.h"

namespace PolicyJsonMembers {

const rapidjson::Value* find(const rapidjson::Value& object, const char* name) {
    const auto it = object.FindMember(name);
    return it == object.MemberEnd() ? nullptr : &it->value;
}

std::string toString(const rapidjson::Value& stringValue) {
    // The length keeps escaped NUL characters that the C string would hide.
    return std::string(stringValue.GetString(), stringValue.GetStringLength());
}

namespace {

// Each takes the member found (or null) and reports whether it holds the type.
bool assign(const rapidjson::Value* value, std::string& out) {
    if (value == nullptr || !value->IsString()) return false;
    out = toString(*value);
    return true;
}
bool assign(const rapidjson::Value* value, int32_t& out) {
    if (value == nullptr || !value->IsInt()) return false;
    out = value->GetInt();
    return true;
}
bool assign(const rapidjson::Value* value, uint32_t& out) {
    if (value == nullptr || !value->IsUint()) return false;
    out = value->GetUint();
    return true;
}

template <typename T>
bool assignOptional(const rapidjson::Value& object, const char* name, T& out) {
    const rapidjson::Value* value = find(object, name);
    return value == nullptr || assign(value, out);
}

}  // namespace

bool readString(const rapidjson::Value& object, const char* name, std::string& out) {
    return assign(find(object, name), out);
}

bool readInt(const rapidjson::Value& object, const char* name, int32_t& out) {
    return assign(find(object, name), out);
}

bool readOptionalString(const rapidjson::Value& object, const char* name, std::string& out) {
    return assignOptional(object, name, out);
}

bool readOptionalInt(const rapidjson::Value& object, const char* name, int32_t& out) {
    return assignOptional(object, name, out);
}

bool readOptionalUint(const rapidjson::Value& object, const char* name, uint32_t& out) {
    return assignOptional(object, name, out);
}

bool readFlag(const rapidjson::Value& object, const char* name, bool fallback) {
    const rapidjson::Value* value = find(object, name);
    return value == nullptr ? fallback : value->IsTrue();
}

}  // namespace PolicyJsonMembers
