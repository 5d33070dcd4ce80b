// The host's system log: __android_log_buf_print writes logcat-style lines to
// stderr and hands every line to the captures (zel/ZelHostLog.h).
#include "zel/ZelHostLog.h"

#include <log/log.h>

#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>

namespace {

char priorityLetter(int priority) {
    switch (priority) {
        case ANDROID_LOG_VERBOSE: return 'V';
        case ANDROID_LOG_DEBUG: return 'D';
        case ANDROID_LOG_INFO: return 'I';
        case ANDROID_LOG_WARN: return 'W';
        case ANDROID_LOG_ERROR: return 'E';
        case ANDROID_LOG_FATAL: return 'F';
        default: return '?';
    }
}

int writeToStderr(int, int priority, const char* tag, const std::string& message) {
    timeval now{};
    gettimeofday(&now, nullptr);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    char stamp[32];
    strftime(stamp, sizeof(stamp), "%m-%d %H:%M:%S", &local);
    const long tid = static_cast<long>(syscall(SYS_gettid));
    std::string line;
    line.reserve(message.size() + 64);
    char head[128];
    const int headLength =
            snprintf(head, sizeof(head), "%s.%03ld %5d %5ld %c %s: ", stamp,
                     static_cast<long>(now.tv_usec / 1000), static_cast<int>(getpid()), tid,
                     priorityLetter(priority), tag);
    line.append(head, static_cast<size_t>(std::clamp(headLength, 0, int(sizeof(head) - 1))));
    line.append(message);
    line.push_back('\n');
    // One write per line so lines of concurrent threads and processes never interleave.
    const char* data = line.data();
    size_t left = line.size();
    while (left > 0) {
        const ssize_t written = ::write(STDERR_FILENO, data, left);
        if (written <= 0) break;
        data += written;
        left -= static_cast<size_t>(written);
    }
    return static_cast<int>(message.size());
}

}  // namespace

extern "C" int __android_log_buf_print(int bufID, int prio, const char* tag, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    const int result = zel::hostlog::logLine(bufID, prio, tag, fmt, args, &writeToStderr);
    va_end(args);
    return result;
}
