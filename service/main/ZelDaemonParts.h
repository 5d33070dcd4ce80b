#pragma once

#include <string>

// The four top-level objects of the daemon as its entry sequence uses them.
// The daemon's own implementation makes the real ones; tests put in stand-ins,
// which is the only way to reach the orderly stop.
class ZelDaemonParts {
public:
    virtual ~ZelDaemonParts() = default;

    // Each create returns false when its factory yields nothing.
    virtual bool createEventDispatcher(const std::string& moduleName) = 0;
    // With the event dispatcher made before.
    virtual bool createTaskManager(const std::string& policyFile) = 0;
    // With the task manager made before; the listener makes the IPC server.
    virtual bool createActivityListener(const std::string& moduleName) = 0;
    // Serves in the binder pool; true only if that reports success.
    virtual bool startActivityListener() = 0;
    virtual void stopTaskManager() = 0;
    virtual void stopActivityListener() = 0;
    virtual void stopEventDispatcher() = 0;
    // Drops the listener, the task manager and the dispatcher, in that order.
    virtual void release() = 0;
};
