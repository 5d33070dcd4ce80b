#pragma once

#include <string>

#include <binder/IServiceManager.h>

#include "ZelTestProcess.h"
#include "ZelTestRoot.h"
#include "ZelTestWait.h"

// The real zeld binary serving on a test's device root (ZELD_ROOT is
// inherited), its log lines in <root>/<logName>. Killed when dropped.
class ZelDaemonProcess {
public:
    ZelDaemonProcess(const std::string& binary, const ZelTestRoot& root,
                     const std::string& logName = "zeld.log")
        : mLogPath(root.at(logName)), mOutput(mLogPath), mProcess(binary, {}, mOutput.get()) {}

    // Both services registered by this daemon, or it exited first.
    bool waitUntilServing() {
        return eventually([this] { return serving() || !mProcess.running(); }) && serving();
    }
    std::string log() const { return readZelTestFile(mLogPath); }
    ZelPeerProcess& process() { return mProcess; }

private:
    static bool serving() {
        const android::sp<android::IServiceManager> sm = android::defaultServiceManager();
        return sm != nullptr &&
               sm->checkService(android::String16("com.ostrel.zeld.service.IZelBinderIPC")) != nullptr &&
               sm->checkService(android::String16("com.ostrel.zeld.service.IZelEventManager")) != nullptr;
    }

    const std::string mLogPath;
    const ZelOutputTo mOutput;
    ZelPeerProcess mProcess;
};
