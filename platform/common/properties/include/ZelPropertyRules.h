#pragma once

#include <cstdint>
#include <cstring>
#include <string>

// The device's rules for property names and boolean values, shared by the
// host's property store and the in-process store of the device's test
// programs (platform/android/test).

// Not empty, only [A-Za-z0-9_.-:@], no leading or trailing '.', no "..".
inline bool zelIsLegalPropertyName(const char* name) {
    const size_t length = strlen(name);
    if (length == 0 || name[0] == '.' || name[length - 1] == '.') return false;
    for (size_t i = 0; i < length; ++i) {
        const char c = name[i];
        if (c == '.') {
            if (name[i + 1] == '.') return false;
            continue;
        }
        const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                        c == '_' || c == '-' || c == '@' || c == ':';
        if (!ok) return false;
    }
    return true;
}

// libcutils' property_get_bool: "1", "y", "yes", "true", "on" read true;
// "0", "n", "no", "false", "off" read false; anything else gives `otherwise`.
inline int8_t zelPropertyBool(const std::string& value, int8_t otherwise) {
    if (value == "1" || value == "y" || value == "yes" || value == "true" || value == "on") return 1;
    if (value == "0" || value == "n" || value == "no" || value == "false" || value == "off") return 0;
    return otherwise;
}
