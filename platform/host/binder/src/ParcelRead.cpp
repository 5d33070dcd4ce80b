#include <binder/Parcel.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstring>

#include <binder/Status.h>

#include "ZelParcelFormat.h"

namespace android {

using namespace zel::binder::parcel;

namespace {

// Restores the read position unless released: a compound read that fails
// leaves the parcel where it was.
class PositionGuard {
public:
    explicit PositionGuard(const Parcel& parcel) : mParcel(parcel), mStart(parcel.dataPosition()) {}
    ~PositionGuard() {
        if (!mReleased) mParcel.setDataPosition(mStart);
    }
    status_t done(status_t status) {
        mReleased = status == OK;
        return status;
    }

private:
    const Parcel& mParcel;
    const size_t mStart;
    bool mReleased = false;
};

}  // namespace

template <typename T>
status_t Parcel::readAligned(T* pArg) const {
    const uint8_t* at = consume(sizeof(T));
    if (at == nullptr) return NOT_ENOUGH_DATA;
    std::memcpy(pArg, at, sizeof(T));
    return OK;
}

// ---- reads ----------------------------------------------------------------

status_t Parcel::read(void* outData, size_t len) const {
    const uint8_t* at = consume(len);
    if (at == nullptr) return NOT_ENOUGH_DATA;
    if (len > 0) std::memcpy(outData, at, len);
    return OK;
}

const void* Parcel::readInplace(size_t len) const { return consume(len); }

status_t Parcel::readInt32(int32_t* pArg) const { return readAligned(pArg); }
status_t Parcel::readUint32(uint32_t* pArg) const { return readAligned(pArg); }
status_t Parcel::readInt64(int64_t* pArg) const { return readAligned(pArg); }
status_t Parcel::readUint64(uint64_t* pArg) const { return readAligned(pArg); }
status_t Parcel::readFloat(float* pArg) const { return readAligned(pArg); }
status_t Parcel::readDouble(double* pArg) const { return readAligned(pArg); }

namespace {
// The value-returning reads give 0 where the status-returning read fails.
template <typename T>
T readOrZero(const Parcel& parcel, status_t (Parcel::*read)(T*) const) {
    T value{};
    (parcel.*read)(&value);
    return value;
}
}  // namespace

int32_t Parcel::readInt32() const { return readOrZero<int32_t>(*this, &Parcel::readInt32); }
uint32_t Parcel::readUint32() const { return readOrZero<uint32_t>(*this, &Parcel::readUint32); }
int64_t Parcel::readInt64() const { return readOrZero<int64_t>(*this, &Parcel::readInt64); }
uint64_t Parcel::readUint64() const { return readOrZero<uint64_t>(*this, &Parcel::readUint64); }

status_t Parcel::readBool(bool* pArg) const {
    int32_t v;
    status_t status = readInt32(&v);
    if (status == OK) *pArg = v != 0;
    return status;
}

bool Parcel::readBool() const { return readInt32() != 0; }

status_t Parcel::readByte(int8_t* pArg) const {
    int32_t v;
    status_t status = readInt32(&v);
    if (status == OK) *pArg = static_cast<int8_t>(v);
    return status;
}

status_t Parcel::readChar(char16_t* pArg) const {
    int32_t v;
    status_t status = readInt32(&v);
    if (status == OK) *pArg = static_cast<char16_t>(v);
    return status;
}

const char* Parcel::readCString() const {
    if (mDataPos >= mData.size()) return nullptr;
    const char* start = reinterpret_cast<const char*>(mData.data() + mDataPos);
    const void* nul = std::memchr(start, 0, mData.size() - mDataPos);
    if (nul == nullptr) return nullptr;
    return static_cast<const char*>(readInplace(static_cast<const char*>(nul) - start + 1));
}

status_t Parcel::readString8(String8* pArg) const {
    PositionGuard guard(*this);
    int32_t size;
    status_t status = readInt32(&size);
    if (status != OK) return status;
    if (size < 0 || size == INT32_MAX) return guard.done(BAD_VALUE);
    const char* str = static_cast<const char*>(readInplace(static_cast<size_t>(size) + 1));
    if (str == nullptr) return NOT_ENOUGH_DATA;
    if (str[size] != '\0') return guard.done(BAD_VALUE);
    pArg->setTo(str, static_cast<size_t>(size));
    return guard.done(OK);
}

String8 Parcel::readString8() const {
    String8 s;
    readString8(&s);
    return s;
}

const char16_t* Parcel::readString16Inplace(size_t* outLen) const {
    PositionGuard guard(*this);
    *outLen = 0;
    int32_t size;
    if (readInt32(&size) != OK) return nullptr;
    if (size == -1) {
        guard.done(OK);
        return nullptr;
    }
    if (size < 0 || static_cast<size_t>(size) >= INT32_MAX / sizeof(char16_t)) return nullptr;
    const size_t units = static_cast<size_t>(size);
    const uint8_t* at = consume((units + 1) * sizeof(char16_t));
    if (at == nullptr) return nullptr;
    char16_t terminator;
    std::memcpy(&terminator, at + units * sizeof(char16_t), sizeof(terminator));
    if (terminator != 0) return nullptr;
    guard.done(OK);
    *outLen = units;
    return reinterpret_cast<const char16_t*>(at);
}

status_t Parcel::readString16(String16* pArg) const {
    const size_t start = mDataPos;
    size_t len;
    const char16_t* str = readString16Inplace(&len);
    if (str != nullptr) {
        pArg->setTo(str, len);
        return OK;
    }
    if (mDataPos != start) {
        // The length was -1: a null string.
        setDataPosition(start);
        return UNEXPECTED_NULL;
    }
    return BAD_VALUE;
}

String16 Parcel::readString16() const {
    String16 s;
    readString16(&s);
    return s;
}

status_t Parcel::readUtf8FromUtf16(std::string* str) const {
    String16 utf16;
    status_t status = readString16(&utf16);
    if (status != OK) return status;
    const String8 utf8(utf16);
    str->assign(utf8.string(), utf8.size());
    return OK;
}

namespace {

template <typename Byte>
status_t readBytes(const Parcel& parcel, std::vector<Byte>* val) {
    PositionGuard guard(parcel);
    int32_t size;
    status_t status = parcel.readInt32(&size);
    if (status != OK) return status;
    if (size < 0) return UNEXPECTED_NULL;
    if (static_cast<size_t>(size) > parcel.dataAvail()) return NOT_ENOUGH_DATA;
    const auto* at = static_cast<const Byte*>(parcel.readInplace(static_cast<size_t>(size)));
    if (at == nullptr) return NOT_ENOUGH_DATA;
    val->assign(at, at + size);
    return guard.done(OK);
}

}  // namespace

status_t Parcel::readByteVector(std::vector<int8_t>* val) const { return readBytes(*this, val); }
status_t Parcel::readByteVector(std::vector<uint8_t>* val) const { return readBytes(*this, val); }

template <typename T>
status_t Parcel::readTypedVector(std::vector<T>* val, status_t (Parcel::*readOne)(T*) const) const {
    PositionGuard guard(*this);
    int32_t size;
    status_t status = readInt32(&size);
    if (status != OK) return status;
    if (size < 0) return UNEXPECTED_NULL;
    // Every element takes at least 4 bytes: refuse sizes the data cannot hold
    // before allocating.
    if (static_cast<size_t>(size) > dataAvail() / 4) return NOT_ENOUGH_DATA;
    std::vector<T> out(static_cast<size_t>(size));
    for (auto& item : out) {
        status = (this->*readOne)(&item);
        if (status != OK) return status;
    }
    *val = std::move(out);
    return guard.done(OK);
}

status_t Parcel::readInt32Vector(std::vector<int32_t>* val) const {
    return readTypedVector(val, &Parcel::readInt32);
}

status_t Parcel::readInt64Vector(std::vector<int64_t>* val) const {
    return readTypedVector(val, &Parcel::readInt64);
}

status_t Parcel::readString16Vector(std::vector<String16>* val) const {
    return readTypedVector(val, &Parcel::readString16);
}

status_t Parcel::readUtf8VectorFromUtf16Vector(std::vector<std::string>* val) const {
    return readTypedVector(val, &Parcel::readUtf8FromUtf16);
}

status_t Parcel::readNullableStrongBinder(sp<IBinder>* val) const {
    PositionGuard guard(*this);
    int32_t marker;
    int32_t index;
    status_t status = readInt32(&marker);
    if (status == OK) status = readInt32(&index);
    if (status != OK) return status;
    if (marker == kNullBinderMarker && index == 0) {
        val->clear();
        return guard.done(OK);
    }
    if (marker != kBinderMarker || index < 0 || static_cast<size_t>(index) >= mObjects.size()) {
        return BAD_TYPE;
    }
    *val = mObjects[static_cast<size_t>(index)];
    return guard.done(OK);
}

status_t Parcel::readStrongBinder(sp<IBinder>* val) const {
    status_t status = readNullableStrongBinder(val);
    if (status == OK && val->get() == nullptr) status = UNEXPECTED_NULL;
    return status;
}

sp<IBinder> Parcel::readStrongBinder() const {
    sp<IBinder> val;
    readNullableStrongBinder(&val);
    return val;
}

status_t Parcel::readStrongBinderVector(std::vector<sp<IBinder>>* val) const {
    return readTypedVector(val, &Parcel::readStrongBinder);
}

status_t Parcel::readParcelable(Parcelable* parcelable) const {
    int32_t haveParcelable = 0;
    status_t status = readInt32(&haveParcelable);
    if (status != OK) return status;
    if (haveParcelable == 0) return UNEXPECTED_NULL;
    return parcelable->readFromParcel(this);
}

int Parcel::readFileDescriptor() const {
    PositionGuard guard(*this);
    int32_t marker;
    int32_t index;
    if (readInt32(&marker) != OK || readInt32(&index) != OK || marker != kFdMarker || index < 0 ||
        static_cast<size_t>(index) >= mFds.size()) {
        return BAD_TYPE;
    }
    guard.done(OK);
    return mFds[static_cast<size_t>(index)].fd;
}

status_t Parcel::readUniqueFileDescriptor(base::unique_fd* val) const {
    const int fd = readFileDescriptor();
    if (fd < 0) return BAD_TYPE;
    val->reset(fcntl(fd, F_DUPFD_CLOEXEC, 0));
    return val->get() < 0 ? BAD_VALUE : OK;
}

status_t Parcel::readUniqueFileDescriptorVector(std::vector<base::unique_fd>* val) const {
    return readTypedVector(val, &Parcel::readUniqueFileDescriptor);
}

int32_t Parcel::readExceptionCode() const {
    binder::Status status;
    status.readFromParcel(*this);
    return status.exceptionCode();
}

bool Parcel::enforceInterface(const String16& interface, IPCThreadState*) const {
    int32_t strictPolicy;
    if (readInt32(&strictPolicy) != OK) return false;
    size_t len;
    const char16_t* str = readString16Inplace(&len);
    return str != nullptr && len == interface.size() &&
           std::memcmp(str, interface.string(), len * sizeof(char16_t)) == 0;
}

bool Parcel::checkInterface(IBinder* binder) const {
    return binder != nullptr && enforceInterface(binder->getInterfaceDescriptor());
}

}  // namespace android
