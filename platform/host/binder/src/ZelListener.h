#pragma once

#include <atomic>
#include <cstdint>
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
// accepted and handed to the incoming connections. Out of descriptors (or
// memory) the listener rests, for a pause growing from kZelFirstAcceptPause
// to kZelLastAcceptPause, and is tried again; that is logged once when it
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
    void pause(int error);

    ZelThreadPool& mPool;
    ZelDeadlines& mTimer;
    ZelIncomingConnections& mIncoming;
    android::base::unique_fd mFd;
    // The pause while out of descriptors, in ms; 0 when accepting.
    std::atomic<int64_t> mPauseMs{0};
};

}  // namespace zel::binder
