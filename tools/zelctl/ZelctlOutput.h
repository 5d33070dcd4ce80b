#pragma once

#include <cstdint>
#include <mutex>
#include <ostream>
#include <string>

// One JSON object, its members in the order they were added.
class ZelctlJsonObject {
public:
    ZelctlJsonObject& addString(const std::string& key, const std::string& value);
    ZelctlJsonObject& addNumber(const std::string& key, int64_t value);
    ZelctlJsonObject& addUnsigned(const std::string& key, uint64_t value);
    ZelctlJsonObject& addBool(const std::string& key, bool value);
    // `json` is written as it is (an array or object built elsewhere).
    ZelctlJsonObject& addRaw(const std::string& key, const std::string& json);
    std::string text() const { return "{" + mMembers + "}"; }

private:
    ZelctlJsonObject& add(const std::string& key, const std::string& json);
    std::string mMembers;
};

// `text` as a JSON string literal, quotes included.
std::string zelctlJsonString(const std::string& text);

// Where a command's results and diagnostics go. A person gets lines on
// stdout and messages on stderr; with --json stdout carries one JSON object
// per result (failures included: {"error": code, "message": text}) and
// stderr stays for a person.
//
// Thread-safe: a command's worker thread, binder threads and the thread that
// bounds the command write through it. Once closed it writes nothing more, so
// a command cut short cannot add to the last word said about it.
class ZelctlOutput {
public:
    ZelctlOutput(std::string command, bool json, std::ostream& out, std::ostream& err)
        : mCommand(std::move(command)), mJson(json), mOut(out), mErr(err) {}

    // Set while the command line is read, before any other thread writes.
    bool json() const { return mJson; }
    void setJson(bool json) { mJson = json; }
    // The object with --json, else the line.
    void print(const ZelctlJsonObject& object, const std::string& line);
    // Text as it is on stdout (a dump).
    void write(const std::string& text);
    // A person's note on stderr ("zelctl CMD: note").
    void note(const std::string& text);
    // A failure with a short code ("not_running") and a message; returns
    // the failure exit status.
    int fail(const std::string& code, const std::string& message);
    // A wrong command line: the problem and the usage; returns the usage
    // exit status.
    int usage(const std::string& problem, const std::string& synopsis);

    // The last words: a failure (or, with an empty code, a note), then both
    // streams flushed and closed to every writer.
    void close(const std::string& code, const std::string& message);

private:
    void noteLocked(const std::string& text);
    void failLocked(const std::string& code, const std::string& message);

    const std::string mCommand;
    bool mJson;
    std::ostream& mOut;
    std::ostream& mErr;
    std::mutex mLock;  // a leaf: one write at a time; guards mClosed
    bool mClosed = false;
};
