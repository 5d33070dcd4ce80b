#include "ZelctlOutput.h"

#include <cstdio>

#include "ZelctlCommand.h"

ZelctlJsonObject& ZelctlJsonObject::add(const std::string& key, const std::string& json) {
    if (!mMembers.empty()) mMembers += ",";
    mMembers += zelctlJsonString(key) + ":" + json;
    return *this;
}

ZelctlJsonObject& ZelctlJsonObject::addString(const std::string& key, const std::string& value) {
    return add(key, zelctlJsonString(value));
}

ZelctlJsonObject& ZelctlJsonObject::addNumber(const std::string& key, int64_t value) {
    return add(key, std::to_string(value));
}

ZelctlJsonObject& ZelctlJsonObject::addUnsigned(const std::string& key, uint64_t value) {
    return add(key, std::to_string(value));
}

ZelctlJsonObject& ZelctlJsonObject::addBool(const std::string& key, bool value) {
    return add(key, value ? "true" : "false");
}

ZelctlJsonObject& ZelctlJsonObject::addRaw(const std::string& key, const std::string& json) {
    return add(key, json);
}

std::string zelctlJsonString(const std::string& text) {
    std::string json = "\"";
    for (const char c : text) {
        switch (c) {
            case '"': json += "\\\""; break;
            case '\\': json += "\\\\"; break;
            case '\n': json += "\\n"; break;
            case '\t': json += "\\t"; break;
            default:
                if (static_cast<unsigned char>(c) < 0x20) {
                    char escaped[8];
                    snprintf(escaped, sizeof(escaped), "\\u%04x", static_cast<unsigned char>(c));
                    json += escaped;
                } else {
                    json += c;
                }
        }
    }
    return json + "\"";
}

void ZelctlOutput::print(const ZelctlJsonObject& object, const std::string& line) {
    std::lock_guard<std::mutex> guard(mLock);
    if (!mClosed) mOut << (mJson ? object.text() : line) << std::endl;
}

void ZelctlOutput::write(const std::string& text) {
    std::lock_guard<std::mutex> guard(mLock);
    if (!mClosed) mOut << text << std::flush;
}

void ZelctlOutput::note(const std::string& text) {
    std::lock_guard<std::mutex> guard(mLock);
    noteLocked(text);
}

int ZelctlOutput::fail(const std::string& code, const std::string& message) {
    std::lock_guard<std::mutex> guard(mLock);
    failLocked(code, message);
    return kZelctlExitFailed;
}

int ZelctlOutput::usage(const std::string& problem, const std::string& synopsis) {
    std::lock_guard<std::mutex> guard(mLock);
    failLocked("usage", problem);
    if (!mClosed) {
        mErr << "usage: zelctl " << synopsis << "\n"
             << "       zelctl " << mCommand << " --help   (what it does, options, exit statuses)\n";
    }
    return kZelctlExitUsage;
}

void ZelctlOutput::close(const std::string& code, const std::string& message) {
    std::lock_guard<std::mutex> guard(mLock);
    if (code.empty()) {
        noteLocked(message);
    } else {
        failLocked(code, message);
    }
    mOut.flush();
    mErr.flush();
    mClosed = true;
}

void ZelctlOutput::noteLocked(const std::string& text) {
    if (!mClosed) mErr << "zelctl " << mCommand << ": " << text << std::endl;
}

void ZelctlOutput::failLocked(const std::string& code, const std::string& message) {
    if (mClosed) return;
    if (mJson) {
        mOut << ZelctlJsonObject().addString("error", code).addString("message", message).text()
             << std::endl;
    }
    noteLocked(message);
}
