#pragma once

#include <string>
#include <vector>

#include <binder/IServiceManager.h>

#include "ZelTestProcess.h"
#include "ZelTestRoot.h"
#include "ZelTestWait.h"

// The real zeld binary serving on a test's device root (ZELD_ROOT is
// inherited), its log lines in <root>/<logName>; `environment` holds
// NAME=value words for the daemon alone. Killed when dropped.
class ZelDaemonProcess {
public:
    ZelDaemonProcess(const std::string& binary, const ZelTestRoot& root,
                     const std::string& logName = "zeld.log",
                     std::vector<std::string> environment = {})
        : mLogPath(root.at(logName)),
          mOutput(mLogPath),
          mProcess(environment.empty() ? binary : "/usr/bin/env",
                   environment.empty() ? environment : withProgram(environment, binary),
                   mOutput.get()) {}

    // Both services registered by this daemon, or it exited first.
    bool waitUntilServing() {
        return eventually([this] { return serving() || !mProcess.running(); }) && serving();
    }
    std::string log() const { return readZelTestFile(mLogPath); }
    ZelPeerProcess& process() { return mProcess; }

private:
    static std::vector<std::string> withProgram(std::vector<std::string> words,
                                                const std::string& program) {
        words.push_back(program);
        return words;
    }
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
