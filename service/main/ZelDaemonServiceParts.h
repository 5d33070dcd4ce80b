#pragma once

#include <memory>
#include <string>

#include "ZelActivityListener.h"
#include "ZelDaemonParts.h"
#include "ZelEventDispatcherInterface.h"
#include "ZelTaskManager.h"

// The daemon's real top-level objects, held for the life of the process.
class ZelDaemonServiceParts : public ZelDaemonParts {
public:
    bool createEventDispatcher(const std::string& moduleName) override;
    bool createTaskManager(const std::string& policyFile) override;
    bool createActivityListener(const std::string& moduleName) override;
    bool startActivityListener() override;
    void stopTaskManager() override;
    void stopActivityListener() override;
    void stopEventDispatcher() override;
    void release() override;

private:
    std::shared_ptr<ZelEventDispatcherInterface> mEventDispatcher;
    std::shared_ptr<ZelTaskManager> mTaskManager;
    std::shared_ptr<ZelActivityListener> mActivityListener;
};
