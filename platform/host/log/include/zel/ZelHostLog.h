#pragma once

// Host stand-in for the device's system log. The daemon calls
// __android_log_buf_print (declared by <log/log.h>); on the host that writes
// logcat-style lines ("MM-DD HH:MM:SS.mmm  PID  TID L TAG: text") to stderr.
//
// ZELD_LOG_LEVEL picks the lowest level written to stderr: "debug" (default,
// as on a device), "info", "warn", "error" or "silent" (first letter is
// enough). Captures see every line whatever that level says.

#include <mutex>
#include <string>
#include <vector>

namespace zel::hostlog {

struct LogLine {
    int bufferId;
    int priority;  // ANDROID_LOG_DEBUG ... ANDROID_LOG_ERROR
    std::string tag;
    std::string message;
};

// Lowest priority written to stderr (ANDROID_LOG_* value). Tests and tools may
// change it at run time; the environment variable only sets the start value.
void setStderrMinPriority(int priority);
int stderrMinPriority();

// Collects every line logged in this process while it lives. Captures nest;
// each sees the lines logged during its own lifetime. Thread-safe.
class ZelLogCapture {
public:
    ZelLogCapture();
    ~ZelLogCapture();
    ZelLogCapture(const ZelLogCapture&) = delete;
    ZelLogCapture& operator=(const ZelLogCapture&) = delete;

    std::vector<LogLine> lines() const;
    // Messages only, in order, optionally only those at exactly `priority`.
    std::vector<std::string> messages(int priority = -1) const;
    // True when some captured line at `priority` has `needle` in its message.
    bool contains(int priority, const std::string& needle) const;
    void clear();

    // Called by the log writer.
    void append(const LogLine& line);

private:
    mutable std::mutex mLock;  // guards mLines
    std::vector<LogLine> mLines;
};

}  // namespace zel::hostlog
