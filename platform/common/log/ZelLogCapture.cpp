#include "zel/ZelHostLog.h"

#include <log/log.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>

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

bool formatLogText(std::string& out, const char* fmt, va_list args) {
    char stackBuffer[1024];
    va_list copy;
    va_copy(copy, args);
    const int length = vsnprintf(stackBuffer, sizeof(stackBuffer), fmt, args);
    if (length < 0) {
        va_end(copy);
        return false;
    }
    if (static_cast<size_t>(length) < sizeof(stackBuffer)) {
        out.assign(stackBuffer, static_cast<size_t>(length));
    } else {
        out.resize(static_cast<size_t>(length) + 1);
        vsnprintf(out.data(), out.size(), fmt, copy);
        out.resize(static_cast<size_t>(length));
    }
    va_end(copy);
    return true;
}

}  // namespace

void setStderrMinPriority(int priority) { minPriority().store(priority); }
int stderrMinPriority() { return minPriority().load(std::memory_order_relaxed); }

int logLine(int bufferId, int priority, const char* tag, const char* fmt, va_list args,
            LogWriter writeOut) {
    const bool toOutput = priority >= stderrMinPriority();
    // The common case (no capture, line below the level) returns without formatting.
    if (!toOutput && gCaptureCount.load(std::memory_order_acquire) == 0) return 0;

    std::string text;
    if (!formatLogText(text, fmt, args)) return -1;
    if (tag == nullptr) tag = "";
    if (gCaptureCount.load(std::memory_order_acquire) > 0) {
        const LogLine line{bufferId, priority, tag, text};
        std::lock_guard<std::mutex> guard(captureLock());
        for (ZelLogCapture* capture : captures()) capture->append(line);
    }
    return toOutput ? writeOut(bufferId, priority, tag, text) : static_cast<int>(text.size());
}

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
