#include "ZelListener.h"

#include <errno.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>

#include "ZelBinderLog.h"
#include "ZelRuntimeLimits.h"

namespace zel::binder {

using android::OK;
using android::status_t;

ZelListener::ZelListener(ZelThreadPool& pool, ZelDeadlines& timer, ZelIncomingConnections& incoming)
    : mPool(pool), mTimer(timer), mIncoming(incoming) {}

status_t ZelListener::listen(const ZelSocketDir& dir, const std::string& endpoint) {
    const status_t status = zelListen(dir, endpoint, &mFd);
    if (status != OK) return status;
    return mPool.add(mFd.get(), EPOLLIN | EPOLLONESHOT, ZelSource::LISTENER, 0) ? OK : -errno;
}

void ZelListener::acceptAll() {
    for (;;) {
        android::base::unique_fd fd(accept4(mFd.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (fd.get() < 0) {
            if (errno == EINTR || errno == ECONNABORTED) continue;
            if (errno == EAGAIN || errno == EWOULDBLOCK) break;
            // Out of descriptors or memory: the listener stays readable, so
            // it is not armed again until a pause has passed.
            return pause(errno);
        }
        if (mPauseMs.exchange(0) != 0) ZEL_BINDER_LOGI("accepting connections again");
        mIncoming.adopt(std::move(fd));
    }
    resume();
}

void ZelListener::pause(int error) {
    const int64_t last = mPauseMs.load();
    const int64_t pause = last == 0 ? kZelFirstAcceptPause.count() : std::min(2 * last, kZelLastAcceptPause.count());
    mPauseMs = pause;
    if (last == 0) {
        ZEL_BINDER_LOGE("cannot accept connections: %s; trying again at pauses of up to %lld ms", strerror(error),
                        static_cast<long long>(kZelLastAcceptPause.count()));
    }
    mTimer.set({0, ZelDeadlines::Kind::ACCEPT}, ZelDeadlines::Clock::now() + std::chrono::milliseconds(pause));
}

void ZelListener::resume() { mPool.modify(mFd.get(), EPOLLIN | EPOLLONESHOT, ZelSource::LISTENER, 0); }

}  // namespace zel::binder
