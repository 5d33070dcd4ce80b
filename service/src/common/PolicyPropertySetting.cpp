#include "PolicyPropertySetting.h"

PropertySetting PropertySetting::fromDocumentText(const std::string& text) {
    const std::string::size_type space = text.find(' ');
    if (space == std::string::npos || text.find(' ', space + 1) != std::string::npos) {
        return {};
    }
    return {text.substr(0, space), text.substr(space + 1)};
}
