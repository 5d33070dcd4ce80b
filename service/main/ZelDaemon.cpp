// The daemon's fixed start-up and shut-down sequence. The process entry
// (main.cpp) only wires the real parts into it.

#include <pthread.h>
#include <signal.h>

#include <thread>

#include "ZelDaemon.h"
#include "ZelLog.h"
#include "ZelPolicyFile.h"

namespace {

constexpr const char* kModuleName = "COM_OSTREL_ZELD";

// The sequence's lines read "main::main:<line> - ..." as they did when it
// was the process's main function; its errors name "main" too.
constexpr const char* kFunction = "main";
#define SEQUENCE_LOGI(...) ZEL_LOGI_AS("main", kFunction, __VA_ARGS__)
#define SEQUENCE_LOGE(...) ZEL_LOGE_AS("main", kFunction, __VA_ARGS__)

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

namespace ZelDaemon {

int run(ZelDaemonParts& parts) {
    SEQUENCE_LOGI("ZEL daemon is starting");

    // Before any thread exists, so every thread inherits the mask and neither
    // signal is ever delivered asynchronously.
    sigset_t signals;
    sigset_t previousMask;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGCHLD);
    if (pthread_sigmask(SIG_BLOCK, &signals, &previousMask) != 0) {
        SEQUENCE_LOGE("%s:%d Failed to block signal", kFunction, __LINE__);
        return 1;
    }

    if (!parts.createEventDispatcher(kModuleName)) {
        SEQUENCE_LOGE("%s:%d Failed to create ZelEventDispatcher", kFunction, __LINE__);
        return 1;
    }

    // No fallback: a missing or bad override file fails start-up.
    const ZelPolicyFile policyFile = ZelPolicyFile::choose();
    if (policyFile.override) SEQUENCE_LOGI("ZEL daemon is using override policy file");
    if (!parts.createTaskManager(policyFile.path)) {
        SEQUENCE_LOGE("%s:%d Failed to create ZelTaskManager", kFunction, __LINE__);
        return 1;
    }

    if (!parts.createActivityListener(kModuleName)) {
        SEQUENCE_LOGE("%s:%d Failed to create ZelActivityListener", kFunction, __LINE__);
        return 1;
    }

    // Serving: the main thread joins the binder pool here. Leaving the pool is
    // reported as a failed start, so only a listener that reports success
    // leads to the signal wait below (deliberate).
    if (!parts.startActivityListener()) {
        SEQUENCE_LOGE("%s:%d Failed to start ZelActivityListener", kFunction, __LINE__);
        return 1;
    }

    std::thread signalWait(waitForTermination, signals);
    signalWait.join();

    parts.stopTaskManager();
    parts.stopActivityListener();
    parts.stopEventDispatcher();
    SEQUENCE_LOGI("ZEL daemon has stopped");
    parts.release();
    return 0;
}

}  // namespace ZelDaemon
