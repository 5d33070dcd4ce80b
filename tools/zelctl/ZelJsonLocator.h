#pragma once

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <utility>

// Where things are in a policy's text, for messages an editor can follow:
// JSON paths ("components[2].tasks[0].minimumGuaranteedRuntime") of values
// in a document parsed as the loader parses it, the line and column of an
// offset, and what a parse error means.
class ZelJsonLocator {
public:
    // "parent.name", or parent["na.me"] for a name that is no identifier.
    static std::string member(const std::string& parent, const std::string& name);
    static std::string element(const std::string& parent, size_t index);

    struct Place {
        size_t key = std::string::npos;  // the member's name; npos for an element or the root
        size_t value = std::string::npos;
    };
    // The places of `paths` in `text`, read up to its first NUL as the loader
    // reads it; for a repeated name, its first occurrence (the loader's).
    // A path not found is left out.
    static std::map<std::string, Place> locate(const std::string& text,
                                               const std::set<std::string>& paths);

    // The line and column of a byte offset, both from 1, columns counted in
    // characters (UTF-8 sequences).
    static std::pair<size_t, size_t> lineColumn(const std::string& text, size_t offset);

    // The parse error of `text` if it is not JSON to the loader: its offset
    // and what is wrong there. False when it parses.
    static bool parseError(const std::string& text, size_t* offset, std::string* reason);
};
