#pragma once

// The log seam's test side: where the daemon's log lines can be captured.
// The daemon calls __android_log_buf_print (declared by <log/log.h>). On the
// host, platform/host/log defines it: logcat-style lines ("MM-DD HH:MM:SS.mmm
// PID  TID L TAG: text") to stderr. In the device's test programs and fuzzers,
// platform/android/test defines it in the program itself, over liblog's, and
// passes each line on to liblog. Both feed the captures below
// (platform/common/log/ZelLogCapture.cpp).
//
// ZELD_LOG_LEVEL picks the lowest level written out (to stderr on the host,
// to liblog on the device): "debug" (default, as on a device), "info",
// "warn", "error" or "silent" (first letter is enough). Captures see every
// line whatever that level says.

#include <cstdarg>
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

// Lowest priority written out (ANDROID_LOG_* value). Tests and tools may
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

    // Called by the log writer, through deliverToCaptures.
    void append(const LogLine& line);

private:
    mutable std::mutex mLock;  // guards mLines
    std::vector<LogLine> mLines;
};

// For the log writers (each target's __android_log_buf_print): formats the
// line when it is to be written out (at or above the level) or captured,
// hands it to every capture and, when it is to be written out, to `writeOut`.
// Returns writeOut's result, the text's length when the line is only
// captured, 0 when neither, -1 when the format cannot be applied.
using LogWriter = int (*)(int bufferId, int priority, const char* tag, const std::string& text);
int logLine(int bufferId, int priority, const char* tag, const char* fmt, va_list args,
            LogWriter writeOut);

}  // namespace zel::hostlog
