// The generated proxies of the project's interfaces, talking to stand-in
// services in another process (zeld_interfaces_test_server).
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <com/ostrel/zeld/interfaces/BnZelBinderIPCRequestCallback.h>
#include <com/ostrel/zeld/interfaces/BnZelEventCallbackService.h>
#include <com/ostrel/zeld/interfaces/IZelBinderIPC.h>
#include <com/ostrel/zeld/interfaces/IZelEventManager.h>
#include <com/ostrel/zeld/interfaces/ZelAsyncParamsBinderParcelable.h>
#include <com/ostrel/zeld/interfaces/ZelCallbackParamsParcelable.h>
#include <com/ostrel/zeld/interfaces/ZelEventParamsParcelable.h>
#include <com/ostrel/zeld/utils/ZelParcelableHelperUtils.h>

#include "ZelBinderTestSupport.h"

using namespace com::ostrel::zeld::interfaces;
using android::IBinder;
using android::sp;
using android::String16;
using android::binder::Status;
using com::ostrel::zeld::utils::ZelParcelableHelperUtils;

namespace {

struct Reply {
    int32_t sender;
    int32_t kind;
    ZelCallbackParams params;
};

class ReplyCallback : public BnZelBinderIPCRequestCallback {
public:
    Status onAsyncReply(const ServiceIdentifier& sender, const MessageIdentifier& kind,
                        const std::vector<uint8_t>& data) override {
        ZelCallbackParamsParcelable reply;
        EXPECT_TRUE(ZelParcelableHelperUtils::convertBytesToParcelable(data, &reply));
        inbox.put(Reply{sender.value, kind.value, reply.toRecord()});
        return Status::ok();
    }
    Inbox<Reply> inbox;
};

struct Event {
    int32_t publisher;
    int32_t group;
    int32_t event;
    std::vector<uint8_t> payload;
};

class EventCallback : public BnZelEventCallbackService {
public:
    Status onEvent(const ServiceIdentifier& publisher, int32_t groupId, int32_t eventId,
                   const std::vector<uint8_t>& payload) override {
        inbox.put(Event{publisher.value, groupId, eventId, payload});
        return Status::ok();
    }
    Inbox<Event> inbox;
};

std::vector<uint8_t> request(int32_t functionId, int32_t token, bool notify) {
    ZelAsyncParamsBinderParcelable params;
    params.functionId = functionId;
    params.taskContext.setCompId("camera");
    params.taskContext.setTaskId("upload");
    params.taskContext.token = token;
    params.taskContext.notify = notify;
    std::vector<uint8_t> bytes;
    EXPECT_TRUE(ZelParcelableHelperUtils::convertParcelableToBytes(&params, bytes));
    return bytes;
}

class ZelGeneratedInterfacesTest : public ::testing::Test {
protected:
    void SetUp() override {
        binderTestRoot();
        android::ProcessState::self()->startThreadPool();
        mServer = std::make_unique<ZelPeerProcess>(ZELD_INTERFACES_TEST_SERVER, std::vector<std::string>{});
        ASSERT_EQ(android::getService(String16("com.ostrel.zeld.service.IZelBinderIPC"), &mIpc), android::OK);
        ASSERT_EQ(android::getService(String16("com.ostrel.zeld.service.IZelEventManager"), &mEvents), android::OK);
    }

