// The daemon's fixed start-up and shut-down sequence. The process entry
// (ZelDaemonEntry.cpp) only wires the real parts into it.

#include <pthread.h>
#include <signal.h>

#include <thread>

#include "ZelDaemonParts.h"
#include "ZelLog.h"
#include "ZelPolicyFile.h"

namespace {

constexpr const char* kModuleName = "COM_OSTREL_ZELD";

// Consumes the blocked signals until SIGTERM (or a failed wait). SIGINT and
// -1 cannot arrive through this set; they end the wait all the same.
void waitForTermination(sigset_t signals) {
    int signal = 0;
    for (;;) {
        if (sigwait(&signals, &signal) != 0) {
            signal = -1;
            break;
        }
        if (signal == SIGINT || signal == SIGTERM || signal == -1) break;
    }
}

}  // namespace

namespace zeld {

int main(ZelDaemonParts& parts) {
    ZEL_LOGI("ZEL daemon is starting");

    // Before any thread exists, so every thread inherits the mask and neither
    // signal is ever delivered asynchronously.
    sigset_t signals;
    sigset_t previousMask;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGCHLD);
    if (pthread_sigmask(SIG_BLOCK, &signals, &previousMask) != 0) {
        ZEL_LOGE("%s:%d Failed to block signal", __func__, __LINE__);
        return 1;
    }

    if (!parts.createEventDispatcher(kModuleName)) {
        ZEL_LOGE("%s:%d Failed to create ZelEventDispatcher", __func__, __LINE__);
        return 1;
    }

    // No fallback: a missing or bad override file fails start-up.
    const ZelPolicyFile policyFile = ZelPolicyFile::choose();
    if (policyFile.override) ZEL_LOGI("ZEL daemon is using override policy file");
    if (!parts.createTaskManager(policyFile.path)) {
        ZEL_LOGE("%s:%d Failed to create ZelTaskManager", __func__, __LINE__);
        return 1;
    }

    if (!parts.createActivityListener(kModuleName)) {
        ZEL_LOGE("%s:%d Failed to create ZelActivityListener", __func__, __LINE__);
        return 1;
    }

    // Serving: the main thread joins the binder pool here. Leaving the pool is
    // reported as a failed start, so only a listener that reports success
    // leads to the signal wait below (deliberate).
    if (!parts.startActivityListener()) {
        ZEL_LOGE("%s:%d Failed to start ZelActivityListener", __func__, __LINE__);
        return 1;
    }

    std::thread signalWait(waitForTermination, signals);
    signalWait.join();

    parts.stopTaskManager();
    parts.stopActivityListener();
    parts.stopEventDispatcher();
    ZEL_LOGI("ZEL daemon has stopped");
    parts.release();
    return 0;
}

}  // namespace zeld
