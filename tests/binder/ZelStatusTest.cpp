#include <binder/Parcel.h>
#include <binder/Status.h>
#include <gtest/gtest.h>

using android::DEAD_OBJECT;
using android::OK;
using android::Parcel;
using android::String8;
using android::binder::Status;

namespace {

std::vector<uint8_t> written(const Status& status) {
    Parcel p;
    EXPECT_EQ(status.writeToParcel(&p), OK);
    return {p.data(), p.data() + p.dataSize()};
}

Status readBack(const std::vector<uint8_t>& bytes, android::status_t* result = nullptr) {
    Parcel p;
    p.setData(bytes.data(), bytes.size());
    Status status;
    const android::status_t r = status.readFromParcel(p);
    if (result != nullptr) *result = r;
    return status;
}

TEST(ZelStatusTest, ExceptionCodesAndTransactionErrorsAreKeptApart) {
    const Status illegal = Status::fromExceptionCode(Status::EX_ILLEGAL_ARGUMENT);
    EXPECT_FALSE(illegal.isOk());
    EXPECT_EQ(illegal.exceptionCode(), -3);
    EXPECT_EQ(illegal.transactionError(), OK);

    const Status dead = Status::fromStatusT(DEAD_OBJECT);
    EXPECT_EQ(dead.exceptionCode(), Status::EX_TRANSACTION_FAILED);
    EXPECT_EQ(dead.transactionError(), DEAD_OBJECT);
    EXPECT_NE(std::string(dead.toString8().c_str()).find(": '" + std::to_string(DEAD_OBJECT) + ": "), std::string::npos)
            << dead.toString8().c_str();
    EXPECT_TRUE(Status::fromStatusT(OK).isOk());
    EXPECT_EQ(Status::fromExceptionCode(Status::EX_TRANSACTION_FAILED).transactionError(), android::FAILED_TRANSACTION);

    const Status specific = Status::fromServiceSpecificError(42, "why");
    EXPECT_EQ(specific.serviceSpecificErrorCode(), 42);
    EXPECT_EQ(String8("why"), specific.exceptionMessage());
}

TEST(ZelStatusTest, TravelsInAReplyAsLibbinderWritesIt) {
    EXPECT_EQ(written(Status::ok()), (std::vector<uint8_t>{0, 0, 0, 0}));
    const std::vector<uint8_t> illegal = written(Status::fromExceptionCode(-3, "x"));
    EXPECT_EQ(illegal, (std::vector<uint8_t>{0xFD, 0xFF, 0xFF, 0xFF, 1, 0, 0, 0, 'x', 0, 0, 0, 0, 0, 0, 0}));

    EXPECT_TRUE(readBack(written(Status::ok())).isOk());
    const Status back = readBack(illegal);
    EXPECT_EQ(back.exceptionCode(), -3);
    EXPECT_EQ(String8("x"), back.exceptionMessage());
    EXPECT_EQ(readBack(written(Status::fromServiceSpecificError(7))).serviceSpecificErrorCode(), 7);

    // A failed transaction is never written: its error is returned instead.
    Parcel p;
    EXPECT_EQ(Status::fromStatusT(DEAD_OBJECT).writeToParcel(&p), DEAD_OBJECT);
    EXPECT_EQ(p.dataSize(), 0u);
    // A reply header is skipped and means success.
    EXPECT_TRUE(readBack({0x80, 0xFF, 0xFF, 0xFF, 8, 0, 0, 0, 1, 2, 3, 4}).isOk());
}

TEST(ZelStatusTest, ATruncatedReplyBecomesATransactionError) {
    const std::vector<std::vector<uint8_t>> truncated = {
            {}, {0xFD, 0xFF, 0xFF, 0xFF}, {0xFD, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x40, 0, 0, 0}};
    for (const auto& bytes : truncated) {
        android::status_t result = OK;
        EXPECT_EQ(readBack(bytes, &result).exceptionCode(), Status::EX_TRANSACTION_FAILED) << bytes.size();
        EXPECT_NE(result, OK) << bytes.size();
    }
}

}  // namespace
