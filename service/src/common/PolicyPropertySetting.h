#pragma once

#include <string>

// A system property to write: both strings empty means nothing is written.
struct PropertySetting {
    std::string name;
    std::string value;

    bool empty() const { return name.empty() && value.empty(); }
    bool operator==(const PropertySetting& other) const {
        return name == other.name && value == other.value;
    }
    bool operator!=(const PropertySetting& other) const { return !(*this == other); }
};
