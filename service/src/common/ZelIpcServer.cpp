#include "ZelIpcServer.h"

#include <utility>

ZelIpcServer::~ZelIpcServer() = default;

void ZelIpcServer::setServerCallback(ServerCallback callback) {
    std::lock_guard<std::mutex> guard(mCallbackLock);
    mServerCallback = std::move(callback);
}

int ZelIpcServer::clearServerCallback() {
    ServerCallback previous;  // destroyed after the lock
    std::lock_guard<std::mutex> guard(mCallbackLock);
    previous = std::move(mServerCallback);
    mServerCallback = nullptr;
    return 0;
}

ServerCallback ZelIpcServer::getServerCallback() {
    std::lock_guard<std::mutex> guard(mCallbackLock);
    return mServerCallback;
}

void ZelIpcServer::setDump(ZelDumpFunction) {}
