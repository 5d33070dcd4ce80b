#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

// The words of one zelctl command (after its name), split into options and
// positional words against the options the command accepts. Options are
// "--name", "--name VALUE" or "--name=VALUE" and may stand anywhere; "--"
// ends the options. A value may start with '-' ("--duration -1").
class ZelctlArgs {
public:
    struct Option {
        const char* name;  // with its dashes: "--notify"
        bool takesValue;
    };

    // False with `error` set for an unknown option or a missing value.
    bool parse(const std::vector<std::string>& words, const std::vector<Option>& accepted,
               std::string* error);

    bool has(const std::string& name) const { return mValues.count(name) != 0; }
    // The last value given for `name`, or `fallback` when it was not given.
    std::string value(const std::string& name, const std::string& fallback = "") const;
    const std::vector<std::string>& positionals() const { return mPositionals; }

private:
    std::map<std::string, std::string> mValues;
    std::vector<std::string> mPositionals;
};

// Whole numbers as zelctl reads them: decimal, or hexadecimal with "0x".
// False when the text is not one number of the type's range.
bool zelctlParseInt32(const std::string& text, int32_t* out);
bool zelctlParseUint64(const std::string& text, uint64_t* out);
// A token, 0 (none) to 2147483647: decimal, or hexadecimal with "0x" or, as
// the daemon's log and dump print tokens, without it when the text has a
// letter a-f (digits alone read as decimal).
bool zelctlParseToken(const std::string& text, int32_t* out);
// Whether `text`, read as a decimal token, means another token when read as
// the log's hexadecimal (digits only, up to 8 of them, more than one).
bool zelctlTokenMayBeHex(const std::string& text);
// Seconds with an optional fraction ("1", "0.5"), above 0.
bool zelctlParseSeconds(const std::string& text, double* out);
