#pragma once

#include <string>

// The daemon's only access to system properties: writes start and stop
// properties of components and reads boolean switches. Both platform calls sit
// behind replaceable function pointers so tests can put in failing or
// recording stand-ins; the daemon itself never changes them.
class ZelSystemProperty {
public:
    using BoolReader = signed char (*)(const char* name, signed char defaultValue);
    using Writer = int (*)(const char* name, const char* value);

    // Logs the pair at debug level, then writes; true exactly when the writer returned 0.
    [[nodiscard]] static bool setProperty(const std::string& name, const std::string& value);

    // Reads `name` as a boolean with default false. Returns the value read, not
    // whether the read worked: unset, empty or unrecognised all read false.
    [[nodiscard]] static bool getProperty(const std::string& name, bool& value);

    // Process-wide, initialised to the platform's property_get_bool / property_set.
    static BoolReader sBoolReader;
    static Writer sWriter;
};
