#include "ZelBinderEventDispatcher.h"

#include <com/ostrel/zeld/interfaces/ZelEventParamsParcelable.h>
#include <com/ostrel/zeld/utils/ZelParcelableHelperUtils.h>
#include <tallyd/TallyEventHelper.h>

#include "ZelLog.h"

using android::binder::Status;
using com::ostrel::zeld::interfaces::ZelEventParamsParcelable;
using com::ostrel::zeld::utils::ZelParcelableHelperUtils;

namespace {

// The resource monitor publishes the memory report; every subscription of
// the dispatcher names it as the publisher.
constexpr int32_t kMemoryReportPublisher = ZelBinderEventDispatcher::ServiceIdentifier::COM_OSTREL_TALLYD;

}  // namespace

ZelBinderEventDispatcher::ZelBinderEventDispatcher(
        int32_t serviceId, android::sp<ZelServerIZelEventManagerImpl> eventManager)
    : mServiceId(serviceId),
      mEventManager(std::move(eventManager)),
      mLink(std::make_shared<ZelCallLink<ZelBinderEventDispatcher>>(this)) {
    mEventManager->setLocalEventCallback(
            [link = mLink](const ServiceIdentifier& publisher, int32_t groupId, int32_t eventId,
                           const std::vector<uint8_t>& payload) {
                link->call([&](ZelBinderEventDispatcher& dispatcher) {
                    // Its result tells the service nothing.
                    (void)dispatcher.onBinderEventCallback(publisher, groupId, eventId, payload);
                });
            });
    ZEL_LOGD("ZelBinderEventDispatcher Created");
}

ZelBinderEventDispatcher::~ZelBinderEventDispatcher() {
    mLink->detach();
    {
        std::lock_guard<std::mutex> guard(mLock);
        mEventCallbacks.clear();
    }
    ZEL_LOGD("ZelBinderEventDispatcher Destroyed");
    mEventManager.clear();
}

bool ZelBinderEventDispatcher::publishEvents(const std::vector<PolicyEvent>& events,
                                             int32_t first, int32_t second) {
    if (events.empty()) return true;
    // Every event of one call carries the same payload.
    const ZelEventParamsParcelable params(first, second);
    std::vector<uint8_t> payload;
    ZelParcelableHelperUtils::convertParcelableToBytes(&params, payload);

    bool result = false;
    for (const PolicyEvent& event : events) {
        if (event.groupId == 0) {
            ZEL_LOGE("Invalid groupId %d: ", event.groupId);
            result = false;
        } else if (event.eventId == 0) {
            ZEL_LOGE("Invalid eventId %d: ", event.eventId);
            result = false;
        } else {
            ZEL_LOGD("Sending event - groupId %d eventId %d", event.groupId, event.eventId);
            const Status status =
                    mEventManager->publish(mServiceId, event.groupId, event.eventId, payload);
            result = status.isOk();
            if (!result) {
                ZEL_LOGE("Failed to send event - groupId %d eventId %d", event.groupId,
                         event.eventId);
            }
        }
    }
    return result;
}

bool ZelBinderEventDispatcher::subscribeEvent(uint8_t groupId, int32_t eventId,
                                              EventCallback callback) {
    std::lock_guard<std::mutex> guard(mLock);
    (void)mEventManager->subscribe(mServiceId, ServiceIdentifier(kMemoryReportPublisher), groupId,
                                   eventId);
    ZEL_LOGI("Zeld Subscribed to group_id %d and event id:%d", groupId, eventId);
    mEventCallbacks.emplace(std::make_pair(groupId, eventId), std::move(callback));
    return true;
}

bool ZelBinderEventDispatcher::unsubscribeEvents(
        const std::vector<std::pair<uint8_t, int32_t>>& events) {
    std::lock_guard<std::mutex> guard(mLock);
    ZEL_LOGI("Zeld Unsubscribed from events");
    for (const auto& [groupId, eventId] : events) {
        mEventCallbacks.erase({groupId, eventId});
        (void)mEventManager->unsubscribe(mServiceId, ServiceIdentifier(kMemoryReportPublisher),
                                         groupId, eventId);
    }
    return true;
}

void ZelBinderEventDispatcher::stop() {
    ZEL_LOGD("ZelBinderEventDispatcher Stopped");
}

void ZelBinderEventDispatcher::invokeEventCallback(uint8_t groupId, int32_t eventId,
                                                   const void* data) {
    ZEL_LOGD("Received event - groupId %d eventId %d", groupId, eventId);
    EventCallback callback;
    {
        std::lock_guard<std::mutex> guard(mLock);
        auto it = mEventCallbacks.find({groupId, eventId});
        if (it == mEventCallbacks.end()) return;
        callback = it->second;
    }
    ZEL_LOGD("Invoking eventcallback - groupId %d eventId %d", groupId, eventId);
    callback(data);
}

bool ZelBinderEventDispatcher::onBinderEventCallback(const ServiceIdentifier& publisher,
                                                     int32_t groupId, int32_t eventId,
                                                     const std::vector<uint8_t>& payload) {
    ZEL_LOGD("Received Binder Event -publisher %d, groupId, %d eventId %d", publisher.value,
             groupId, eventId);
    if (eventId != kMemoryReportEvent || groupId != kMemoryReportGroup ||
        publisher.value != kMemoryReportPublisher) {
        return false;
    }
    // A payload that does not decode is passed on as all zeros.
    tallyd::TallyEventHelper report;
    ZelParcelableHelperUtils::convertBytesToParcelable(payload, &report);
    const tallyd::TallyResourceStatus& status = report.getResourceStatus();
    const ResourceStatusRecord record{status.resourceType, status.status, status.value,
                                      status.criticalThreshold};
    deliverMemoryReport(record);
    return true;
}
