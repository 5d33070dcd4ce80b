#include "ZelTestEventService.h"

#include <algorithm>

using android::sp;
using android::binder::Status;

namespace {
Status illegalArgument() { return Status::fromExceptionCode(Status::EX_ILLEGAL_ARGUMENT); }
}  // namespace

Status ZelTestEventService::registerEventCallback(const ServiceIdentifier& id, const sp<Callback>& callback) {
    if (id.value == 0 || callback == nullptr) return illegalArgument();
    std::lock_guard<std::mutex> guard(mLock);
    mCallbacks[id.value] = callback;
    return Status::ok();
}

Status ZelTestEventService::unregisterEventCallback(const ServiceIdentifier& id) {
    if (id.value == 0) return illegalArgument();
    std::lock_guard<std::mutex> guard(mLock);
    mCallbacks.erase(id.value);
    return Status::ok();
}

Status ZelTestEventService::subscribe(const ServiceIdentifier& subscriber, const ServiceIdentifier& publisher,
                                      int32_t groupId, int32_t eventId) {
    if (subscriber.value == 0 || publisher.value == 0) return illegalArgument();
    std::lock_guard<std::mutex> guard(mLock);
    mSubscriptions[{publisher.value, groupId, eventId}].push_back(subscriber.value);
    return Status::ok();
}

Status ZelTestEventService::unsubscribe(const ServiceIdentifier& subscriber, const ServiceIdentifier& publisher,
                                        int32_t groupId, int32_t eventId) {
    if (subscriber.value == 0 || publisher.value == 0) return illegalArgument();
    std::lock_guard<std::mutex> guard(mLock);
    auto it = mSubscriptions.find({publisher.value, groupId, eventId});
    if (it == mSubscriptions.end()) return Status::ok();
    auto& list = it->second;
    auto found = std::find(list.begin(), list.end(), subscriber.value);
    if (found != list.end()) list.erase(found);
    if (list.empty()) mSubscriptions.erase(it);
    return Status::ok();
}

Status ZelTestEventService::publish(const ServiceIdentifier& publisher, int32_t groupId, int32_t eventId,
                                    const std::vector<uint8_t>& payload) {
    if (publisher.value == 0 || payload.empty()) return illegalArgument();
    std::vector<sp<Callback>> targets;
    {
        std::lock_guard<std::mutex> guard(mLock);
        auto it = mSubscriptions.find({publisher.value, groupId, eventId});
        if (it == mSubscriptions.end()) return Status::ok();
        for (int32_t subscriber : it->second) {
            auto callback = mCallbacks.find(subscriber);
            if (callback != mCallbacks.end()) targets.push_back(callback->second);
        }
    }
    for (const sp<Callback>& callback : targets) callback->onEvent(publisher, groupId, eventId, payload);
    return Status::ok();
}
