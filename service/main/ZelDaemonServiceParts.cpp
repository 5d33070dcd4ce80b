#include "ZelDaemonServiceParts.h"

#include "ZelBinderIpcServer.h"
#include "ZelDaemonDump.h"

bool ZelDaemonServiceParts::createEventDispatcher(const std::string& moduleName) {
    mEventDispatcher = ZelBinderIpcServer::createEventDispatcherInterface(moduleName);
    return mEventDispatcher != nullptr;
}

bool ZelDaemonServiceParts::createTaskManager(const std::string& policyFile) {
    mTaskManager = ZelTaskManager::create(policyFile, mEventDispatcher);
    return mTaskManager != nullptr;
}

bool ZelDaemonServiceParts::createActivityListener(const std::string& moduleName) {
    mActivityListener =
            ZelActivityListener::create(moduleName, mTaskManager, &ZelBinderIpcServer::create);
    if (mActivityListener == nullptr) return false;
    // The client service's dump shows the task manager's state.
    if (const auto& server = mActivityListener->getServer()) {
        server->setDump(ZelDaemonDump::function(mTaskManager));
    }
    return true;
}

bool ZelDaemonServiceParts::startActivityListener() {
    return mActivityListener->start();
}

void ZelDaemonServiceParts::stopTaskManager() {
    mTaskManager->stop();
}

void ZelDaemonServiceParts::stopActivityListener() {
    (void)mActivityListener->stop();
}

void ZelDaemonServiceParts::stopEventDispatcher() {
    mEventDispatcher->stop();
}

void ZelDaemonServiceParts::release() {
    mActivityListener.reset();
    mTaskManager.reset();
    mEventDispatcher.reset();
}
