#include <binder/Parcel.h>

#include <fcntl.h>
#include <unistd.h>

#include <climits>
#include <cstring>

#include <binder/Status.h>

namespace android {

namespace {

// What the parcel's bytes hold where a binder was written: a marker, then
// the index of the object in the parcel's object table.
constexpr int32_t kBinderMarker = 0x5A424F4A;  // "ZBOJ"
constexpr int32_t kNullBinderMarker = 0x5A424E55;  // "ZBNU"
// Where a file descriptor was written: the marker, then its index.
constexpr int32_t kFdMarker = 0x5A424644;  // "ZBFD"
// Strict-mode header that precedes an interface token (penalty-gather bit).
constexpr int32_t kStrictModeHeader = static_cast<int32_t>(1u << 31);
// Largest parcel, as libbinder: offsets are 32-bit.
constexpr size_t kMaxParcelSize = INT32_MAX;

constexpr size_t padSize(size_t len) { return (len + 3) & ~static_cast<size_t>(3); }

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

template <typename T>
status_t Parcel::readAligned(T* pArg) const {
    const uint8_t* at = consume(sizeof(T));
    if (at == nullptr) return NOT_ENOUGH_DATA;
    std::memcpy(pArg, at, sizeof(T));
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
