#include "ZelListener.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdio>
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
    {
        std::lock_guard<std::mutex> guard(mAcceptLock);
        keepReserve();
    }
    return mPool.add(mFd.get(), EPOLLIN | EPOLLONESHOT, ZelSource::LISTENER, 0) ? OK : -errno;
}

void ZelListener::acceptAll() {
    std::lock_guard<std::mutex> guard(mAcceptLock);
    for (;;) {
        android::base::unique_fd fd(accept4(mFd.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (fd.get() < 0) {
            int error = errno;
            if (error == EMFILE || error == ENFILE) error = refuseWithReserve(error);
            if (error == 0 || error == EINTR || error == ECONNABORTED) continue;  // 0: one was refused
            if (error == EAGAIN || error == EWOULDBLOCK) break;
            // Out of descriptors or memory with nothing to refuse with: the
            // listener stays readable, so it is not armed again until a
            // pause has passed.
            return pause(error);
        }
        keepReserve();
        if (mTroubled) {
            mTroubled = false;
            mPauseMs = 0;
            ZEL_BINDER_LOGI("accepting connections again");
        }
        mIncoming.adopt(std::move(fd));
    }
    resume();
}

int ZelListener::refuseWithReserve(int error) {
    if (mReserve.get() < 0) return error;
    mReserve.reset();
    android::base::unique_fd refused(accept4(mFd.get(), nullptr, nullptr, SOCK_CLOEXEC));
    const int result = refused.get() < 0 ? errno : 0;
    refused.reset();
    keepReserve();
    if (result == 0) logTrouble("refusing them until descriptors are free", error);
    return result;
}

void ZelListener::keepReserve() {
    if (mReserve.get() < 0) mReserve.reset(open("/dev/null", O_RDONLY | O_CLOEXEC));
}

void ZelListener::pause(int error) {
    mPauseMs = mPauseMs == 0 ? kZelFirstAcceptPause.count() : std::min(2 * mPauseMs, kZelLastAcceptPause.count());
    char what[64];
    snprintf(what, sizeof(what), "trying again at pauses of up to %lld ms",
             static_cast<long long>(kZelLastAcceptPause.count()));
    logTrouble(what, error);
    mTimer.set({0, ZelDeadlines::Kind::ACCEPT}, ZelDeadlines::Clock::now() + std::chrono::milliseconds(mPauseMs));
}

void ZelListener::logTrouble(const char* what, int error) {
    if (mTroubled) return;
    mTroubled = true;
    ZEL_BINDER_LOGE("cannot accept connections: %s; %s", strerror(error), what);
}

void ZelListener::resume() { mPool.modify(mFd.get(), EPOLLIN | EPOLLONESHOT, ZelSource::LISTENER, 0); }

}  // namespace zel::binder
