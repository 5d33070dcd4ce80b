#include "zel/client/ZelEventClient.h"

#include <algorithm>
#include <mutex>
#include <tuple>
#include <utility>

#include <com/ostrel/zeld/interfaces/BnZelEventCallbackService.h>
#include <com/ostrel/zeld/interfaces/IZelEventManager.h>
#include <com/ostrel/zeld/interfaces/ZelEventParamsParcelable.h>
#include <com/ostrel/zeld/utils/ZelParcelableHelperUtils.h>
#include <tallyd/TallyEventHelper.h>

#include "ZelClientIds.h"
#include "ZelClientStatus.h"
#include "ZelServiceLink.h"

namespace zel::client {

using android::IBinder;
using android::sp;
using android::binder::Status;
using namespace com::ostrel::zeld::interfaces;
using com::ostrel::zeld::utils::ZelParcelableHelperUtils;
using Clock = std::chrono::steady_clock;

namespace {

constexpr const char* kServiceName = "com.ostrel.zeld.service.IZelEventManager";
constexpr int32_t kMemoryReportGroup = 1;
constexpr int32_t kMemoryReportEvent = 1;

class EventCallback : public BnZelEventCallbackService {
public:
    explicit EventCallback(ZelEventClient::Handler handler) : mHandler(std::move(handler)) {}
    Status onEvent(const ServiceIdentifier& publisher, int32_t groupId, int32_t eventId,
                   const std::vector<uint8_t>& payload) override {
        if (mHandler) mHandler(publisher.value, groupId, eventId, payload);
        return Status::ok();
    }

private:
    const ZelEventClient::Handler mHandler;
};

}  // namespace

class ZelEventClient::Impl {
public:
    using Key = std::tuple<int32_t, int32_t, int32_t>;  // publisher, group, event

    Impl(int32_t requestedId, bool reconnect, Handler handler)
        : mIdLease(zelEventParticipantIds(), requestedId),
          mParticipantId(mIdLease.id()),
          mCallback(new EventCallback(std::move(handler))),
          mLink(new ZelServiceLink(kServiceName, reconnect)) {
        // A restarted daemon knows nothing of this participant: register and
        // subscribe again.
        mLink->setHandlers([this](const sp<IBinder>& service) { return attach(service); }, nullptr);
    }
    // Leaves no trace in a daemon that is still there: a subscription of a
    // participant whose callback is gone still counts as a delivery.
    ~Impl() {
        if (const sp<IBinder> binder = mLink->service(Clock::now())) {
            const sp<IZelEventManager> service = android::interface_cast<IZelEventManager>(binder);
            std::lock_guard<std::mutex> guard(mLock);
            for (const auto& [publisher, groupId, eventId] : mSubscriptions) {
                (void)service->unsubscribe(ServiceIdentifier(mParticipantId),
                                           ServiceIdentifier(publisher), groupId, eventId);
            }
            (void)service->unregisterEventCallback(ServiceIdentifier(mParticipantId));
        }
        mLink->close();
    }

    bool attach(const sp<IBinder>& binder) {
        const sp<IZelEventManager> service = android::interface_cast<IZelEventManager>(binder);
        if (!service->registerEventCallback(ServiceIdentifier(mParticipantId), mCallback).isOk()) {
            return false;
        }
        std::lock_guard<std::mutex> guard(mLock);
        for (const auto& [publisher, groupId, eventId] : mSubscriptions) {
            if (!service->subscribe(ServiceIdentifier(mParticipantId), ServiceIdentifier(publisher),
                                    groupId, eventId)
                         .isOk()) {
                return false;
            }
        }
        return true;
    }

    sp<IZelEventManager> service() {
        const sp<IBinder> binder = mLink->service(Clock::now() + kRequestWait);
        return binder == nullptr ? nullptr : android::interface_cast<IZelEventManager>(binder);
    }

