#include <binder/ProcessState.h>

#include "ZelBinderRuntime.h"

namespace android {

using zel::binder::ZelBinderRuntime;

sp<ProcessState> ProcessState::self() {
    static ProcessState* instance = [] {
        auto* state = new ProcessState();
        state->incStrong(nullptr);  // lives for the whole process, as on a device
        return state;
    }();
    // Going online here mirrors opening the driver; failure shows later as a
    // missing service manager.
    (void)ZelBinderRuntime::instance().ensureOnline();
    return instance;
}

ProcessState::ProcessState() = default;
ProcessState::~ProcessState() = default;

void ProcessState::startThreadPool() { ZelBinderRuntime::instance().startThreadPool(); }

status_t ProcessState::setThreadPoolMaxThreadCount(size_t maxThreads) {
    return ZelBinderRuntime::instance().setMaxThreads(maxThreads);
}

size_t ProcessState::getThreadPoolMaxThreadCount() const {
    return ZelBinderRuntime::instance().maxThreads();
}

void ProcessState::spawnPooledThread(bool isMain) {
    ZelBinderRuntime::instance().spawnPooledThread(isMain);
}

}  // namespace android
