// The event service and the daemon's dispatcher in one process: refusals,
// the unsubscribe-on-a-copy rule, the delivery walk (and the end of the
// process on a second delivery), the dispatcher's publication results, its
// memory-report decoding and its lines.
#include <thread>

#include <com/ostrel/zeld/interfaces/BnZelEventCallbackService.h>
#include <com/ostrel/zeld/interfaces/ZelEventParamsParcelable.h>
#include <com/ostrel/zeld/utils/ZelParcelableHelperUtils.h>
#include <gtest/gtest.h>
#include <log/log.h>
#include <tallyd/TallyEventHelper.h>

#include "ZelBinderEventDispatcher.h"
#include "ZelServerIZelEventManagerImpl.h"
#include "zel/ZelHostLog.h"

using namespace com::ostrel::zeld::interfaces;
using android::sp;
using android::binder::Status;
using com::ostrel::zeld::utils::ZelParcelableHelperUtils;

namespace {

constexpr int32_t kIllegalArgument = Status::EX_ILLEGAL_ARGUMENT;
const std::vector<uint8_t> kPayload{1, 2, 3, 4};

struct Delivery {
    int32_t publisher, group, event;
    std::vector<uint8_t> payload;
};

// Called directly (a local binder): deliveries are recorded synchronously.
class Recorder : public BnZelEventCallbackService {
public:
    Status onEvent(const ServiceIdentifier& publisher, int32_t groupId, int32_t eventId,
                   const std::vector<uint8_t>& payload) override {
        deliveries.push_back({publisher.value, groupId, eventId, payload});
        return Status::ok();
    }
    std::vector<Delivery> deliveries;
};

ServiceIdentifier id(int32_t value) { return ServiceIdentifier(value); }

std::vector<uint8_t> memoryReport(uint8_t type, uint8_t status, uint64_t value, uint64_t threshold) {
    const tallyd::TallyEventHelper report({type, status, value, threshold});
    std::vector<uint8_t> bytes;
    ZelParcelableHelperUtils::convertParcelableToBytes(&report, bytes);
    return bytes;
}

class ZelEventServiceTest : public ::testing::Test {
protected:
    // Subscribes each of `subscribers` to (publisher 5, group 1, event 2).
    void subscribeAll(std::initializer_list<int32_t> subscribers) {
        for (int32_t subscriber : subscribers) {
            ASSERT_TRUE(mService->subscribe(id(subscriber), id(5), 1, 2).isOk());
        }
    }
    Status publish() { return mService->publish(id(5), 1, 2, kPayload); }