    std::unique_ptr<ZelPeerProcess> mServer;
    sp<IZelBinderIPC> mIpc;
    sp<IZelEventManager> mEvents;
    const ServiceIdentifier mClient{ServiceIdentifier::COM_OSTREL_ZELD_TEST_CLIENT};
    const MessageIdentifier mRequest{MessageIdentifier::ASYNC_REQUEST};
};

TEST_F(ZelGeneratedInterfacesTest, ARequestIsAnsweredThroughTheOnewayCallback) {
    sp<ReplyCallback> callback = new ReplyCallback();
    ASSERT_TRUE(mIpc->registerCallback(mClient, callback).isOk());
    ASSERT_TRUE(mIpc->sendAsyncMessage(mClient, mRequest, request(1, 41, true)).isOk());
    ASSERT_TRUE(mIpc->sendAsyncMessage(mClient, mRequest, request(3, 9, false)).isOk());
    ASSERT_TRUE(callback->inbox.waitFor(2));
    const std::vector<Reply> replies = callback->inbox.items();
    EXPECT_EQ(replies[0].sender, ServiceIdentifier::COM_OSTREL_ZELD);
    EXPECT_EQ(replies[0].kind, MessageIdentifier::ASYNC_REPLY);
    EXPECT_EQ(replies[0].params.token, 42);
    EXPECT_TRUE(replies[0].params.canStart);
    EXPECT_EQ(replies[0].params.status, 1);
    EXPECT_EQ(replies[1].params.token, 10);
    EXPECT_FALSE(replies[1].params.canStart);

    ASSERT_TRUE(mIpc->unregisterCallback(mClient).isOk());
    ASSERT_TRUE(mIpc->sendAsyncMessage(mClient, mRequest, request(1, 1, true)).isOk());
    ASSERT_TRUE(mIpc->registerCallback(mClient, callback).isOk());  // a call after: the one-way reply would be in
    EXPECT_EQ(callback->inbox.items().size(), 2u);
}

TEST_F(ZelGeneratedInterfacesTest, RefusalsArriveAsIllegalArgument) {
    for (const Status& refused :
         {mIpc->registerCallback(mClient, nullptr), mIpc->registerCallback(ServiceIdentifier(0), new ReplyCallback()),
          mIpc->sendAsyncMessage(mClient, MessageIdentifier(2), request(1, 1, true)),
          mIpc->sendAsyncMessage(mClient, mRequest, {}),
          mIpc->sendAsyncMessage(mClient, mRequest, std::vector<uint8_t>(143, 0)),
          mEvents->registerEventCallback(mClient, nullptr), mEvents->publish(mClient, 1, 1, {})}) {
        EXPECT_EQ(refused.exceptionCode(), Status::EX_ILLEGAL_ARGUMENT) << refused;
    }
}

TEST_F(ZelGeneratedInterfacesTest, TransactionCodesFollowTheDeclarationOrder) {
    // What a client with its own copy of the interface sends: the third
    // method of IZelBinderIPC is sendAsyncMessage.
    android::Parcel data;
    android::Parcel reply;
    data.writeInterfaceToken(IZelBinderIPC::descriptor);
    data.writeParcelable(mClient);
    data.writeParcelable(MessageIdentifier(2));
    data.writeByteVector(request(1, 1, true));
    ASSERT_EQ(IZelBinderIPC::asBinder(mIpc)->transact(IBinder::FIRST_CALL_TRANSACTION + 2, data, &reply), android::OK);
    EXPECT_EQ(reply.readExceptionCode(), Status::EX_ILLEGAL_ARGUMENT);  // kind 2 refused
    EXPECT_EQ(IZelBinderIPC::asBinder(mIpc)->getInterfaceDescriptor(),
              String16("com.ostrel.zeld.interfaces.IZelBinderIPC"));
    EXPECT_EQ(IZelEventManager::asBinder(mEvents)->getInterfaceDescriptor(),
              String16("com.ostrel.zeld.interfaces.IZelEventManager"));
}

TEST_F(ZelGeneratedInterfacesTest, PublishedEventsReachTheSubscribersCallback) {
    sp<EventCallback> callback = new EventCallback();
    const ServiceIdentifier tallyd(ServiceIdentifier::COM_OSTREL_TALLYD);
    ASSERT_TRUE(mEvents->registerEventCallback(mClient, callback).isOk());
    ASSERT_TRUE(mEvents->subscribe(mClient, tallyd, 1, 1).isOk());
    std::vector<uint8_t> payload;
    const ZelEventParamsParcelable params(1, 5000);
    ASSERT_TRUE(ZelParcelableHelperUtils::convertParcelableToBytes(&params, payload));
    ASSERT_TRUE(mEvents->publish(tallyd, 1, 2, payload).isOk());  // nobody subscribed
    ASSERT_TRUE(mEvents->publish(tallyd, 1, 1, payload).isOk());
    ASSERT_TRUE(callback->inbox.waitFor(1));
    const Event event = callback->inbox.items()[0];
    EXPECT_EQ(std::tie(event.publisher, event.group, event.event),
              std::make_tuple(static_cast<int32_t>(ServiceIdentifier::COM_OSTREL_TALLYD), 1, 1));
    ZelEventParamsParcelable back;
    ASSERT_TRUE(ZelParcelableHelperUtils::convertBytesToParcelable(event.payload, &back));
    EXPECT_EQ(back.param2, 5000);
}

// A client made only of the generated proxies, in its own process.
TEST_F(ZelGeneratedInterfacesTest, TheDemoClientRunsAgainstTheStandInServer) {
    ZelPeerProcess client(ZELD_INTERFACES_TEST_CLIENT, {"3"});
    EXPECT_EQ(client.wait(), 0);
}

}  // namespace
