#include "ZelServerIZelEventManagerImpl.h"

#include <algorithm>
#include <utility>

#include "ZelDumpAccess.h"
#include "ZelDumpOutput.h"
#include "ZelEventDump.h"
#include "ZelTrace.h"

using android::sp;
using android::binder::Status;

namespace {

constexpr int32_t kDaemonParticipant = 1;

Status illegalArgument() {
    return Status::fromExceptionCode(Status::EX_ILLEGAL_ARGUMENT);
}

}  // namespace

ZelServerIZelEventManagerImpl::~ZelServerIZelEventManagerImpl() {
    std::lock_guard<std::mutex> guard(mLock);
    mSubscriptions.clear();
    mCallbacks.clear();
    mLocalEventCallback = nullptr;
}

Status ZelServerIZelEventManagerImpl::registerEventCallback(
        const ServiceIdentifier& id, const sp<IZelEventCallbackService>& callback) {
    if (id.value == 0 || callback == nullptr) return illegalArgument();
    sp<IZelEventCallbackService> previous;  // released after mLock
    std::lock_guard<std::mutex> guard(mLock);
    auto it = mCallbacks.find(id.value);
    if (it != mCallbacks.end()) {
        previous = std::move(it->second);
        mCallbacks.erase(it);
    }
    mCallbacks.emplace(id.value, callback);
    return Status::ok();
}

Status ZelServerIZelEventManagerImpl::unregisterEventCallback(const ServiceIdentifier& id) {
    if (id.value == 0) return illegalArgument();
    sp<IZelEventCallbackService> previous;  // released after mLock
    std::lock_guard<std::mutex> guard(mLock);
    auto it = mCallbacks.find(id.value);
    if (it != mCallbacks.end()) {
        previous = std::move(it->second);
        mCallbacks.erase(it);
    }
    return Status::ok();
}

Status ZelServerIZelEventManagerImpl::subscribe(const ServiceIdentifier& subscriber,
                                                const ServiceIdentifier& publisher,
                                                int32_t groupId, int32_t eventId) {
    if (subscriber.value == 0 || publisher.value == 0) return illegalArgument();
    std::lock_guard<std::mutex> guard(mLock);
    mSubscriptions[EventKey{publisher.value, groupId, eventId}].push_back(subscriber.value);
    return Status::ok();
}

Status ZelServerIZelEventManagerImpl::unsubscribe(const ServiceIdentifier& subscriber,
                                                  const ServiceIdentifier& publisher,
                                                  int32_t groupId, int32_t eventId) {
    if (subscriber.value == 0 || publisher.value == 0) return illegalArgument();
    std::lock_guard<std::mutex> guard(mLock);
    auto it = mSubscriptions.find(EventKey{publisher.value, groupId, eventId});
    if (it == mSubscriptions.end()) return Status::ok();
    // Deliberate: the removal is made on a copy. Only a list that becomes
    // empty changes anything (the key goes); a longer list stays as it was.
    std::vector<int32_t> remaining = it->second;
    auto found = std::find(remaining.begin(), remaining.end(), subscriber.value);
    if (found != remaining.end()) remaining.erase(found);
    if (remaining.empty()) mSubscriptions.erase(it);
    return Status::ok();
}

Status ZelServerIZelEventManagerImpl::publish(const ServiceIdentifier& publisher, int32_t groupId,
                                              int32_t eventId,
                                              const std::vector<uint8_t>& payload) {
    const ZelTraceSlice publication("publish event", "publisher", publisher.value, "group",
                                    groupId, "event", eventId);
    // Records whether it holds mLock: the walk releases it before a delivery.
    std::unique_lock<std::mutex> lock(mLock);
    if (publisher.value == 0 || payload.empty()) return illegalArgument();
    auto it = mSubscriptions.find(EventKey{publisher.value, groupId, eventId});
    if (it == mSubscriptions.end()) return Status::ok();

    // Every delivery path is resolved while mLock is held, in list order;
    // entries without one are skipped here and never count as deliveries.
    struct Delivery {
        int32_t subscriber;
        LocalEventCallback local;
        sp<IZelEventCallbackService> remote;
    };
    std::vector<Delivery> deliveries;
    deliveries.reserve(it->second.size());
    for (int32_t subscriber : it->second) {
        if (subscriber == kDaemonParticipant) {
            if (mLocalEventCallback) {
                deliveries.push_back({subscriber, mLocalEventCallback, nullptr});
            }
            continue;
        }
        auto callback = mCallbacks.find(subscriber);
        if (callback != mCallbacks.end()) {
            deliveries.push_back({subscriber, nullptr, callback->second});
        }
    }

    for (const Delivery& delivery : deliveries) {
        // The second release throws std::system_error (operation not
        // permitted): the second delivery of one publication ends the process.
        lock.unlock();
        const ZelTraceSlice delivering("deliver event", "subscriber", delivery.subscriber);
        if (delivery.local) {
            delivery.local(publisher, groupId, eventId, payload);
        } else {
            (void)delivery.remote->onEvent(publisher, groupId, eventId, payload);
        }
    }
    return Status::ok();
}

void ZelServerIZelEventManagerImpl::setLocalEventCallback(LocalEventCallback callback) {
    std::lock_guard<std::mutex> guard(mLock);
    mLocalEventCallback = std::move(callback);
}

android::status_t ZelServerIZelEventManagerImpl::dump(
        int fd, const android::Vector<android::String16>& args) {
    if (!zelCallerMayDump()) return android::PERMISSION_DENIED;
    ZelEventState state;
    {
        std::lock_guard<std::mutex> guard(mLock);
        state.localDelivery = static_cast<bool>(mLocalEventCallback);
        for (const auto& entry : mCallbacks) state.participants.push_back(entry.first);
        for (const auto& [key, subscribers] : mSubscriptions) {
            state.subscriptions.push_back({key.publisher, key.groupId, key.eventId, subscribers});
        }
    }
    return ZelDumpOutput::write(fd, ZelDumpOutput::wantsJson(args) ? ZelEventDump::json(state)
                                                                   : ZelEventDump::text(state));
}
