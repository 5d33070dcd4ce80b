#include "zel/ZelHostLog.h"

#include <log/log.h>

#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace zel::hostlog {
namespace {

int priorityFromEnvironment() {
    const char* level = std::getenv("ZELD_LOG_LEVEL");
    if (level == nullptr || level[0] == '\0') return ANDROID_LOG_DEBUG;
    switch (level[0]) {
        case 'v': case 'V': return ANDROID_LOG_VERBOSE;
        case 'd': case 'D': return ANDROID_LOG_DEBUG;
        case 'i': case 'I': return ANDROID_LOG_INFO;
        case 'w': case 'W': return ANDROID_LOG_WARN;
        case 'e': case 'E': return ANDROID_LOG_ERROR;
        case 's': case 'S': return ANDROID_LOG_SILENT;
        default: return ANDROID_LOG_DEBUG;
    }
}

std::atomic<int>& minPriority() {
    static std::atomic<int> value{priorityFromEnvironment()};
    return value;
}

// Registry of live captures. Guarded by captureLock(); the count lets the
// common case (no capture, line filtered out) return without formatting.
std::mutex& captureLock() {
    static std::mutex lock;
    return lock;
}
std::vector<ZelLogCapture*>& captures() {
    static std::vector<ZelLogCapture*> list;
    return list;
}
std::atomic<int> gCaptureCount{0};

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

void writeToStderr(int priority, const char* tag, const std::string& message) {
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
}

}  // namespace

void setStderrMinPriority(int priority) { minPriority().store(priority); }
int stderrMinPriority() { return minPriority().load(); }

ZelLogCapture::ZelLogCapture() {
    std::lock_guard<std::mutex> guard(captureLock());
    captures().push_back(this);
    gCaptureCount.fetch_add(1);
}

ZelLogCapture::~ZelLogCapture() {
    std::lock_guard<std::mutex> guard(captureLock());
    auto& list = captures();
    list.erase(std::remove(list.begin(), list.end(), this), list.end());
    gCaptureCount.fetch_sub(1);
}

std::vector<LogLine> ZelLogCapture::lines() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mLines;
}

std::vector<std::string> ZelLogCapture::messages(int priority) const {
    std::lock_guard<std::mutex> guard(mLock);
    std::vector<std::string> result;
    for (const auto& line : mLines) {
        if (priority < 0 || line.priority == priority) result.push_back(line.message);
    }
    return result;
}

bool ZelLogCapture::contains(int priority, const std::string& needle) const {
    std::lock_guard<std::mutex> guard(mLock);
    return std::any_of(mLines.begin(), mLines.end(), [&](const LogLine& line) {
        return line.priority == priority && line.message.find(needle) != std::string::npos;
    });
}

void ZelLogCapture::clear() {
    std::lock_guard<std::mutex> guard(mLock);
    mLines.clear();
}

void ZelLogCapture::append(const LogLine& line) {
    std::lock_guard<std::mutex> guard(mLock);
    mLines.push_back(line);
}

}  // namespace zel::hostlog

extern "C" int __android_log_buf_print(int bufID, int prio, const char* tag, const char* fmt, ...) {
    using namespace zel::hostlog;
    const bool toStderr = prio >= minPriority().load(std::memory_order_relaxed);
    if (!toStderr && gCaptureCount.load(std::memory_order_acquire) == 0) return 0;

    char stackBuffer[1024];
    std::string message;
    va_list args;
    va_start(args, fmt);
    va_list copy;
    va_copy(copy, args);
    const int length = vsnprintf(stackBuffer, sizeof(stackBuffer), fmt, args);
    va_end(args);
    if (length < 0) {
        va_end(copy);
        return -1;
    }
    if (static_cast<size_t>(length) < sizeof(stackBuffer)) {
        message.assign(stackBuffer, static_cast<size_t>(length));
    } else {
        message.resize(static_cast<size_t>(length) + 1);
        vsnprintf(message.data(), message.size(), fmt, copy);
        message.resize(static_cast<size_t>(length));
    }
    va_end(copy);

    if (tag == nullptr) tag = "";
    if (gCaptureCount.load(std::memory_order_acquire) > 0) {
        const LogLine line{bufID, prio, tag, message};
        std::lock_guard<std::mutex> guard(captureLock());
        for (ZelLogCapture* capture : captures()) capture->append(line);
    }
    if (toStderr) writeToStderr(prio, tag, message);
    return length;
}
