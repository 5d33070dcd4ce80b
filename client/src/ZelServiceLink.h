#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include <binder/IBinder.h>

#include "zel/client/ZelClientError.h"

namespace zel::client {

// A client's hold on one of the daemon's services: finds it by name, watches
// its death and, when asked to, finds it again after the daemon restarts.
//
// onConnected runs for each connection (the first one included) before the
// service counts as connected; it registers the client's callback and returns
// false when that failed. onDied runs on the binder thread that reports the
// death. Neither runs under mLock.
class ZelServiceLink : public android::IBinder::DeathRecipient {
public:
    using Clock = std::chrono::steady_clock;
    using OnConnected = std::function<bool(const android::sp<android::IBinder>& service)>;
    using OnDied = std::function<void()>;

    ZelServiceLink(std::string serviceName, bool reconnect);
    ~ZelServiceLink() override;

    void setHandlers(OnConnected onConnected, OnDied onDied);
    // The first connection: kNotRunning when the service does not appear in time.
    ZelClientError connect(Clock::time_point deadline);
    // The service, waiting until the deadline while a reconnection runs; null
    // when there is none by then.
    android::sp<android::IBinder> service(Clock::time_point deadline);
    bool isConnected();
    // Connections made after the first one (daemon restarts followed).
    uint64_t reconnections();
    // Stops reconnecting and forgets the service. Call it before the last
    // reference goes: the destructor only stops the reconnection.
    void close();

    void binderDied(const android::wp<android::IBinder>& who) override;

private:
    bool attach(const android::sp<android::IBinder>& service);
    void reconnectLoop();

    const std::string mServiceName;
    const bool mReconnect;
    OnConnected mOnConnected;  // set once before connect()
    OnDied mOnDied;

    std::mutex mLock;  // guards the fields below
    std::condition_variable mChanged;
    android::sp<android::IBinder> mService;
    bool mDead = false;
    uint64_t mConnections = 0;
    bool mClosed = false;
    std::thread mReconnector;
};

}  // namespace zel::client
