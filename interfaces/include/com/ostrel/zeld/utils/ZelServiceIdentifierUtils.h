#pragma once

#include <string>

#include <com/ostrel/zeld/interfaces/ServiceIdentifier.h>

namespace com::ostrel::zeld::utils {

// Module names and service identifiers: "COM_OSTREL_ZELD" <-> 1 ...
// "COM_OSTREL_ZELD_TEST_CLIENT" <-> 6. Names compare exactly (case matters).
class ZelServiceIdentifierUtils {
public:
    // The identifier of a module name; INVALID_SERVICE_UUID (0) for any name
    // not in the table.
    static interfaces::ServiceIdentifier fromModuleName(const std::string& moduleName);
    // The module name of an identifier; "INVALID_SERVICE_UUID" for unknown ones.
    static const char* toModuleName(int32_t id);
};

}  // namespace com::ostrel::zeld::utils
