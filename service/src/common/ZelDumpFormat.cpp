#include "ZelDumpFormat.h"

#include <cstdarg>
#include <cstdio>

namespace ZelDumpFormat {

std::string format(const char* pattern, ...) {
    char line[512];
    va_list args;
    va_start(args, pattern);
    vsnprintf(line, sizeof(line), pattern, args);
    va_end(args);
    return line;
}

std::string joined(const std::vector<int32_t>& values, const char* separator) {
    std::string out;
    for (const int32_t value : values)
        out += (out.empty() ? "" : separator) + std::to_string(value);
    return out;
}

std::string jsonObject(const std::function<void(Writer&)>& members) {
    rapidjson::StringBuffer buffer;
    Writer writer(buffer);
    writer.StartObject();
    members(writer);
    writer.EndObject();
    return std::string(buffer.GetString(), buffer.GetSize()) + "\n";
}

void string(Writer& writer, const char* name, const std::string& value) {
    writer.Key(name);
    writer.String(value.c_str(), static_cast<rapidjson::SizeType>(value.size()));
}

void number(Writer& writer, const char* name, int64_t value) {
    writer.Key(name);
    writer.Int64(value);
}

void ids(Writer& writer, const char* name, const std::vector<int32_t>& values) {
    writer.Key(name);
    writer.StartArray();
    for (const int32_t value : values) writer.Int(value);
    writer.EndArray();
}

}  // namespace ZelDumpFormat