    static constexpr Millis kRequestWait{2000};
    // Given back after the destructor has unregistered (see ZelClient).
    const ZelClientIdLease mIdLease;
    const int32_t mParticipantId;  // 0: none was free, connect() refuses
    const sp<EventCallback> mCallback;
    const sp<ZelServiceLink> mLink;
    std::mutex mLock;  // guards mSubscriptions
    std::vector<Key> mSubscriptions;
};

std::unique_ptr<ZelEventClient> ZelEventClient::connect(const ZelClientOptions& options,
                                                        Handler handler, ZelClientError* error) {
    auto impl = std::make_shared<Impl>(options.clientId, options.reconnect, std::move(handler));
    const ZelClientError result =
            impl->mParticipantId == 0
                    ? ZelClientError::kTooManyConnections
                    : impl->mLink->connect(Clock::now() + options.connectTimeout);
    if (error != nullptr) *error = result;
    if (result != ZelClientError::kNone) return nullptr;
    return std::unique_ptr<ZelEventClient>(new ZelEventClient(std::move(impl)));
}

ZelEventClient::ZelEventClient(std::shared_ptr<Impl> impl) : mImpl(std::move(impl)) {}
ZelEventClient::~ZelEventClient() = default;

int32_t ZelEventClient::participantId() const {
    return mImpl->mParticipantId;
}

bool ZelEventClient::isConnected() const {
    return mImpl->mLink->isConnected();
}

uint64_t ZelEventClient::reconnections() const {
    return mImpl->mLink->reconnections();
}

ZelClientError ZelEventClient::subscribe(int32_t publisher, int32_t groupId, int32_t eventId) {
    if (publisher == ServiceIdentifier::COM_OSTREL_TALLYD && groupId == kMemoryReportGroup &&
        eventId == kMemoryReportEvent) {
        return ZelClientError::kInvalidArgument;  // the daemon's own subscription
    }
    const sp<IZelEventManager> service = mImpl->service();
    if (service == nullptr) return ZelClientError::kNotRunning;
    // Held across the call: the same key subscribed twice would be delivered twice.
    std::lock_guard<std::mutex> guard(mImpl->mLock);
    auto& list = mImpl->mSubscriptions;
    const Impl::Key key(publisher, groupId, eventId);
    if (std::find(list.begin(), list.end(), key) != list.end()) return ZelClientError::kNone;
    const ZelClientError error = errorOf(service->subscribe(
            ServiceIdentifier(mImpl->mParticipantId), ServiceIdentifier(publisher), groupId, eventId));
    if (error == ZelClientError::kNone) list.push_back(key);
    return error;
}

ZelClientError ZelEventClient::unsubscribe(int32_t publisher, int32_t groupId, int32_t eventId) {
    const sp<IZelEventManager> service = mImpl->service();
    if (service == nullptr) return ZelClientError::kNotRunning;
    const ZelClientError error = errorOf(service->unsubscribe(
            ServiceIdentifier(mImpl->mParticipantId), ServiceIdentifier(publisher), groupId, eventId));
    if (error == ZelClientError::kNone) {
        std::lock_guard<std::mutex> guard(mImpl->mLock);
        auto& list = mImpl->mSubscriptions;
        auto it = std::find(list.begin(), list.end(), Impl::Key(publisher, groupId, eventId));
        if (it != list.end()) list.erase(it);
    }
    return error;
}

ZelClientError ZelEventClient::publish(int32_t groupId, int32_t eventId,
                                       const std::vector<uint8_t>& payload) {
    const sp<IZelEventManager> service = mImpl->service();
    if (service == nullptr) return ZelClientError::kNotRunning;
    return errorOf(service->publish(ServiceIdentifier(mImpl->mParticipantId), groupId, eventId,
                                    payload));
}

ZelClientError ZelEventClient::publishMemoryReport(uint8_t status, uint64_t value,
                                                   uint64_t criticalThreshold,
                                                   uint8_t resourceType) {
    const tallyd::TallyEventHelper report({resourceType, status, value, criticalThreshold});
    std::vector<uint8_t> payload;
    if (!ZelParcelableHelperUtils::convertParcelableToBytes(&report, payload)) {
        return ZelClientError::kInvalidArgument;
    }
    const sp<IZelEventManager> service = mImpl->service();
    if (service == nullptr) return ZelClientError::kNotRunning;
    return errorOf(service->publish(ServiceIdentifier(ServiceIdentifier::COM_OSTREL_TALLYD),
                                    kMemoryReportGroup, kMemoryReportEvent, payload));
}

bool decodeTaskEventPayload(const std::vector<uint8_t>& payload, int32_t* first,
                            int32_t* second) {
    ZelEventParamsParcelable params;
    if (!ZelParcelableHelperUtils::convertBytesToParcelable(payload, &params)) return false;
    *first = params.param1;
    *second = params.param2;
    return true;
}

}  // namespace zel::client
