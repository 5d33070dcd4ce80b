#include "ZelServiceLink.h"

#include <utility>

#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>

namespace zel::client {

using android::IBinder;
using android::sp;

namespace {

constexpr auto kPollInterval = std::chrono::milliseconds(50);

sp<IBinder> lookUp(const std::string& name) {
    const sp<android::IServiceManager> serviceManager = android::defaultServiceManager();
    if (serviceManager == nullptr) return nullptr;
    return serviceManager->checkService(android::String16(name.c_str()));
}

}  // namespace

ZelServiceLink::ZelServiceLink(std::string serviceName, bool reconnect)
    : mServiceName(std::move(serviceName)), mReconnect(reconnect) {}

ZelServiceLink::~ZelServiceLink() {
    {
        std::lock_guard<std::mutex> guard(mLock);
        mClosed = true;
        mChanged.notify_all();
    }
    if (mReconnector.joinable()) mReconnector.join();
}

void ZelServiceLink::setHandlers(OnConnected onConnected, OnDied onDied) {
    mOnConnected = std::move(onConnected);
    mOnDied = std::move(onDied);
}

ZelClientError ZelServiceLink::connect(Clock::time_point deadline) {
    // Replies and death notices arrive on the binder pool.
    android::ProcessState::self()->startThreadPool();
    for (;;) {
        if (const sp<IBinder> found = lookUp(mServiceName); found != nullptr && attach(found)) break;
        if (Clock::now() >= deadline) return ZelClientError::kNotRunning;
        std::this_thread::sleep_for(kPollInterval);
    }
    if (mReconnect) mReconnector = std::thread(&ZelServiceLink::reconnectLoop, this);
    return ZelClientError::kNone;
}

bool ZelServiceLink::attach(const sp<IBinder>& service) {
    if (mOnConnected && !mOnConnected(service)) return false;
    if (service->linkToDeath(this) != android::OK) return false;
    std::lock_guard<std::mutex> guard(mLock);
    if (mClosed) return false;
    mService = service;
    mDead = false;
    ++mConnections;
    mChanged.notify_all();
    return true;
}

sp<IBinder> ZelServiceLink::service(Clock::time_point deadline) {
    std::unique_lock<std::mutex> lock(mLock);
    mChanged.wait_until(lock, deadline, [this] { return mService != nullptr || mClosed || !mReconnect; });
    return mService;
}

bool ZelServiceLink::isConnected() {
    std::lock_guard<std::mutex> guard(mLock);
    return mService != nullptr;
}

uint64_t ZelServiceLink::reconnections() {
    std::lock_guard<std::mutex> guard(mLock);
    return mConnections > 0 ? mConnections - 1 : 0;
}

void ZelServiceLink::close() {
    sp<IBinder> service;
    std::thread reconnector;
    {
        std::lock_guard<std::mutex> guard(mLock);
        mClosed = true;
        service = std::move(mService);
        reconnector = std::move(mReconnector);
        mChanged.notify_all();
    }
    if (service != nullptr) service->unlinkToDeath(this);
    if (reconnector.joinable()) reconnector.join();
}

void ZelServiceLink::binderDied(const android::wp<IBinder>& /*who*/) {
    sp<IBinder> dead;  // released outside mLock
    {
        std::lock_guard<std::mutex> guard(mLock);
        dead = std::move(mService);
        mDead = true;
        mChanged.notify_all();
    }
    if (mOnDied) mOnDied();
}

void ZelServiceLink::reconnectLoop() {
    std::unique_lock<std::mutex> lock(mLock);
    for (;;) {
        mChanged.wait(lock, [this] { return mDead || mClosed; });
        if (mClosed) return;
        lock.unlock();
        std::this_thread::sleep_for(kPollInterval);
        // Until the new daemon registers again the old registration names a
        // dead endpoint, which checkService reports absent.
        if (const sp<IBinder> found = lookUp(mServiceName)) attach(found);
        lock.lock();
    }
}

}  // namespace zel::client
