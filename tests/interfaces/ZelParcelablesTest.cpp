// What byte cases cannot show (those are in tests/bytes/cases): setting the
// task context's ids, and values that have no byte form.
#include <binder/Binder.h>
#include <binder/Parcel.h>
#include <com/ostrel/zeld/interfaces/ZelTaskContext.h>
#include <com/ostrel/zeld/utils/ZelParcelableHelperUtils.h>
#include <gtest/gtest.h>

using namespace android;
using com::ostrel::zeld::interfaces::ZelTaskContext;
using com::ostrel::zeld::utils::ZelParcelableHelperUtils;

namespace {

TEST(ZelParcelablesTest, TaskContextIdsKeepRoomForTheirTerminator) {
    ZelTaskContext context;
    EXPECT_TRUE(context.setCompId(std::string(63, 'c')));
    EXPECT_FALSE(context.setCompId(std::string(64, 'x')));
    EXPECT_EQ(context.getCompId(), std::string(63, 'c'));
}

TEST(ZelParcelablesTest, ConversionRefusesWhatCannotTravelAsBytes) {
    std::vector<uint8_t> bytes{9};
    EXPECT_FALSE(ZelParcelableHelperUtils::convertParcelableToBytes(nullptr, bytes));
    EXPECT_FALSE(ZelParcelableHelperUtils::convertBytesToParcelable({1, 0, 0, 0}, nullptr));

    // A binder object has no byte form.
    struct WithBinder : Parcelable {
        status_t writeToParcel(Parcel* p) const override { return p->writeStrongBinder(new BBinder()); }
        status_t readFromParcel(const Parcel*) override { return OK; }
    } withBinder;
    EXPECT_FALSE(ZelParcelableHelperUtils::convertParcelableToBytes(&withBinder, bytes));
    EXPECT_EQ(bytes, std::vector<uint8_t>{9});
}

}  // namespace
