#include <binder/Status.h>

#include <binder/Parcel.h>

namespace android::binder {

Status Status::ok() { return Status(); }

Status Status::fromExceptionCode(int32_t exceptionCode) {
    if (exceptionCode == EX_TRANSACTION_FAILED) return Status(exceptionCode, FAILED_TRANSACTION);
    return Status(exceptionCode, OK);
}

Status Status::fromExceptionCode(int32_t exceptionCode, const String8& message) {
    if (exceptionCode == EX_TRANSACTION_FAILED) {
        return Status(exceptionCode, FAILED_TRANSACTION, message);
    }
    return Status(exceptionCode, OK, message);
}

Status Status::fromExceptionCode(int32_t exceptionCode, const char* message) {
    return fromExceptionCode(exceptionCode, String8(message));
}

Status Status::fromServiceSpecificError(int32_t errorCode) {
    return Status(EX_SERVICE_SPECIFIC, errorCode);
}

Status Status::fromServiceSpecificError(int32_t errorCode, const String8& message) {
    return Status(EX_SERVICE_SPECIFIC, errorCode, message);
}

Status Status::fromServiceSpecificError(int32_t errorCode, const char* message) {
    return fromServiceSpecificError(errorCode, String8(message));
}

Status Status::fromStatusT(status_t status) {
    Status ret;
    ret.setFromStatusT(status);
    return ret;
}

std::string Status::exceptionToString(int32_t exceptionCode) {
    switch (exceptionCode) {
        case EX_NONE: return "EX_NONE";
        case EX_SECURITY: return "EX_SECURITY";
        case EX_BAD_PARCELABLE: return "EX_BAD_PARCELABLE";
        case EX_ILLEGAL_ARGUMENT: return "EX_ILLEGAL_ARGUMENT";
        case EX_NULL_POINTER: return "EX_NULL_POINTER";
        case EX_ILLEGAL_STATE: return "EX_ILLEGAL_STATE";
        case EX_NETWORK_MAIN_THREAD: return "EX_NETWORK_MAIN_THREAD";
        case EX_UNSUPPORTED_OPERATION: return "EX_UNSUPPORTED_OPERATION";
        case EX_SERVICE_SPECIFIC: return "EX_SERVICE_SPECIFIC";
        case EX_PARCELABLE: return "EX_PARCELABLE";
        case EX_HAS_REPLY_HEADER: return "EX_HAS_REPLY_HEADER";
        case EX_TRANSACTION_FAILED: return "EX_TRANSACTION_FAILED";
        default: return "UNKNOWN_EXCEPTION(" + std::to_string(exceptionCode) + ")";
    }
}

Status::Status(int32_t exceptionCode, int32_t errorCode)
    : mException(exceptionCode), mErrorCode(errorCode) {}

Status::Status(int32_t exceptionCode, int32_t errorCode, const String8& message)
    : mException(exceptionCode), mErrorCode(errorCode), mMessage(message) {}

namespace {

// Skips a block that starts with its own int32 size (the size counts itself).
status_t skipSizedHeader(const Parcel& parcel) {
    const size_t start = parcel.dataPosition();
    const size_t avail = parcel.dataAvail();
    int32_t size;
    status_t status = parcel.readInt32(&size);
    if (status != OK) return status;
    if (size < 0 || static_cast<size_t>(size) > avail) return UNKNOWN_ERROR;
    parcel.setDataPosition(start + static_cast<size_t>(size));
    return OK;
}

}  // namespace

status_t Status::readFromParcel(const Parcel& parcel) {
    status_t status = parcel.readInt32(&mException);
    if (status == OK && mException == EX_HAS_REPLY_HEADER) {
        // Reply headers are only sent with no exception; skip them.
        status = skipSizedHeader(parcel);
        mException = EX_NONE;
    }
    if (status != OK) {
        setFromStatusT(status);
        return status;
    }
    if (mException == EX_NONE) return OK;

    String16 message;
    status = parcel.readString16(&message);
    int32_t stackTraceSize = 0;
    if (status == OK) status = parcel.readInt32(&stackTraceSize);
    if (status == OK &&
        (stackTraceSize < 0 || static_cast<size_t>(stackTraceSize) > parcel.dataAvail())) {
        status = UNKNOWN_ERROR;
    }
    if (status == OK) {
        parcel.setDataPosition(parcel.dataPosition() + static_cast<size_t>(stackTraceSize));
        mMessage = String8(message);
        if (mException == EX_SERVICE_SPECIFIC) {
            status = parcel.readInt32(&mErrorCode);
        } else if (mException == EX_PARCELABLE) {
            status = skipSizedHeader(parcel);
        }
    }
    if (status != OK) setFromStatusT(status);
    return status;
}

status_t Status::writeToParcel(Parcel* parcel) const {
    // A failed transaction is reported as the transaction's own error.
    if (mException == EX_TRANSACTION_FAILED) return mErrorCode;
    status_t status = parcel->writeInt32(mException);
    if (status != OK || mException == EX_NONE) return status;
    status = parcel->writeString16(String16(mMessage));
    if (status == OK) status = parcel->writeInt32(0);  // no remote stack trace
    if (status != OK) return status;
    if (mException == EX_SERVICE_SPECIFIC) return parcel->writeInt32(mErrorCode);
    if (mException == EX_PARCELABLE) return parcel->writeInt32(0);
    return OK;
}

void Status::setException(int32_t exceptionCode, const String8& message) {
    mException = exceptionCode;
    mErrorCode = exceptionCode == EX_TRANSACTION_FAILED ? FAILED_TRANSACTION : OK;
    mMessage = message;
}

void Status::setServiceSpecificError(int32_t errorCode, const String8& message) {
    setException(EX_SERVICE_SPECIFIC, message);
    mErrorCode = errorCode;
}

void Status::setFromStatusT(status_t status) {
    mException = status == OK ? EX_NONE : EX_TRANSACTION_FAILED;
    mErrorCode = status;
    mMessage.clear();
}

String8 Status::toString8() const {
    String8 ret;
    if (mException == EX_NONE) {
        ret.append("No error");
        return ret;
    }
    ret.appendFormat("Status(%d, %s): '", mException, exceptionToString(mException).c_str());
    if (mException == EX_SERVICE_SPECIFIC || mException == EX_TRANSACTION_FAILED) {
        ret.appendFormat("%d: ", mErrorCode);
    }
    ret.append(mMessage);
    ret.append("'");
    return ret;
}

std::ostream& operator<<(std::ostream& stream, const Status& s) {
    return stream << s.toString8().string();
}

}  // namespace android::binder
