#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>

#include <signal.h>

#include "ZelctlOutput.h"

// Runs a command's work on a worker thread while the calling thread keeps the
// command's word: a binder call to a daemon that does not answer (stopped by
// SIGSTOP, say) never returns, so only another thread can end the command in
// time. The calling thread waits for the work, for the deadline the work is
// under and, for a stoppable command, for SIGINT, SIGTERM and SIGHUP. When the
// deadline passes (plus kGrace, so that the work's own time-outs, which end at
// the deadline, speak first) it prints `timed_out` naming what the work waited
// for, flushes and ends the process with _exit: the worker is stuck and
// cannot be joined, and nothing else may run while it is.
//
// The work runs in two parts: `work` gives the command's result (its exit
// status), `cleanup` then lets go of the daemon (unregistering). A result
// stands: cleanup that the daemon does not answer within the command's
// timeout is only noted on stderr.
class ZelctlBoundedRun {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::milliseconds kGrace{500};

    // `timeout` also bounds the wind-down after a stop signal and the
    // cleanup. A stoppable run blocks its signals in the calling thread: make
    // it before any other thread starts, so that every thread inherits that.
    ZelctlBoundedRun(ZelctlOutput& output, std::chrono::milliseconds timeout, bool stoppable);
    ~ZelctlBoundedRun();
    ZelctlBoundedRun(const ZelctlBoundedRun&) = delete;
    ZelctlBoundedRun& operator=(const ZelctlBoundedRun&) = delete;

    // The work's exit status once it and its cleanup ended in time; else the
    // process ends here.
    int run(const std::function<int()>& work, const std::function<void()>& cleanup);

    // For the work: it waits on the daemon, `what` ("waiting for the reply
    // to the start request"), until `deadline`; Clock::time_point::max() for
    // no limit.
    void await(const std::string& what, Clock::time_point deadline);
    // For the work: waits up to `timeout` for a stop signal; true once one
    // has arrived.
    bool waitForStop(std::chrono::milliseconds timeout);

private:
    enum class Phase { kWorking, kCleaningUp, kDone };

    void wake();
    void onSignal(int signal);
    // The moment to give up at, from the state below (under mLock).
    Clock::time_point cutLocked() const;
    [[noreturn]] void cut();

    ZelctlOutput& mOutput;
    const std::chrono::milliseconds mTimeout;
    const bool mStoppable;
    sigset_t mSignals;
    int mSignalFd = -1;
    int mWakeFd = -1;  // written by the worker when its state changes

    std::mutex mLock;  // a leaf; guards the fields below
    std::condition_variable mStopped;
    Phase mPhase = Phase::kWorking;
    int mStatus = 0;
    std::string mWhat;
    Clock::time_point mDeadline = Clock::time_point::max();
    Clock::time_point mStopTime = Clock::time_point::max();
};
