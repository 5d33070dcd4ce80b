#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "ZelRapidJson.h"

// What both services' dumps format with: printf-style lines, joined
// identifiers and one JSON object per dump.
namespace ZelDumpFormat {

using Writer = rapidjson::Writer<rapidjson::StringBuffer>;

// One printf-style line of at most 511 bytes.
std::string format(const char* pattern, ...) __attribute__((format(printf, 1, 2)));
std::string joined(const std::vector<int32_t>& values, const char* separator);

// One JSON object, filled by `members`, and a newline.
std::string jsonObject(const std::function<void(Writer&)>& members);
void string(Writer& writer, const char* name, const std::string& value);
void number(Writer& writer, const char* name, int64_t value);
void ids(Writer& writer, const char* name, const std::vector<int32_t>& values);

}  // namespace ZelDumpFormat