    zel::hostlog::ZelLogCapture mLog;
    sp<ZelServerIZelEventManagerImpl> mService = new ZelServerIZelEventManagerImpl();
    sp<Recorder> mThree = new Recorder();
    sp<Recorder> mNine = new Recorder();
};

TEST_F(ZelEventServiceTest, RefusedCallsChangeNothingAndNoOperationLogs) {
    ASSERT_TRUE(mService->registerEventCallback(id(9), mNine).isOk());
    subscribeAll({9});
    const std::vector<Status> refused{
            mService->registerEventCallback(id(0), mThree),
            mService->registerEventCallback(id(9), nullptr),
            mService->unregisterEventCallback(id(0)),
            mService->subscribe(id(0), id(5), 1, 2),
            mService->subscribe(id(9), id(0), 1, 2),
            mService->unsubscribe(id(0), id(5), 1, 2),
            mService->unsubscribe(id(9), id(0), 1, 2),
            mService->publish(id(0), 1, 2, kPayload),
            mService->publish(id(5), 1, 2, {}),
    };
    for (const Status& status : refused) EXPECT_EQ(status.exceptionCode(), kIllegalArgument);
    EXPECT_TRUE(publish().isOk());
    ASSERT_EQ(mNine->deliveries.size(), 1u);  // 9's callback and subscription survived
    EXPECT_EQ(mNine->deliveries[0].payload, kPayload);
    // Keys are taken as they come: 0 and negative groups and events too.
    EXPECT_TRUE(mService->subscribe(id(9), id(5), 0, -1).isOk());
    EXPECT_TRUE(mService->publish(id(5), 0, -1, kPayload).isOk());
    EXPECT_EQ(mNine->deliveries.size(), 2u);
    EXPECT_TRUE(mLog.lines().empty());
}

TEST_F(ZelEventServiceTest, UnsubscribeRemovesOnlyAListOfJustThatSubscriber) {
    ASSERT_TRUE(mService->registerEventCallback(id(3), mThree).isOk());
    subscribeAll({3, 9});  // 9 has no callback: only 3 is ever delivered to
    EXPECT_TRUE(mService->unsubscribe(id(3), id(5), 1, 2).isOk());
    EXPECT_TRUE(mService->unsubscribe(id(9), id(5), 1, 2).isOk());
    EXPECT_TRUE(mService->unsubscribe(id(3), id(5), 7, 7).isOk());  // absent key
    EXPECT_TRUE(publish().isOk());
    EXPECT_EQ(mThree->deliveries.size(), 1u) << "a list of two stays as it was";

    ASSERT_TRUE(mService->subscribe(id(3), id(5), 4, 4).isOk());
    EXPECT_TRUE(mService->unsubscribe(id(9), id(5), 4, 4).isOk());
    EXPECT_TRUE(mService->publish(id(5), 4, 4, kPayload).isOk());
    EXPECT_EQ(mThree->deliveries.size(), 2u) << "another participant's unsubscribe changes nothing";
    EXPECT_TRUE(mService->unsubscribe(id(3), id(5), 4, 4).isOk());
    EXPECT_TRUE(mService->publish(id(5), 4, 4, kPayload).isOk());
    EXPECT_EQ(mThree->deliveries.size(), 2u) << "[3] unsubscribed by 3: the key is gone";
}

TEST_F(ZelEventServiceTest, SkippedEntriesAreNotDeliveriesAndTheLastRegistrationWins) {
    // 7 has no callback and 1 no local function: neither counts, so 9's
    // delivery is the first and the process lives.
    subscribeAll({7, 1, 9});
    sp<Recorder> firstNine = new Recorder();
    ASSERT_TRUE(mService->registerEventCallback(id(9), firstNine).isOk());
    ASSERT_TRUE(mService->registerEventCallback(id(9), mNine).isOk());
    EXPECT_TRUE(publish().isOk());
    EXPECT_TRUE(firstNine->deliveries.empty());
    ASSERT_EQ(mNine->deliveries.size(), 1u);
    EXPECT_EQ(mNine->deliveries[0].publisher, 5);
    EXPECT_EQ(mNine->deliveries[0].group, 1);
    EXPECT_EQ(mNine->deliveries[0].event, 2);

    ASSERT_TRUE(mService->unregisterEventCallback(id(9)).isOk());
    ASSERT_TRUE(mService->unregisterEventCallback(id(9)).isOk());  // absent: no error
    EXPECT_TRUE(publish().isOk());
    EXPECT_TRUE(mService->publish(id(5), 9, 9, kPayload).isOk());  // nobody subscribed
    EXPECT_EQ(mNine->deliveries.size(), 1u) << "unregistered: skipped, subscriptions kept";
}

using ZelEventServiceDeathTest = ZelEventServiceTest;

// As on a binder thread: nothing catches what escapes the call.
template <typename Call>
void onThread(Call call) {
    std::thread(call).join();
}

TEST_F(ZelEventServiceDeathTest, TheSecondDeliveryOfOnePublicationEndsTheProcess) {
    ASSERT_TRUE(mService->registerEventCallback(id(9), mNine).isOk());
    subscribeAll({9, 9});
    EXPECT_DEATH(onThread([&] { publish(); }), "Operation not permitted");
    // The daemon's local path counts as a delivery as well.
    auto dispatcher = std::make_shared<ZelBinderEventDispatcher>(1, mService);
    dispatcher->subscribeEvent(1, 1, [](const void*) {});
    dispatcher->subscribeEvent(1, 1, [](const void*) {});  // the service now lists 1 twice
    EXPECT_DEATH(onThread([&] { mService->publish(id(5), 1, 1, memoryReport(1, 1, 0, 0)); }),
                 "Operation not permitted");
}

class ZelEventDispatcherTest : public ZelEventServiceTest {
protected:
    void SetUp() override {
        ASSERT_TRUE(mService->registerEventCallback(id(9), mNine).isOk());
        ASSERT_TRUE(mService->subscribe(id(9), id(1), 2, 4).isOk());
    }
    std::shared_ptr<ZelBinderEventDispatcher> mDispatcher =
            std::make_shared<ZelBinderEventDispatcher>(1, mService);
};

TEST_F(ZelEventDispatcherTest, PublishReturnsTheLastEventsResult) {
    EXPECT_TRUE(mDispatcher->publishEvents({}, 1, 5000));
    EXPECT_TRUE(mNine->deliveries.empty());
    EXPECT_TRUE(mDispatcher->publishEvents({{0, 3}, {2, 4}}, 1, 5000));
    EXPECT_TRUE(mLog.contains(ANDROID_LOG_ERROR, "Invalid groupId 0: "));
    EXPECT_FALSE(mDispatcher->publishEvents({{2, 4}, {2, 0}}, 1, 0));
    EXPECT_TRUE(mLog.contains(ANDROID_LOG_ERROR, "Invalid eventId 0: "));
    ASSERT_EQ(mNine->deliveries.size(), 2u);
    ZelEventParamsParcelable params;
    ASSERT_TRUE(ZelParcelableHelperUtils::convertBytesToParcelable(mNine->deliveries[0].payload, &params));
    EXPECT_EQ(std::make_pair(params.param1, params.param2), std::make_pair(1, 5000));
    ASSERT_TRUE(ZelParcelableHelperUtils::convertBytesToParcelable(mNine->deliveries[1].payload, &params));
    EXPECT_EQ(std::make_pair(params.param1, params.param2), std::make_pair(1, 0));
    EXPECT_TRUE(mLog.contains(ANDROID_LOG_DEBUG, "Sending event - groupId 2 eventId 4"));

    // The service refuses publisher 0: that event's result is false.
    ZelBinderEventDispatcher anonymous(0, mService);
    EXPECT_FALSE(anonymous.publishEvents({{2, 4}}, 1, 0));
    EXPECT_TRUE(mLog.contains(ANDROID_LOG_ERROR, "Failed to send event - groupId 2 eventId 4"));
}

TEST_F(ZelEventDispatcherTest, MemoryReportsReachTheFirstFunctionSubscribedDecodedOrZeroed) {
    std::vector<ResourceStatusRecord> records;
    EXPECT_TRUE(mDispatcher->subscribeEvent(1, 1, [&](const void* data) {
        records.push_back(*static_cast<const ResourceStatusRecord*>(data));
    }));
    EXPECT_TRUE(mLog.contains(ANDROID_LOG_INFO, "Zeld Subscribed to group_id 1 and event id:1"));
    bool otherCalled = false;
    EXPECT_TRUE(mDispatcher->subscribeEvent(1, 2, [&](const void*) { otherCalled = true; }));

    EXPECT_TRUE(mService->publish(id(5), 1, 1, memoryReport(1, 4, 900, 1000)).isOk());
    EXPECT_TRUE(mService->publish(id(5), 1, 1, {0xff, 0xff, 0xff}).isOk());
    EXPECT_TRUE(mService->publish(id(5), 1, 2, memoryReport(1, 4, 1, 1)).isOk());
    // The daemon subscribed directly to another publisher's (1, 1): not a report.
    EXPECT_TRUE(mService->subscribe(id(1), id(6), 1, 1).isOk());
    EXPECT_TRUE(mService->publish(id(6), 1, 1, memoryReport(1, 4, 1, 1)).isOk());
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].resourceType, 1);
    EXPECT_EQ(records[0].status, 4);
    EXPECT_EQ(records[0].value, 900u);
    EXPECT_EQ(records[0].criticalThreshold, 1000u);
    EXPECT_EQ(records[1].status, 0) << "an undecodable report arrives as zeros";
    EXPECT_EQ(records[1].value, 0u);
    EXPECT_FALSE(otherCalled) << "only (5, 1, 1) is decoded and passed on";
    EXPECT_TRUE(mLog.contains(ANDROID_LOG_DEBUG, "Received Binder Event -publisher 5, groupId, 1 eventId 2"));

    mDispatcher->invokeEventCallback(7, 7, nullptr);
    EXPECT_TRUE(mLog.contains(ANDROID_LOG_DEBUG, "Received event - groupId 7 eventId 7"));
    EXPECT_FALSE(mLog.contains(ANDROID_LOG_DEBUG, "Invoking eventcallback - groupId 7"));

    EXPECT_TRUE(mDispatcher->unsubscribeEvents({{1, 1}}));
    EXPECT_TRUE(mDispatcher->unsubscribeEvents({}));
    EXPECT_EQ(mLog.messages(ANDROID_LOG_INFO).size(), 4u);  // two subscribed, two unsubscribed lines
    EXPECT_TRUE(mService->publish(id(5), 1, 1, memoryReport(1, 4, 1, 1)).isOk());
    EXPECT_EQ(records.size(), 2u);
}

TEST_F(ZelEventDispatcherTest, ADestroyedDispatcherIsNoLongerReached) {
    mDispatcher->subscribeEvent(1, 1, [](const void*) { FAIL() << "reached after destruction"; });
    mDispatcher->stop();
    mDispatcher.reset();
    EXPECT_TRUE(mService->publish(id(5), 1, 1, memoryReport(1, 1, 0, 0)).isOk());
    const std::vector<std::string> debug = mLog.messages(ANDROID_LOG_DEBUG);
    ASSERT_GE(debug.size(), 3u);
    EXPECT_NE(debug[0].find("ZelBinderEventDispatcher Created"), std::string::npos);
    EXPECT_NE(debug[1].find("ZelBinderEventDispatcher Stopped"), std::string::npos);
    EXPECT_NE(debug[2].find("ZelBinderEventDispatcher Destroyed"), std::string::npos);
    EXPECT_FALSE(mLog.contains(ANDROID_LOG_DEBUG, "Received Binder Event"));
}

}  // namespace
