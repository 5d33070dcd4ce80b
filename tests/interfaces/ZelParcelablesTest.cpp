#include <binder/Binder.h>
#include <binder/Parcel.h>
#include <com/ostrel/zeld/interfaces/MessageIdentifier.h>
#include <com/ostrel/zeld/interfaces/ServiceIdentifier.h>
#include <com/ostrel/zeld/interfaces/ZelAsyncParamsBinderParcelable.h>
#include <com/ostrel/zeld/interfaces/ZelCallbackParamsParcelable.h>
#include <com/ostrel/zeld/interfaces/ZelEventParamsParcelable.h>
#include <com/ostrel/zeld/utils/ZelParcelableHelperUtils.h>
#include <com/ostrel/zeld/utils/ZelServiceIdentifierUtils.h>
#include <gtest/gtest.h>

#include <cstring>
#include <functional>

using namespace com::ostrel::zeld::interfaces;
using com::ostrel::zeld::utils::ZelParcelableHelperUtils;
using com::ostrel::zeld::utils::ZelServiceIdentifierUtils;

namespace {

std::vector<uint8_t> toBytes(const android::Parcelable& p) {
    std::vector<uint8_t> bytes;
    EXPECT_TRUE(ZelParcelableHelperUtils::convertParcelableToBytes(&p, bytes));
    return bytes;
}

ZelAsyncParamsBinderParcelable sampleRequest() {
    ZelAsyncParamsBinderParcelable request;
    request.functionId = ZelAsyncParamsBinderParcelable::TASK_STARTED;
    EXPECT_TRUE(request.taskContext.setCompId("camera"));
    EXPECT_TRUE(request.taskContext.setTaskId("upload"));
    request.taskContext.token = 0x01020304;
    request.taskContext.notify = true;
    request.taskContext.duration = 4500;
    return request;
}

// Every proper prefix and every extension of `valid` is refused, and the
// target keeps the value it had.
template <typename T>
void expectOnlyExactBytesAccepted(const std::vector<uint8_t>& valid, const std::function<bool(const T&)>& untouched) {
    for (size_t len = 0; len < valid.size(); ++len) {
        T target = T();
        std::vector<uint8_t> cut(valid.begin(), valid.begin() + len);
        EXPECT_FALSE(ZelParcelableHelperUtils::convertBytesToParcelable(cut, &target)) << "length " << len;
        EXPECT_TRUE(untouched(target)) << "length " << len;
    }
    for (size_t extra : {1, 4}) {
        T target = T();
        std::vector<uint8_t> longer = valid;
        longer.insert(longer.end(), extra, 0);
        EXPECT_FALSE(ZelParcelableHelperUtils::convertBytesToParcelable(longer, &target)) << "extra " << extra;
        EXPECT_TRUE(untouched(target)) << "extra " << extra;
    }
}

TEST(ZelParcelablesTest, IdentifiersAreOneInt32) {
    EXPECT_EQ(toBytes(ServiceIdentifier(6)), (std::vector<uint8_t>{6, 0, 0, 0}));
    EXPECT_EQ(toBytes(MessageIdentifier(MessageIdentifier::ASYNC_REPLY)), (std::vector<uint8_t>{2, 0, 0, 0}));
    ServiceIdentifier id;
    ASSERT_TRUE(ZelParcelableHelperUtils::convertBytesToParcelable({0xFF, 0xFF, 0xFF, 0xFF}, &id));
    EXPECT_EQ(id.value, -1);
    expectOnlyExactBytesAccepted<ServiceIdentifier>({1, 0, 0, 0}, [](const ServiceIdentifier& s) { return s.value == 0; });
    expectOnlyExactBytesAccepted<MessageIdentifier>({1, 0, 0, 0}, [](const MessageIdentifier& m) { return m.value == 0; });
}

TEST(ZelParcelablesTest, TheRequestCarriesTheTaskContextBytesAsTheyLie) {
    const ZelAsyncParamsBinderParcelable request = sampleRequest();
    const std::vector<uint8_t> bytes = toBytes(request);
    ASSERT_EQ(bytes.size(), 144u);
    EXPECT_EQ(std::vector<uint8_t>(bytes.begin(), bytes.begin() + 4), (std::vector<uint8_t>{2, 0, 0, 0}));
    EXPECT_EQ(std::memcmp(bytes.data() + 4, &request.taskContext, sizeof(ZelTaskContext)), 0);
    EXPECT_EQ(bytes[4 + 128], 0x04);   // token, little-endian
    EXPECT_EQ(bytes[4 + 132], 1);      // notify
    EXPECT_EQ(bytes[4 + 136], 0x94);   // duration 4500 = 0x1194

    ZelAsyncParamsBinderParcelable back;
    ASSERT_TRUE(ZelParcelableHelperUtils::convertBytesToParcelable(bytes, &back));
    EXPECT_EQ(back.functionId, request.functionId);
    EXPECT_EQ(back.taskContext.getCompId(), "camera");
    EXPECT_EQ(back.taskContext.getTaskId(), "upload");
    EXPECT_EQ(back.taskContext.token, 0x01020304);
    EXPECT_TRUE(back.taskContext.notify);
    EXPECT_EQ(back.taskContext.duration, 4500);

    expectOnlyExactBytesAccepted<ZelAsyncParamsBinderParcelable>(bytes, [](const ZelAsyncParamsBinderParcelable& p) {
        return p.functionId == 0 && p.taskContext.getCompId().empty() && p.taskContext.duration == 0;
    });
}

TEST(ZelParcelablesTest, TaskContextIdsStayWithinTheirFields) {
    ZelTaskContext context;
    EXPECT_TRUE(context.setCompId(std::string(63, 'c')));
    EXPECT_FALSE(context.setCompId(std::string(64, 'x')));  // no room for the terminator
    EXPECT_EQ(context.getCompId(), std::string(63, 'c'));
    // An unterminated field reads up to its end, never into the next one.
    std::memset(context.compId, 'z', sizeof(context.compId));
    EXPECT_TRUE(context.setTaskId("t"));
    EXPECT_EQ(context.getCompId(), std::string(64, 'z'));
}

TEST(ZelParcelablesTest, TheReplyIsTwelveBytesAndRefusesAnyOtherBoolean) {
    const ZelCallbackParams record{77, true, -5};
    const ZelCallbackParamsParcelable reply(record);
    const std::vector<uint8_t> bytes = toBytes(reply);
    EXPECT_EQ(bytes, (std::vector<uint8_t>{77, 0, 0, 0, 1, 0, 0, 0, 0xFB, 0xFF, 0xFF, 0xFF}));

    ZelCallbackParamsParcelable back;
    ASSERT_TRUE(ZelParcelableHelperUtils::convertBytesToParcelable(bytes, &back));
    const ZelCallbackParams again = back.toRecord();
    EXPECT_EQ(again.token, 77);
    EXPECT_TRUE(again.canStart);
    EXPECT_EQ(again.status, -5);

    std::vector<uint8_t> twoForTrue = bytes;
    twoForTrue[4] = 2;
    ZelCallbackParamsParcelable kept(ZelCallbackParams{1, false, 2});
    EXPECT_FALSE(ZelParcelableHelperUtils::convertBytesToParcelable(twoForTrue, &kept));
    EXPECT_EQ(kept.token, 1);
    EXPECT_EQ(kept.status, 2);
    expectOnlyExactBytesAccepted<ZelCallbackParamsParcelable>(bytes, [](const ZelCallbackParamsParcelable& p) {
        return p.token == 0 && !p.canStart && p.status == 0;
    });
}

TEST(ZelParcelablesTest, EventParamsAreTwoInt32) {
    const std::vector<uint8_t> bytes = toBytes(ZelEventParamsParcelable(1, 5000));
    EXPECT_EQ(bytes, (std::vector<uint8_t>{1, 0, 0, 0, 0x88, 0x13, 0, 0}));
    ZelEventParamsParcelable back;
    ASSERT_TRUE(ZelParcelableHelperUtils::convertBytesToParcelable(bytes, &back));
    EXPECT_EQ(back.param1, 1);
    EXPECT_EQ(back.param2, 5000);
    expectOnlyExactBytesAccepted<ZelEventParamsParcelable>(
            bytes, [](const ZelEventParamsParcelable& p) { return p.param1 == 0 && p.param2 == 0; });
}

TEST(ZelParcelablesTest, ConversionRefusesWhatCannotTravelAsBytes) {
    std::vector<uint8_t> bytes{9};
    EXPECT_FALSE(ZelParcelableHelperUtils::convertParcelableToBytes(nullptr, bytes));
    EXPECT_FALSE(ZelParcelableHelperUtils::convertBytesToParcelable({1, 0, 0, 0}, nullptr));

    // A binder object has no byte form.
    class WithBinder : public android::Parcelable {
    public:
        android::status_t writeToParcel(android::Parcel* p) const override {
            return p->writeStrongBinder(new android::BBinder());
        }
        android::status_t readFromParcel(const android::Parcel*) override { return android::OK; }
    };
    WithBinder withBinder;
    EXPECT_FALSE(ZelParcelableHelperUtils::convertParcelableToBytes(&withBinder, bytes));
    EXPECT_EQ(bytes, std::vector<uint8_t>{9});
}

TEST(ZelParcelablesTest, ModuleNamesMapExactly) {
    EXPECT_EQ(ZelServiceIdentifierUtils::fromModuleName("COM_OSTREL_ZELD").value, 1);
    EXPECT_EQ(ZelServiceIdentifierUtils::fromModuleName("COM_OSTREL_ZELD_TEST_CLIENT").value, 6);
    EXPECT_EQ(ZelServiceIdentifierUtils::fromModuleName("com_ostrel_zeld").value, 0);
    EXPECT_EQ(ZelServiceIdentifierUtils::fromModuleName("COM_OSTREL_ZELD ").value, 0);
    EXPECT_EQ(ZelServiceIdentifierUtils::fromModuleName("INVALID_SERVICE_UUID").value, 0);
    EXPECT_EQ(ZelServiceIdentifierUtils::fromModuleName("").value, 0);
    const std::vector<std::string> names = {"INVALID_SERVICE_UUID", "COM_OSTREL_ZELD", "COM_OSTREL_ARDEN_HYBRID_EXEC",
                                            "COM_OSTREL_MARLOWAPP", "COM_OSTREL_LARK_SIM", "COM_OSTREL_TALLYD",
                                            "COM_OSTREL_ZELD_TEST_CLIENT"};
    for (int32_t id = 0; id < static_cast<int32_t>(names.size()); ++id) {
        EXPECT_EQ(ZelServiceIdentifierUtils::fromModuleName(names[id]).value, id);
        EXPECT_EQ(ZelServiceIdentifierUtils::toModuleName(id), names[id]);
    }
    EXPECT_STREQ(ZelServiceIdentifierUtils::toModuleName(7), "INVALID_SERVICE_UUID");
}

}  // namespace
