#include "ZelctlSignals.h"

#include <pthread.h>

#include <ctime>

ZelctlStopSignals::ZelctlStopSignals() {
    sigemptyset(&mSignals);
    sigaddset(&mSignals, SIGINT);
    sigaddset(&mSignals, SIGTERM);
    sigaddset(&mSignals, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &mSignals, nullptr);
}

bool ZelctlStopSignals::waitFor(std::chrono::milliseconds timeout) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(timeout);
    const timespec wait{static_cast<time_t>(seconds.count()),
                        static_cast<long>((timeout - seconds).count() * 1000000)};
    // EINTR (another signal) or EAGAIN (time out) both mean: not stopped yet.
    return sigtimedwait(&mSignals, nullptr, &wait) > 0;
}
