#include "ZelctlArgs.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <limits>

bool ZelctlArgs::parse(const std::vector<std::string>& words, const std::vector<Option>& accepted,
                       std::string* error) {
    bool optionsEnded = false;
    for (size_t i = 0; i < words.size(); ++i) {
        const std::string& word = words[i];
        if (optionsEnded || word.size() < 2 || word[0] != '-' || word[1] != '-') {
            mPositionals.push_back(word);
            continue;
        }
        if (word == "--") {
            optionsEnded = true;
            continue;
        }
        const auto equals = word.find('=');
        const std::string name = word.substr(0, equals);
        const Option* option = nullptr;
        for (const Option& candidate : accepted) {
            if (name == candidate.name) option = &candidate;
        }
        if (option == nullptr) {
            *error = "unknown option '" + name + "'";
            return false;
        }
        if (!option->takesValue) {
            if (equals != std::string::npos) {
                *error = name + " takes no value";
                return false;
            }
            mValues[name] = "";
        } else if (equals != std::string::npos) {
            mValues[name] = word.substr(equals + 1);
        } else if (i + 1 < words.size()) {
            mValues[name] = words[++i];
        } else {
            *error = name + " needs a value";
            return false;
        }
    }
    return true;
}

std::string ZelctlArgs::value(const std::string& name, const std::string& fallback) const {
    const auto it = mValues.find(name);
    return it == mValues.end() ? fallback : it->second;
}

namespace {

// strtoll/strtoull over the whole text, decimal or "0x" hexadecimal.
template <typename T, typename Convert>
bool parseWhole(const std::string& text, Convert convert, T* out) {
    if (text.empty() || isspace(static_cast<unsigned char>(text[0]))) return false;
    const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    errno = 0;
    char* end = nullptr;
    *out = convert(text.c_str(), &end, hex ? 16 : 10);
    return errno == 0 && end == text.c_str() + text.size();
}

}  // namespace

bool zelctlParseInt32(const std::string& text, int32_t* out) {
    long long value = 0;
    if (!parseWhole(text, strtoll, &value)) return false;
    if (value < std::numeric_limits<int32_t>::min() || value > std::numeric_limits<int32_t>::max()) {
        return false;
    }
    *out = static_cast<int32_t>(value);
    return true;
}

bool zelctlParseUint64(const std::string& text, uint64_t* out) {
    if (!text.empty() && text[0] == '-') return false;  // strtoull would wrap it
    unsigned long long value = 0;
    if (!parseWhole(text, strtoull, &value)) return false;
    *out = value;
    return true;
}

namespace {

bool allOf(const std::string& text, int (*isClass)(int)) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [isClass](char c) {
        return isClass(static_cast<unsigned char>(c)) != 0;
    });
}

}  // namespace

bool zelctlParseToken(const std::string& text, int32_t* out) {
    const bool prefixed = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const std::string digits = prefixed ? text.substr(2) : text;
    const bool hex = prefixed || !allOf(digits, isdigit);
    if (!allOf(digits, hex ? isxdigit : isdigit)) return false;  // no sign, no space
    errno = 0;
    const unsigned long long value = strtoull(digits.c_str(), nullptr, hex ? 16 : 10);
    if (errno != 0 || value > static_cast<uint64_t>(std::numeric_limits<int32_t>::max())) {
        return false;
    }
    *out = static_cast<int32_t>(value);
    return true;
}

bool zelctlTokenMayBeHex(const std::string& text) {
    return text.size() > 1 && text.size() <= 8 && allOf(text, isdigit);
}

bool zelctlParseSeconds(const std::string& text, double* out) {
    if (text.empty() || isspace(static_cast<unsigned char>(text[0]))) return false;
    char* end = nullptr;
    errno = 0;
    const double value = strtod(text.c_str(), &end);
    if (errno != 0 || end != text.c_str() + text.size() || !std::isfinite(value) || value <= 0) {
        return false;
    }
    *out = value;
    return true;
}
