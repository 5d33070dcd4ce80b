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

// `valid` reads back as T; every proper prefix and every extension of it is
// refused, and the target keeps the value it had. Returns what was read.
template <typename T>
T expectOnlyExactBytesAccepted(const std::vector<uint8_t>& valid, const std::function<bool(const T&)>& untouched) {
    for (size_t len = 0; len < valid.size() + 5; len += (len == valid.size() - 1 ? 2 : 1)) {
        std::vector<uint8_t> bytes(valid.begin(), valid.begin() + std::min(len, valid.size()));
        bytes.resize(len, 0);
        T target = T();
        EXPECT_FALSE(ZelParcelableHelperUtils::convertBytesToParcelable(bytes, &target)) << "length " << len;
        EXPECT_TRUE(untouched(target)) << "length " << len;
    }
    T back;
    EXPECT_TRUE(ZelParcelableHelperUtils::convertBytesToParcelable(valid, &back));
    return back;
}

TEST(ZelParcelablesTest, IdentifiersAreOneInt32) {
    EXPECT_EQ(toBytes(ServiceIdentifier(6)), (std::vector<uint8_t>{6, 0, 0, 0}));
    EXPECT_EQ(toBytes(MessageIdentifier(MessageIdentifier::ASYNC_REPLY)), (std::vector<uint8_t>{2, 0, 0, 0}));
    auto zero = [](const auto& id) { return id.value == 0; };
    EXPECT_EQ(expectOnlyExactBytesAccepted<ServiceIdentifier>({0xFF, 0xFF, 0xFF, 0xFF}, zero).value, -1);
    EXPECT_EQ(expectOnlyExactBytesAccepted<MessageIdentifier>({1, 0, 0, 0}, zero).value, 1);
}

// The record's layout is fixed by static_asserts beside it; the request is
// the function id followed by the record's bytes as they lie.
TEST(ZelParcelablesTest, TheRequestCarriesTheTaskContextBytesAsTheyLie) {
    ZelAsyncParamsBinderParcelable request;
    request.functionId = ZelAsyncParamsBinderParcelable::TASK_STARTED;
    ASSERT_TRUE(request.taskContext.setCompId("camera"));
    ASSERT_TRUE(request.taskContext.setTaskId("upload"));
    request.taskContext.token = 0x01020304;
    request.taskContext.notify = true;
    request.taskContext.duration = 4500;
    const std::vector<uint8_t> bytes = toBytes(request);
    ASSERT_EQ(bytes.size(), 4 + sizeof(ZelTaskContext));
    EXPECT_EQ(std::vector<uint8_t>(bytes.begin(), bytes.begin() + 4), (std::vector<uint8_t>{2, 0, 0, 0}));
    EXPECT_EQ(std::memcmp(bytes.data() + 4, &request.taskContext, sizeof(ZelTaskContext)), 0);

    const ZelAsyncParamsBinderParcelable back = expectOnlyExactBytesAccepted<ZelAsyncParamsBinderParcelable>(
            bytes, [](const ZelAsyncParamsBinderParcelable& p) {
                return p.functionId == 0 && p.taskContext.getCompId().empty() && p.taskContext.duration == 0;
            });
    EXPECT_EQ(back.functionId, request.functionId);
    EXPECT_EQ(std::memcmp(&back.taskContext, &request.taskContext, sizeof(ZelTaskContext)), 0);
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
    const std::vector<uint8_t> bytes = toBytes(ZelCallbackParamsParcelable(ZelCallbackParams{77, true, -5}));
    EXPECT_EQ(bytes, (std::vector<uint8_t>{77, 0, 0, 0, 1, 0, 0, 0, 0xFB, 0xFF, 0xFF, 0xFF}));
    const ZelCallbackParams back = expectOnlyExactBytesAccepted<ZelCallbackParamsParcelable>(
            bytes, [](const ZelCallbackParamsParcelable& p) { return p.token == 0 && !p.canStart && p.status == 0; })
                                           .toRecord();
    EXPECT_EQ(std::tie(back.token, back.canStart, back.status), std::make_tuple(77, true, -5));

    std::vector<uint8_t> twoForTrue = bytes;
    twoForTrue[4] = 2;
    ZelCallbackParamsParcelable kept(ZelCallbackParams{1, false, 2});
    EXPECT_FALSE(ZelParcelableHelperUtils::convertBytesToParcelable(twoForTrue, &kept));
    EXPECT_EQ(kept.token, 1);
    EXPECT_EQ(kept.status, 2);
}

TEST(ZelParcelablesTest, EventParamsAreTwoInt32) {
    const std::vector<uint8_t> bytes = toBytes(ZelEventParamsParcelable(1, 5000));
    EXPECT_EQ(bytes, (std::vector<uint8_t>{1, 0, 0, 0, 0x88, 0x13, 0, 0}));
    const ZelEventParamsParcelable back = expectOnlyExactBytesAccepted<ZelEventParamsParcelable>(
            bytes, [](const ZelEventParamsParcelable& p) { return p.param1 == 0 && p.param2 == 0; });
    EXPECT_EQ(back.param1, 1);
    EXPECT_EQ(back.param2, 5000);
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
    for (const char* unknown : {"com_ostrel_zeld", "COM_OSTREL_ZELD ", "INVALID_SERVICE_UUID", ""}) {
        EXPECT_EQ(ZelServiceIdentifierUtils::fromModuleName(unknown).value, 0) << unknown;
    }
    const std::vector<std::string> names = {"INVALID_SERVICE_UUID", "COM_OSTREL_ZELD", "COM_OSTREL_ARDEN_HYBRID_EXEC",
                                            "COM_OSTREL_MARLOWAPP", "COM_OSTREL_LARK_SIM", "COM_OSTREL_TALLYD",
                                            "COM_OSTREL_ZELD_TEST_CLIENT"};
    for (int32_t id = 0; id < static_cast<int32_t>(names.size()); ++id) {
        EXPECT_EQ(ZelServiceIdentifierUtils::fromModuleName(names[id]).value, id);  // ZELD 1, TEST_CLIENT 6
        EXPECT_EQ(ZelServiceIdentifierUtils::toModuleName(id), names[id]);
    }
    EXPECT_STREQ(ZelServiceIdentifierUtils::toModuleName(7), "INVALID_SERVICE_UUID");
}

}  // namespace
