// The log capture hook in the device's test programs and fuzzers. This
// __android_log_buf_print, linked into the program, takes the place of
// liblog's for every call the program makes (liblog stays linked): each line
// goes to the captures of zel/ZelHostLog.h and, at or above the level that
// ZELD_LOG_LEVEL or the test sets, on to the device's log.
#include "zel/ZelHostLog.h"

#include <log/log.h>

extern "C" int __android_log_buf_print(int bufID, int prio, const char* tag, const char* fmt, ...) {
    using namespace zel::hostlog;
    const bool toLog = prio >= stderrMinPriority();
    if (!toLog && !haveCaptures()) return 0;

    std::string message;
    va_list args;
    va_start(args, fmt);
    const bool formatted = formatLogText(message, fmt, args);
    va_end(args);
    if (!formatted) return -1;

    if (tag == nullptr) tag = "";
    if (haveCaptures()) deliverToCaptures({bufID, prio, tag, message});
    if (toLog) return __android_log_buf_write(bufID, prio, tag, message.c_str());
    return static_cast<int>(message.size());
}
