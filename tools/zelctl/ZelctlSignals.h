#pragma once

#include <chrono>

#include <signal.h>

// SIGINT, SIGTERM and SIGHUP kept for a long-running command to wait on, so
// that it leaves the daemon clean (unsubscribed, unregistered) when stopped.
// Construct it before any thread starts: the signals are blocked in the
// calling thread, and so in every thread started after it.
class ZelctlStopSignals {
public:
    ZelctlStopSignals();
    // True when one of the signals arrived within `timeout`.
    bool waitFor(std::chrono::milliseconds timeout);

private:
    sigset_t mSignals;
};
