#include <binder/Parcel.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include <binder/Status.h>

#include "ZelParcelFormat.h"

// A parcel's storage and writes; its reads are in ParcelRead.cpp.

namespace android {

using namespace zel::binder::parcel;

Parcel::Parcel() = default;
Parcel::~Parcel() { releaseFds(); }

void Parcel::releaseFds() {
    for (const FileDescriptor& entry : mFds) {
        if (entry.owned) close(entry.fd);
    }
    mFds.clear();
}

const uint8_t* Parcel::data() const { return mData.data(); }
size_t Parcel::dataSize() const { return mData.size(); }
size_t Parcel::dataAvail() const { return mDataPos >= mData.size() ? 0 : mData.size() - mDataPos; }
size_t Parcel::dataPosition() const { return mDataPos; }
size_t Parcel::dataCapacity() const { return mData.capacity(); }

status_t Parcel::setDataSize(size_t size) {
    if (size > kMaxParcelSize) return BAD_VALUE;
    mData.resize(size);
    if (mDataPos > size) mDataPos = size;
    return OK;
}

void Parcel::setDataPosition(size_t pos) const { mDataPos = pos; }

status_t Parcel::setDataCapacity(size_t size) {
    if (size > kMaxParcelSize) return BAD_VALUE;
    if (size > mData.capacity()) mData.reserve(size);
    return OK;
}

status_t Parcel::setData(const uint8_t* buffer, size_t len) {
    if (len > kMaxParcelSize) return BAD_VALUE;
    if (len == 0) {
        mData.clear();
    } else {
        mData.assign(buffer, buffer + len);
    }
    mDataPos = 0;
    mObjects.clear();
    releaseFds();
    return OK;
}

void Parcel::freeData() {
    mData.clear();
    mData.shrink_to_fit();
    mDataPos = 0;
    mObjects.clear();
    releaseFds();
}

size_t Parcel::objectsCount() const { return mObjects.size(); }

uint8_t* Parcel::grow(size_t len) {
    if (len > kMaxParcelSize) return nullptr;
    const size_t padded = padSize(len);
    if (mDataPos > kMaxParcelSize - padded) return nullptr;
    const size_t end = mDataPos + padded;
    if (end > mData.size()) mData.resize(end);
    uint8_t* at = mData.data() + mDataPos;
    if (padded > len) std::memset(at + len, 0, padded - len);
    mDataPos = end;
    return at;
}

const uint8_t* Parcel::consume(size_t len) const {
    if (len > kMaxParcelSize) return nullptr;
    const size_t padded = padSize(len);
    if (mDataPos > mData.size() || mData.size() - mDataPos < len) return nullptr;
    const uint8_t* at = mData.data() + mDataPos;
    // A trailing item may lack its padding (data set from raw bytes).
    mDataPos += std::min(padded, mData.size() - mDataPos);
    return at;
}

template <typename T>
status_t Parcel::writeAligned(T val) {
    static_assert(sizeof(T) == 4 || sizeof(T) == 8, "parcel items are 4 or 8 bytes");
    uint8_t* at = grow(sizeof(T));
    if (at == nullptr) return NO_MEMORY;
    std::memcpy(at, &val, sizeof(T));
    return OK;
}

// ---- writes ---------------------------------------------------------------

status_t Parcel::write(const void* data, size_t len) {
    uint8_t* at = grow(len);
    if (at == nullptr) return NO_MEMORY;
    if (len > 0) std::memcpy(at, data, len);
    return OK;
}

void* Parcel::writeInplace(size_t len) { return grow(len); }

status_t Parcel::writeInt32(int32_t val) { return writeAligned(val); }
status_t Parcel::writeUint32(uint32_t val) { return writeAligned(val); }
status_t Parcel::writeInt64(int64_t val) { return writeAligned(val); }
status_t Parcel::writeUint64(uint64_t val) { return writeAligned(val); }
status_t Parcel::writeFloat(float val) { return writeAligned(val); }
status_t Parcel::writeDouble(double val) { return writeAligned(val); }
status_t Parcel::writeBool(bool val) { return writeInt32(val ? 1 : 0); }
status_t Parcel::writeByte(int8_t val) { return writeInt32(val); }
status_t Parcel::writeChar(char16_t val) { return writeInt32(static_cast<int32_t>(val)); }

status_t Parcel::writeCString(const char* str) { return write(str, std::strlen(str) + 1); }

status_t Parcel::writeString8(const String8& str) {
    status_t status = writeInt32(static_cast<int32_t>(str.size()));
    if (status != OK) return status;
    return write(str.string(), str.size() + 1);
}

status_t Parcel::writeString16(const String16& str) { return writeString16(str.string(), str.size()); }

status_t Parcel::writeString16(const char16_t* str, size_t len) {
    if (str == nullptr) return writeInt32(-1);
    if (len >= INT32_MAX / sizeof(char16_t)) return BAD_VALUE;
    status_t status = writeInt32(static_cast<int32_t>(len));
    if (status != OK) return status;
    const size_t bytes = len * sizeof(char16_t);
    uint8_t* at = grow(bytes + sizeof(char16_t));
    if (at == nullptr) return NO_MEMORY;
    std::memcpy(at, str, bytes);
    std::memset(at + bytes, 0, sizeof(char16_t));
    return OK;
}

status_t Parcel::writeUtf8AsUtf16(const std::string& str) {
    const String16 utf16(str.data(), str.size());
    return writeString16(utf16);
}

namespace {

template <typename Byte>
status_t writeBytes(Parcel* parcel, const std::vector<Byte>& val) {
    if (val.size() > INT32_MAX) return BAD_VALUE;
    status_t status = parcel->writeInt32(static_cast<int32_t>(val.size()));
    if (status != OK) return status;
    return parcel->write(val.data(), val.size());
}

}  // namespace

status_t Parcel::writeByteVector(const std::vector<int8_t>& val) { return writeBytes(this, val); }
status_t Parcel::writeByteVector(const std::vector<uint8_t>& val) { return writeBytes(this, val); }

template <typename T>
status_t Parcel::writeTypedVector(const std::vector<T>& val, status_t (Parcel::*writeOne)(T)) {
    if (val.size() > INT32_MAX) return BAD_VALUE;
    status_t status = writeInt32(static_cast<int32_t>(val.size()));
    for (size_t i = 0; status == OK && i < val.size(); ++i) status = (this->*writeOne)(val[i]);
    return status;
}

status_t Parcel::writeInt32Vector(const std::vector<int32_t>& val) {
    return writeTypedVector(val, &Parcel::writeInt32);
}

status_t Parcel::writeInt64Vector(const std::vector<int64_t>& val) {
    return writeTypedVector(val, &Parcel::writeInt64);
}

status_t Parcel::writeString16Vector(const std::vector<String16>& val) {
    if (val.size() > INT32_MAX) return BAD_VALUE;
    status_t status = writeInt32(static_cast<int32_t>(val.size()));
    for (size_t i = 0; status == OK && i < val.size(); ++i) status = writeString16(val[i]);
    return status;
}

status_t Parcel::writeUtf8VectorAsUtf16Vector(const std::vector<std::string>& val) {
    if (val.size() > INT32_MAX) return BAD_VALUE;
    status_t status = writeInt32(static_cast<int32_t>(val.size()));
    for (size_t i = 0; status == OK && i < val.size(); ++i) status = writeUtf8AsUtf16(val[i]);
    return status;
}

status_t Parcel::writeStrongBinder(const sp<IBinder>& val) {
    if (val == nullptr) {
        status_t status = writeInt32(kNullBinderMarker);
        return status == OK ? writeInt32(0) : status;
    }
    if (mObjects.size() >= INT32_MAX) return NO_MEMORY;
    status_t status = writeInt32(kBinderMarker);
    if (status == OK) status = writeInt32(static_cast<int32_t>(mObjects.size()));
    if (status == OK) mObjects.push_back(val);
    return status;
}

status_t Parcel::writeStrongBinderVector(const std::vector<sp<IBinder>>& val) {
    if (val.size() > INT32_MAX) return BAD_VALUE;
    status_t status = writeInt32(static_cast<int32_t>(val.size()));
    for (size_t i = 0; status == OK && i < val.size(); ++i) status = writeStrongBinder(val[i]);
    return status;
}

status_t Parcel::writeFileDescriptor(int fd, bool takeOwnership) {
    if (fd < 0) return BAD_VALUE;
    if (mFds.size() >= INT32_MAX) return NO_MEMORY;
    status_t status = writeInt32(kFdMarker);
    if (status == OK) status = writeInt32(static_cast<int32_t>(mFds.size()));
    if (status == OK) mFds.push_back(FileDescriptor{fd, takeOwnership});
    return status;
}

status_t Parcel::writeDupFileDescriptor(int fd) {
    const int dup = fcntl(fd, F_DUPFD_CLOEXEC, 0);
    if (dup < 0) return -errno;
    const status_t status = writeFileDescriptor(dup, true);
    if (status != OK) close(dup);
    return status;
}

status_t Parcel::writeUniqueFileDescriptor(const base::unique_fd& fd) { return writeDupFileDescriptor(fd.get()); }

status_t Parcel::writeUniqueFileDescriptorVector(const std::vector<base::unique_fd>& val) {
    if (val.size() > INT32_MAX) return BAD_VALUE;
    status_t status = writeInt32(static_cast<int32_t>(val.size()));
    for (size_t i = 0; status == OK && i < val.size(); ++i) status = writeUniqueFileDescriptor(val[i]);
    return status;
}

status_t Parcel::writeParcelable(const Parcelable& parcelable) {
    status_t status = writeInt32(1);  // not null
    if (status != OK) return status;
    return parcelable.writeToParcel(this);
}

status_t Parcel::writeNoException() { return binder::Status::ok().writeToParcel(this); }

status_t Parcel::writeInterfaceToken(const String16& interface) {
    status_t status = writeInt32(kStrictModeHeader);
    if (status != OK) return status;
    return writeString16(interface);
}

}  // namespace android
