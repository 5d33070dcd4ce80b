// Serves the stand-in IZelBinderIPC and IZelEventManager under the daemon's
// service names, for tests and host test setups (see docs/host-binder.md).
#include <unistd.h>

#include <cstdio>

#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>

#include "ZelTestServices.h"

int main() {
    android::sp<android::IServiceManager> sm = android::defaultServiceManager();
    if (sm == nullptr) {
        std::fprintf(stderr, "no service manager (is ZELD_ROOT writable?)\n");
        return 1;
    }
    if (sm->addService(android::String16("com.ostrel.zeld.service.IZelBinderIPC"), new zel_test::ZelTestIpcService()) !=
                android::OK ||
        sm->addService(android::String16("com.ostrel.zeld.service.IZelEventManager"),
                       new zel_test::ZelTestEventService()) != android::OK) {
        std::fprintf(stderr, "cannot register the services\n");
        return 1;
    }
    std::printf("serving com.ostrel.zeld.service.IZelBinderIPC and IZelEventManager (pid %d)\n", getpid());
    std::fflush(stdout);
    android::ProcessState::self()->startThreadPool();
    android::IPCThreadState::self()->joinThreadPool(true);
    return 0;
}
