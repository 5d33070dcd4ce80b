// System properties in the device's test programs and fuzzers: libcutils'
// property_set, property_get and property_get_bool, defined in the program so
// that the daemon's writes there (a component's "ctl.start ..." or its own
// switch) never reach the device's property service. One store per process,
// with the device's rules for names and values; control properties read
// back like any other, as in the host's store.
#include <cutils/properties.h>

#include <cstring>
#include <map>
#include <mutex>
#include <string>

#include "ZelPropertyRules.h"

namespace {

std::mutex gLock;                               // guards values()
std::map<std::string, std::string>& values() {  // name -> value; unset when absent
    static std::map<std::string, std::string> store;
    return store;
}

bool read(const char* key, std::string& out) {
    if (key == nullptr || !zelIsLegalPropertyName(key)) return false;
    std::lock_guard<std::mutex> guard(gLock);
    const auto it = values().find(key);
    if (it == values().end()) return false;
    out = it->second;
    return true;
}

}  // namespace

extern "C" int property_set(const char* key, const char* value) {
    if (key == nullptr || !zelIsLegalPropertyName(key)) return -1;
    if (value == nullptr) value = "";
    if (strlen(value) >= PROPERTY_VALUE_MAX) return -1;
    std::lock_guard<std::mutex> guard(gLock);
    if (strncmp(key, "ro.", 3) == 0 && values().count(key) != 0) return -1;
    values()[key] = value;
    return 0;
}

extern "C" int property_get(const char* key, char* value, const char* default_value) {
    std::string stored;
    if (!read(key, stored) || stored.empty()) {
        stored = default_value != nullptr ? default_value : "";
        if (stored.size() >= PROPERTY_VALUE_MAX) stored.resize(PROPERTY_VALUE_MAX - 1);
    }
    memcpy(value, stored.c_str(), stored.size() + 1);
    return static_cast<int>(stored.size());
}

extern "C" int8_t property_get_bool(const char* key, int8_t default_value) {
    std::string stored;
    if (!read(key, stored)) return default_value;
    return zelPropertyBool(stored, default_value);
}
