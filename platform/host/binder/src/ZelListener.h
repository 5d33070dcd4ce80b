#pragma once

#include <cstdint>
#include <mutex>
#include <string>

#include <android-base/unique_fd.h>
#include <utils/Errors.h>

#include "ZelDeadlines.h"
#include "ZelIncomingConnections.h"
#include "ZelSocket.h"
#include "ZelThreadPool.h"

namespace zel::binder {

// This process's endpoint: the listening socket, one-shot in the pool's
// epoll set, so one thread at a time accepts. Every connection waiting is
// accepted and handed to the incoming connections.
//
// Out of descriptors, one descriptor kept in reserve (on /dev/null) is let
// go to accept the connection waiting and close it at once, and taken back:
// its process hears no at once instead of waiting unanswered, and the
// listener does not spin. Without the reserve (or out of memory) the
// listener rests, for a pause growing from kZelFirstAcceptPause to
// kZelLastAcceptPause, and is tried again. Either is logged once when it
// starts and once when it ends.
class ZelListener {
public:
    ZelListener(ZelThreadPool& pool, ZelDeadlines& timer, ZelIncomingConnections& incoming);

    [[nodiscard]] android::status_t listen(const ZelSocketDir& dir, const std::string& endpoint);
    // Pool threads: connections wait.
    void acceptAll();
    // The pause is over: the listener is armed again.
    void resume();

private:
    // Out of descriptors: refuses the connection waiting with the reserve's
    // descriptor. 0 when one was refused, else accept's error.
    int refuseWithReserve(int error);
    void keepReserve();
    void pause(int error);
    void logTrouble(const char* what, int error);

    ZelThreadPool& mPool;
    ZelDeadlines& mTimer;
    ZelIncomingConnections& mIncoming;
    android::base::unique_fd mFd;

    // Held by the thread that accepts (one at a time anyway); before the
    // incoming connections' locks and the timer's. Guards the fields below.
    std::mutex mAcceptLock;
    android::base::unique_fd mReserve;
    bool mTroubled = false;   // refusing or resting since the last connection accepted
    int64_t mPauseMs = 0;     // the last pause, 0 while accepting
};

}  // namespace zel::binder
