#include "ZelctlBoundedRun.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <thread>

namespace {

constexpr auto kNever = ZelctlBoundedRun::Clock::time_point::max();

std::string milliseconds(std::chrono::milliseconds value) {
    return std::to_string(value.count()) + " ms";
}

}  // namespace

ZelctlBoundedRun::ZelctlBoundedRun(ZelctlOutput& output, std::chrono::milliseconds timeout,
                                   bool stoppable)
    : mOutput(output), mTimeout(timeout), mStoppable(stoppable) {
    sigemptyset(&mSignals);
    if (mStoppable) {
        for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&mSignals, signal);
        if (pthread_sigmask(SIG_BLOCK, &mSignals, nullptr) == 0) {
            mSignalFd = signalfd(-1, &mSignals, SFD_CLOEXEC);
        }
    }
    mWakeFd = eventfd(0, EFD_CLOEXEC);
}

// The stop signals stay blocked: the process ends soon, and a signal that
// came after the run must not end it with the signal's default action.
ZelctlBoundedRun::~ZelctlBoundedRun() {
    if (mSignalFd >= 0) close(mSignalFd);
    if (mWakeFd >= 0) close(mWakeFd);
}

int ZelctlBoundedRun::run(const std::function<int()>& work, const std::function<void()>& cleanup) {
    if (mWakeFd < 0 || (mStoppable && mSignalFd < 0)) {
        // Out of descriptors: the command runs unbounded rather than not at all.
        const int status = work();
        cleanup();
        return status;
    }
    std::thread worker([&] {
        const int status = work();
        {
            std::lock_guard<std::mutex> guard(mLock);
            mStatus = status;
            mPhase = Phase::kCleaningUp;
            mWhat = "letting go of it";
            mDeadline = Clock::now() + mTimeout;
        }
        wake();
        cleanup();
        {
            std::lock_guard<std::mutex> guard(mLock);
            mPhase = Phase::kDone;
        }
        wake();
    });
    for (;;) {
        Clock::time_point cutAt;
        {
            std::lock_guard<std::mutex> guard(mLock);
            if (mPhase == Phase::kDone) break;
            cutAt = cutLocked();
        }
        int waitMs = -1;
        if (cutAt != kNever) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(cutAt - Clock::now());
            waitMs = static_cast<int>(std::clamp<int64_t>(left.count(), 0, INT_MAX));
        }
        pollfd fds[] = {{mWakeFd, POLLIN, 0}, {mSignalFd, POLLIN, 0}};
        const int ready = poll(fds, mStoppable ? 2 : 1, waitMs);
        if (ready < 0 && errno != EINTR) break;  // cannot wait: let the work end by itself
        if (ready == 0 && Clock::now() >= cutAt) cut();
        uint64_t count = 0;
        if (fds[0].revents & POLLIN) (void)read(mWakeFd, &count, sizeof(count));
        signalfd_siginfo signal{};
        if (mStoppable && (fds[1].revents & POLLIN) &&
            read(mSignalFd, &signal, sizeof(signal)) == sizeof(signal)) {
            onSignal(static_cast<int>(signal.ssi_signo));
        }
    }
    worker.join();
    std::lock_guard<std::mutex> guard(mLock);
    return mStatus;
}

void ZelctlBoundedRun::await(const std::string& what, Clock::time_point deadline) {
    {
        std::lock_guard<std::mutex> guard(mLock);
        mWhat = what;
        mDeadline = deadline;
    }
    wake();
}

bool ZelctlBoundedRun::waitForStop(std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> lock(mLock);
    return mStopped.wait_for(lock, timeout, [this] { return mStopTime != kNever; });
}

void ZelctlBoundedRun::wake() {
    const uint64_t one = 1;
    (void)write(mWakeFd, &one, sizeof(one));
}

void ZelctlBoundedRun::onSignal(int signal) {
    {
        std::lock_guard<std::mutex> guard(mLock);
        if (mStopTime == kNever) {
            mStopTime = Clock::now();
            mStopped.notify_all();
            return;
        }
    }
    // A second stop: the person means it.
    mOutput.close("", "stopped again: ending at once");
    _exit(128 + signal);
}

ZelctlBoundedRun::Clock::time_point ZelctlBoundedRun::cutLocked() const {
    if (mPhase == Phase::kCleaningUp) return mDeadline;
    Clock::time_point cutAt = mDeadline == kNever ? kNever : mDeadline + kGrace;
    if (mStopTime != kNever) cutAt = std::min(cutAt, mStopTime + mTimeout + kGrace);
    return cutAt;
}

void ZelctlBoundedRun::cut() {
    Phase phase;
    int status;
    std::string what;
    {
        std::lock_guard<std::mutex> guard(mLock);
        phase = mPhase;
        status = mStatus;
        what = mWhat;
    }
    if (phase == Phase::kCleaningUp) {
        mOutput.close("", "no answer from the daemon within " + milliseconds(mTimeout) + " while " +
                                  what + ": ending without it");
        _exit(status);
    }
    mOutput.close("timed_out",
                  "no answer from the daemon within " + milliseconds(mTimeout) + " while " + what);
    _exit(1);
}
