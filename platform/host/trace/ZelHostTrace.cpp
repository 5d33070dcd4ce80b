// The host's trace back end: the Trace Event JSON array, written to the file
// named by ZELD_TRACE as events happen.
//
// The file is "[" and the process's name, then one ",\n{event}" per event,
// each (with the thread's name before a thread's first event) in one write()
// on an O_APPEND descriptor under mLock, so no event is ever torn or split
// from its separator. A process killed at any moment leaves a file that the
// format reads as it is (its closing bracket is optional); a normal exit
// closes the array. The file is opened at the first event, so a process that
// never traces (zelctl beside a traced daemon) leaves it alone.

#include <fcntl.h>
#include <pthread.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <string_view>

#include <log/log.h>

#include "ZelTraceBackEnd.h"
#include "ZelTraceJson.h"
#include "ZelTraceSwitch.h"

// The back end's own lines, in the daemon's form ("<file>::<function>:<line> -
// <text>" under the tag "zeld"), written without the daemon's logging header:
// the platform includes nothing of the daemon's.
#define TRACE_LOGE(fmt, ...)                                                                 \
    ((void)__android_log_buf_print(LOG_ID_SYSTEM, ANDROID_LOG_ERROR, "zeld",                 \
                                   "ZelHostTrace::%s:%d - " fmt, __func__, __LINE__, __VA_ARGS__))

namespace zel::trace {

std::atomic<bool> gEnabled{false};

namespace {

constexpr const char* kTraceVariable = "ZELD_TRACE";

// Armed before main: the variable is read once, the file opened later.
[[maybe_unused]] const bool kArmed = [] {
    const char* path = std::getenv(kTraceVariable);
    if (path != nullptr && path[0] != '\0') gEnabled.store(true);
    return true;
}();

ZelTraceValue textValue(const char* chars) { return {chars, 0, false}; }

int64_t monotonicNs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

class ZelTraceFile;
ZelTraceFile& traceFile();

// This process's trace file. Lives for good (never destroyed), since threads
// may still trace while static objects are destroyed at exit.
class ZelTraceFile {
public:
    // Writes text that holds whole events, each led by its separator; nothing
    // once the file is closed or could not be opened, nor from a child forked
    // after it was opened (the events would carry the parent's thread ids).
    void write(std::string_view events, int pid) {
        std::lock_guard<std::mutex> guard(mLock);
        if (!mOpenTried) openLocked(pid);
        if (mFd >= 0 && pid == mPid) writeLocked(events);
    }

    // At a normal exit: closes the array; later events are dropped.
    void close() {
        std::lock_guard<std::mutex> guard(mLock);
        if (mFd >= 0 && getpid() == mPid) writeLocked("\n]\n");
        stopLocked();
    }

private:
    void openLocked(int pid) {
        mOpenTried = true;
        const char* path = std::getenv(kTraceVariable);
        if (path == nullptr || path[0] == '\0') return stopLocked();
        mFd = ::open(path, O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0644);
        if (mFd < 0) {
            TRACE_LOGE("Cannot write the trace file %s: %s", path, strerror(errno));
            return stopLocked();
        }
        mPid = pid;
        std::string head = "[\n";
        const ZelTraceArg name{"name", textValue(program_invocation_short_name)};
        appendJsonEvent(head, {'M', "process_name", pid, pid, monotonicNs(), &name, 1});
        writeLocked(head);
        std::atexit([] { traceFile().close(); });
    }

    void writeLocked(std::string_view text) {
        while (!text.empty() && mFd >= 0) {
            const ssize_t written = ::write(mFd, text.data(), text.size());
            if (written < 0 && errno == EINTR) continue;
            if (written <= 0) {
                TRACE_LOGE("Cannot write the trace file: %s", strerror(errno));
                return stopLocked();
            }
            text.remove_prefix(static_cast<std::size_t>(written));
        }
    }

    void stopLocked() {
        gEnabled.store(false);
        if (mFd >= 0) ::close(mFd);
        mFd = -1;
    }

    std::mutex mLock;  // guards the members below and keeps each write whole
    bool mOpenTried = false;
    int mFd = -1;
    int mPid = 0;  // the process that opened the file
};

ZelTraceFile& traceFile() {
    static ZelTraceFile* const file = new ZelTraceFile;
    return *file;
}

// What a thread needs to know about itself; trivially destructible, so it
// stays usable while the thread's other objects are destroyed.
struct ThreadState {
    int tid = 0;
    bool named = false;  // its thread_name event is in the file
};
thread_local ThreadState tThread;

void emit(char phase, const char* name, const ZelTraceArg* args, std::size_t count) {
    const int64_t now = monotonicNs();
    const int pid = getpid();
    if (tThread.tid == 0) tThread.tid = gettid();
    std::string text;
    text.reserve(256);
    if (!tThread.named) {
        char threadName[16] = {};
        pthread_getname_np(pthread_self(), threadName, sizeof(threadName));
        const ZelTraceArg arg{"name", textValue(threadName)};
        text += ",\n";
        appendJsonEvent(text, {'M', "thread_name", pid, tThread.tid, now, &arg, 1});
        tThread.named = true;
    }
    text += ",\n";
    appendJsonEvent(text, {phase, name, pid, tThread.tid, now, args, count});
    traceFile().write(text, pid);
}

}  // namespace

void beginSlice(const char* name, const ZelTraceArg* args, std::size_t count) {
    emit('B', name, args, count);
}

void endSlice(const char* name) { emit('E', name, nullptr, 0); }

void counter(const char* name, int64_t value) {
    const ZelTraceArg arg{"value", {{}, value, true}};
    emit('C', name, &arg, 1);
}

void instant(const char* name, const ZelTraceArg* args, std::size_t count) {
    emit('i', name, args, count);
}

}  // namespace zel::trace
