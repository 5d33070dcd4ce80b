#pragma once

// Stand-ins for the daemon's services, for interface-level tests, the
// benchmark and host test setups. Not the daemon's behaviour:
//   ZelTestIpcService   decodes each request and answers through the caller's
//                       callback with { token + 1, notify, functionId } as
//                       { token, canStart, status };
//   ZelTestEventService delivers every publication to every subscriber with a
//                       registered callback.
#include <algorithm>
#include <map>
#include <mutex>
#include <tuple>
#include <vector>

#include <com/ostrel/zeld/interfaces/BnZelBinderIPC.h>
#include <com/ostrel/zeld/interfaces/BnZelEventManager.h>
#include <com/ostrel/zeld/interfaces/ZelAsyncParamsBinderParcelable.h>
#include <com/ostrel/zeld/interfaces/ZelCallbackParamsParcelable.h>
#include <com/ostrel/zeld/utils/ZelParcelableHelperUtils.h>

namespace zel_test {

using namespace com::ostrel::zeld::interfaces;
using android::sp;
using android::binder::Status;
using com::ostrel::zeld::utils::ZelParcelableHelperUtils;

inline Status illegalArgument() { return Status::fromExceptionCode(Status::EX_ILLEGAL_ARGUMENT); }

// The callbacks of registered clients, by identifier; identifier 0 is refused.
template <typename Callback>
class CallbackTable {
public:
    Status put(const ServiceIdentifier& id, const sp<Callback>& callback) {
        if (id.value == 0 || callback == nullptr) return illegalArgument();
        std::lock_guard<std::mutex> guard(mLock);
        mCallbacks[id.value] = callback;
        return Status::ok();
    }
    Status erase(const ServiceIdentifier& id) {
        if (id.value == 0) return illegalArgument();
        std::lock_guard<std::mutex> guard(mLock);
        mCallbacks.erase(id.value);
        return Status::ok();
    }
    sp<Callback> get(int32_t id) {
        std::lock_guard<std::mutex> guard(mLock);
        auto it = mCallbacks.find(id);
        return it == mCallbacks.end() ? nullptr : it->second;
    }

private:
    std::mutex mLock;
    std::map<int32_t, sp<Callback>> mCallbacks;
};

class ZelTestIpcService : public BnZelBinderIPC {
public:
    Status registerCallback(const ServiceIdentifier& client, const sp<IZelBinderIPCRequestCallback>& cb) override {
        return mCallbacks.put(client, cb);
    }
    Status unregisterCallback(const ServiceIdentifier& client) override { return mCallbacks.erase(client); }
    Status sendAsyncMessage(const ServiceIdentifier& client, const MessageIdentifier& kind,
                            const std::vector<uint8_t>& data) override {
        ZelAsyncParamsBinderParcelable request;
        if (client.value == 0 || kind.value != MessageIdentifier::ASYNC_REQUEST ||
            !ZelParcelableHelperUtils::convertBytesToParcelable(data, &request)) {
            return illegalArgument();
        }
        const sp<IZelBinderIPCRequestCallback> callback = mCallbacks.get(client.value);
        if (callback == nullptr) return Status::ok();
        const ZelCallbackParamsParcelable reply(
                ZelCallbackParams{request.taskContext.token + 1, request.taskContext.notify, request.functionId});
        std::vector<uint8_t> bytes;
        ZelParcelableHelperUtils::convertParcelableToBytes(&reply, bytes);
        callback->onAsyncReply(ServiceIdentifier(ServiceIdentifier::COM_OSTREL_ZELD),
                               MessageIdentifier(MessageIdentifier::ASYNC_REPLY), bytes);
        return Status::ok();
    }

private:
    CallbackTable<IZelBinderIPCRequestCallback> mCallbacks;
};

class ZelTestEventService : public BnZelEventManager {
public:
    Status registerEventCallback(const ServiceIdentifier& id, const sp<IZelEventCallbackService>& cb) override {
        return mCallbacks.put(id, cb);
    }
    Status unregisterEventCallback(const ServiceIdentifier& id) override { return mCallbacks.erase(id); }
    Status subscribe(const ServiceIdentifier& subscriber, const ServiceIdentifier& publisher, int32_t groupId,
                     int32_t eventId) override {
        if (subscriber.value == 0 || publisher.value == 0) return illegalArgument();
        std::lock_guard<std::mutex> guard(mLock);
        mSubscribers[{publisher.value, groupId, eventId}].push_back(subscriber.value);
        return Status::ok();
    }
    Status unsubscribe(const ServiceIdentifier& subscriber, const ServiceIdentifier& publisher, int32_t groupId,
                       int32_t eventId) override {
        if (subscriber.value == 0 || publisher.value == 0) return illegalArgument();
        std::lock_guard<std::mutex> guard(mLock);
        std::vector<int32_t>& list = mSubscribers[{publisher.value, groupId, eventId}];
        auto found = std::find(list.begin(), list.end(), subscriber.value);
        if (found != list.end()) list.erase(found);
        return Status::ok();
    }
    Status publish(const ServiceIdentifier& publisher, int32_t groupId, int32_t eventId,
                   const std::vector<uint8_t>& payload) override {
        if (publisher.value == 0 || payload.empty()) return illegalArgument();
        std::vector<int32_t> subscribers;
        {
            std::lock_guard<std::mutex> guard(mLock);
            subscribers = mSubscribers[{publisher.value, groupId, eventId}];
        }
        for (int32_t subscriber : subscribers) {
            if (sp<IZelEventCallbackService> cb = mCallbacks.get(subscriber)) {
                cb->onEvent(publisher, groupId, eventId, payload);
            }
        }
        return Status::ok();
    }

private:
    std::mutex mLock;  // guards mSubscribers: (publisher, group, event) -> subscribers
    std::map<std::tuple<int32_t, int32_t, int32_t>, std::vector<int32_t>> mSubscribers;
    CallbackTable<IZelEventCallbackService> mCallbacks;
};

}  // namespace zel_test
