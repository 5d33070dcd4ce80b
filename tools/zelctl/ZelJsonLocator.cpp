#include "ZelJsonLocator.h"

#include <cctype>
#include <cstring>
#include <vector>

#include "ZelRapidJson.h"

#include <rapidjson/error/en.h>

namespace {

// The loader's parse: iterative, otherwise RapidJSON's defaults.
constexpr unsigned kParseFlags = rapidjson::kParseIterativeFlag;

bool isIdentifier(const std::string& name) {
    if (name.empty() || isdigit(static_cast<unsigned char>(name[0]))) return false;
    for (const char c : name) {
        if (!isalnum(static_cast<unsigned char>(c)) && c != '_' && c != '$') return false;
    }
    return true;
}

// Follows the parse and notes where each wanted path's member name and value
// begin. It keeps its own cursor over the text, one token per event (the
// reader's stream position lags behind while a string or number is read):
// a token begins at the first character after the previous one that is no
// white space, ':' or ','.
class PlaceFinder
    : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, PlaceFinder> {
public:
    PlaceFinder(const char* text, const std::set<std::string>& wanted,
                std::map<std::string, ZelJsonLocator::Place>& found)
        : mText(text), mWanted(wanted), mFound(found) {}

    bool Default() {
        value();
        return true;
    }
    bool StartObject() { return open(false); }
    bool StartArray() { return open(true); }
    bool EndObject(rapidjson::SizeType) { return close(); }
    bool EndArray(rapidjson::SizeType) { return close(); }
    bool Key(const char* name, rapidjson::SizeType length, bool) {
        Frame& frame = mFrames.back();
        frame.key.assign(name, length);
        frame.keyAt = token();
        return true;
    }

private:
    struct Frame {
        std::string path;
        bool array = false;
        size_t index = 0;
        std::string key;
        size_t keyAt = std::string::npos;
    };

    // The next token's offset; the cursor moves past it (never past the end
    // of the text).
    size_t token() {
        size_t at = mCursor;
        while (mText[at] != '\0' && strchr(" \t\n\r,:", mText[at]) != nullptr) ++at;
        size_t end = at;
        if (mText[end] == '"') {
            for (++end; mText[end] != '\0' && mText[end] != '"'; ++end) {
                if (mText[end] == '\\' && mText[end + 1] != '\0') ++end;
            }
            if (mText[end] == '"') ++end;
        } else if (mText[end] != '\0' && strchr("{}[]", mText[end]) != nullptr) {
            ++end;
        } else {  // a number, true, false, null
            while (mText[end] != '\0' && strchr(" \t\n\r,:}]", mText[end]) == nullptr) ++end;
        }
        mCursor = end;
        return at;
    }
    // Notes the value that begins now; its path.
    std::string value() {
        ZelJsonLocator::Place place;
        place.value = token();
        std::string path;
        if (!mFrames.empty()) {
            Frame& parent = mFrames.back();
            if (parent.array) {
                path = ZelJsonLocator::element(parent.path, parent.index++);
            } else {
                path = ZelJsonLocator::member(parent.path, parent.key);
                place.key = parent.keyAt;
            }
        }
        if (mWanted.count(path) != 0) mFound.emplace(path, place);  // the first one counts
        return path;
    }
    bool open(bool array) {
        Frame frame;
        frame.path = value();
        frame.array = array;
        mFrames.push_back(std::move(frame));
        return true;
    }
    bool close() {
        token();
        mFrames.pop_back();
        return true;
    }

    const char* const mText;
    const std::set<std::string>& mWanted;
    std::map<std::string, ZelJsonLocator::Place>& mFound;
    std::vector<Frame> mFrames;
    size_t mCursor = 0;
};

}  // namespace

std::string ZelJsonLocator::member(const std::string& parent, const std::string& name) {
    if (isIdentifier(name)) return parent.empty() ? name : parent + "." + name;
    rapidjson::StringBuffer quoted;
    rapidjson::Writer<rapidjson::StringBuffer> writer(quoted);
    writer.String(name.data(), static_cast<rapidjson::SizeType>(name.size()));
    return parent + "[" + quoted.GetString() + "]";
}

std::string ZelJsonLocator::element(const std::string& parent, size_t index) {
    return parent + "[" + std::to_string(index) + "]";
}

std::map<std::string, ZelJsonLocator::Place> ZelJsonLocator::locate(
        const std::string& text, const std::set<std::string>& paths) {
    std::map<std::string, Place> found;
    if (paths.empty()) return found;
    rapidjson::StringStream stream(text.c_str());
    PlaceFinder finder(text.c_str(), paths, found);
    rapidjson::Reader reader;
    reader.Parse<kParseFlags>(stream, finder);
    return found;
}

std::pair<size_t, size_t> ZelJsonLocator::lineColumn(const std::string& text, size_t offset) {
    size_t line = 1;
    size_t column = 1;
    for (size_t at = 0; at < offset && at < text.size(); ++at) {
        const auto c = static_cast<unsigned char>(text[at]);
        if (c == '\n') {
            ++line;
            column = 1;
        } else if ((c & 0xc0) != 0x80) {  // not inside a UTF-8 sequence
            ++column;
        }
    }
    return {line, column};
}

bool ZelJsonLocator::parseError(const std::string& text, size_t* offset, std::string* reason) {
    rapidjson::Document document;
    document.Parse<kParseFlags>(text.c_str());
    if (!document.HasParseError()) return false;
    *offset = document.GetErrorOffset();
    *reason = std::string("not JSON: ") + rapidjson::GetParseError_En(document.GetParseError());

    const size_t end = strlen(text.c_str());  // the loader reads no further
    size_t before = *offset;
    while (before > 0 && isspace(static_cast<unsigned char>(text[before - 1]))) --before;
    const char here = *offset < end ? text[*offset] : '\0';
    std::string hint;
    if (text.compare(0, 3, "\xef\xbb\xbf") == 0 && *offset == 0) {
        hint = "the file begins with a UTF-8 byte-order mark, which is not JSON: save it "
               "without one";
    } else if (end == 0 && text.empty()) {
        hint = "the file is empty";
    } else if (*offset >= end && end < text.size()) {
        hint = "the text ends here, at a NUL byte: the loader reads no further";
    } else if (*offset >= end) {
        hint = "the text ends here: is the file cut short?";
    } else if ((here == '}' || here == ']') && before > 0 && text[before - 1] == ',') {
        hint = std::string("a comma before '") + here + "': JSON allows no trailing comma";
    } else if (here == '/') {
        hint = "a comment: JSON has none";
    }
    if (!hint.empty()) *reason += " (" + hint + ")";
    return true;
}
