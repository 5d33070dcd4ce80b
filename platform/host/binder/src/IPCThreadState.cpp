#include <binder/IPCThreadState.h>

#include <unistd.h>

#include "ZelBinderRuntime.h"

namespace android {

using zel::binder::ZelBinderRuntime;

namespace {
thread_local IPCThreadState* tState = nullptr;
}

IPCThreadState* IPCThreadState::self() {
    if (tState == nullptr) {
        // One per thread, freed with it.
        static thread_local IPCThreadState state;
        tState = &state;
    }
    return tState;
}

IPCThreadState* IPCThreadState::selfOrNull() { return tState; }

IPCThreadState::IPCThreadState() : mCallingPid(getpid()), mCallingUid(getuid()) {}

pid_t IPCThreadState::getCallingPid() const { return mCallingPid; }
uid_t IPCThreadState::getCallingUid() const { return mCallingUid; }

int64_t IPCThreadState::clearCallingIdentity() {
    const int64_t token = (static_cast<int64_t>(mCallingUid) << 32) | static_cast<uint32_t>(mCallingPid);
    mCallingPid = getpid();
    mCallingUid = getuid();
    return token;
}

void IPCThreadState::restoreCallingIdentity(int64_t token) {
    mCallingUid = static_cast<uid_t>(static_cast<uint64_t>(token) >> 32);
    mCallingPid = static_cast<pid_t>(static_cast<uint32_t>(token));
}

IPCThreadState::CallingIdentity IPCThreadState::swapCallingIdentity(CallingIdentity identity) {
    const CallingIdentity previous{mCallingPid, mCallingUid};
    mCallingPid = identity.pid;
    mCallingUid = identity.uid;
    return previous;
}

void IPCThreadState::joinThreadPool(bool isMain) { ZelBinderRuntime::instance().joinThreadPool(isMain); }

void IPCThreadState::stopProcess(bool) { ZelBinderRuntime::instance().stopProcess(); }

}  // namespace android
