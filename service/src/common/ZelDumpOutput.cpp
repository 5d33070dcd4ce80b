#include "ZelDumpOutput.h"

#include <limits.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>

namespace {

// Keeps SIGPIPE away from the process while this thread writes: blocked here,
// and a SIGPIPE this thread raised is taken off its pending set before the
// mask is restored.
class ZelSigpipeGuard {
public:
    ZelSigpipeGuard() {
        sigemptyset(&mPipe);
        sigaddset(&mPipe, SIGPIPE);
        sigset_t pending;
        sigpending(&pending);
        mWasPending = sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &mPipe, &mPrevious);
    }
    ~ZelSigpipeGuard() {
        if (!mWasPending) {
            const timespec none{0, 0};
            while (sigtimedwait(&mPipe, nullptr, &none) == -1 && errno == EINTR) {
            }
        }
        pthread_sigmask(SIG_SETMASK, &mPrevious, nullptr);
    }
    ZelSigpipeGuard(const ZelSigpipeGuard&) = delete;
    ZelSigpipeGuard& operator=(const ZelSigpipeGuard&) = delete;

private:
    sigset_t mPipe;
    sigset_t mPrevious;
    bool mWasPending = false;
};

}  // namespace

namespace ZelDumpOutput {

android::status_t write(int fd, const std::string& text, std::chrono::milliseconds patience) {
    ZelSigpipeGuard sigpipeGuard;
    size_t done = 0;
    while (done < text.size()) {
        pollfd writable{fd, POLLOUT, 0};
        const int ready = poll(&writable, 1, static_cast<int>(patience.count()));
        if (ready < 0 && errno == EINTR) continue;
        if (ready <= 0) return android::TIMED_OUT;
        // At most PIPE_BUF: a pipe that polls writable takes that much at once,
        // so a blocking descriptor does not block here.
        const size_t chunk = std::min<size_t>(text.size() - done, PIPE_BUF);
        const ssize_t written = ::write(fd, text.data() + done, chunk);
        if (written < 0 && (errno == EINTR || errno == EAGAIN)) continue;
        if (written < 0) return -errno;
        done += static_cast<size_t>(written);
    }
    return android::OK;
}

bool wantsJson(const android::Vector<android::String16>& args) {
    const android::String16 json("--json");
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == json) return true;
    }
    return false;
}

}  // namespace ZelDumpOutput
