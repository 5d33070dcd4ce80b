#pragma once

#include <cstdint>
#include <ostream>
#include <string>

#include <utils/Errors.h>
#include <utils/String8.h>

namespace android {

class Parcel;

namespace binder {

// The result of a binder method: an exception code, and for
// EX_SERVICE_SPECIFIC / EX_TRANSACTION_FAILED an error code. Travels in the
// reply parcel as libbinder writes it.
class Status final {
public:
    enum Exception {
        EX_NONE = 0,
        EX_SECURITY = -1,
        EX_BAD_PARCELABLE = -2,
        EX_ILLEGAL_ARGUMENT = -3,
        EX_NULL_POINTER = -4,
        EX_ILLEGAL_STATE = -5,
        EX_NETWORK_MAIN_THREAD = -6,
        EX_UNSUPPORTED_OPERATION = -7,
        EX_SERVICE_SPECIFIC = -8,
        EX_PARCELABLE = -9,
        EX_HAS_REPLY_HEADER = -128,
        // Never written to a parcel: the transaction itself failed.
        EX_TRANSACTION_FAILED = -129,
    };

    static Status ok();
    static Status fromExceptionCode(int32_t exceptionCode);
    static Status fromExceptionCode(int32_t exceptionCode, const String8& message);
    static Status fromExceptionCode(int32_t exceptionCode, const char* message);
    static Status fromServiceSpecificError(int32_t errorCode);
    static Status fromServiceSpecificError(int32_t errorCode, const String8& message);
    static Status fromServiceSpecificError(int32_t errorCode, const char* message);
    static Status fromStatusT(status_t status);

    static std::string exceptionToString(int32_t exceptionCode);

    Status() = default;
    ~Status() = default;
    Status(Status&&) = default;
    Status(const Status&) = default;
    Status& operator=(Status&&) = default;
    Status& operator=(const Status&) = default;

    // Reads and writes the reply header, as libbinder does. readFromParcel
    // fails on a truncated header; writeToParcel of EX_TRANSACTION_FAILED
    // returns the transaction error instead of writing.
    status_t readFromParcel(const Parcel& parcel);
    status_t writeToParcel(Parcel* parcel) const;

    void setException(int32_t exceptionCode, const String8& message);
    void setServiceSpecificError(int32_t errorCode, const String8& message);
    void setFromStatusT(status_t status);

    int32_t exceptionCode() const { return mException; }
    const String8& exceptionMessage() const { return mMessage; }
    status_t transactionError() const { return mException == EX_TRANSACTION_FAILED ? mErrorCode : OK; }
    int32_t serviceSpecificErrorCode() const { return mException == EX_SERVICE_SPECIFIC ? mErrorCode : 0; }
    bool isOk() const { return mException == EX_NONE; }

    String8 toString8() const;

private:
    Status(int32_t exceptionCode, int32_t errorCode);
    Status(int32_t exceptionCode, int32_t errorCode, const String8& message);

    int32_t mException = EX_NONE;
    int32_t mErrorCode = 0;
    String8 mMessage;
};

std::ostream& operator<<(std::ostream& stream, const Status& s);

}  // namespace binder
}  // namespace android
