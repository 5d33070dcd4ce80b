// The log capture hook in the device's test programs and fuzzers. This
// __android_log_buf_print, linked into the program, takes the place of
// liblog's for every call the program makes (liblog stays linked): each line
// goes to the captures of zel/ZelHostLog.h and, at or above the level that
// ZELD_LOG_LEVEL or the test sets, on to the device's log.
#include "zel/ZelHostLog.h"

#include <log/log.h>

namespace {

int writeToLiblog(int bufferId, int priority, const char* tag, const std::string& text) {
    return __android_log_buf_write(bufferId, priority, tag, text.c_str());
}

}  // namespace

extern "C" int __android_log_buf_print(int bufID, int prio, const char* tag, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    const int result = zel::hostlog::logLine(bufID, prio, tag, fmt, args, &writeToLiblog);
    va_end(args);
    return result;
}
