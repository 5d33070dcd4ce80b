#pragma once

#include <string>

// A system property to write: both strings empty means nothing is written.
struct PropertySetting {
    std::string name;
    std::string value;

    // Splits the document form "<name> <value>" on every single space: exactly
    // two parts give (name, value); anything else (no space, two spaces in a
    // row, three parts, empty text) gives the empty setting.
    static PropertySetting fromDocumentText(const std::string& text);

    bool empty() const { return name.empty() && value.empty(); }
    bool operator==(const PropertySetting& other) const {
        return name == other.name && value == other.value;
    }
    bool operator!=(const PropertySetting& other) const { return !(*this == other); }
};
