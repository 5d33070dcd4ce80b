#pragma once

#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

#include <android-base/unique_fd.h>
#include <binder/IBinder.h>
#include <binder/Parcelable.h>
#include <utils/Errors.h>
#include <utils/String16.h>
#include <utils/String8.h>
#include <utils/StrongPointer.h>

namespace zel::binder {
class ZelParcelFrames;
}

namespace android {

class IPCThreadState;

// A container of flattened values, laid out as libbinder lays them out:
// little-endian, every item padded to 4 bytes, strings as UTF-16 with a
// length prefix, byte vectors with a length prefix (-1 for null).
//
// Binder objects are not flattened into the bytes: the parcel keeps them in
// an object table and the bytes hold an index into it, so a binder written
// into a parcel comes back as the same object. File descriptors are kept
// the same way; they travel to another process as descriptors of their own.
// A parcel closes the descriptors it owns (those it was asked to take or
// made a dup of, and all it received from another process) when it is
// destroyed or its data is freed or replaced; the others stay the writer's.
//
// Every read checks bounds: a read past the end fails with NOT_ENOUGH_DATA
// (or BAD_VALUE for an impossible length) and leaves the output untouched.
class Parcel {
public:
    Parcel();
    ~Parcel();
    Parcel(const Parcel&) = delete;
    Parcel& operator=(const Parcel&) = delete;

    const uint8_t* data() const;
    size_t dataSize() const;
    size_t dataAvail() const;
    size_t dataPosition() const;
    size_t dataCapacity() const;

    status_t setDataSize(size_t size);
    // Positions past the end are allowed; reads there fail.
    void setDataPosition(size_t pos) const;
    status_t setDataCapacity(size_t size);
    // Replaces the content with a copy of `buffer`, position 0, no objects.
    status_t setData(const uint8_t* buffer, size_t len);
    void freeData();

    // Number of binder objects held.
    size_t objectsCount() const;
    bool hasFileDescriptors() const { return !mFds.empty(); }
    status_t errorCheck() const { return OK; }

    // Writes the strict-mode header and the descriptor.
    status_t writeInterfaceToken(const String16& interface);
    // True when the next token names `binder`'s interface (consumes it).
    bool checkInterface(IBinder* binder) const;
    bool enforceInterface(const String16& interface, IPCThreadState* threadState = nullptr) const;

    status_t write(const void* data, size_t len);
    void* writeInplace(size_t len);
    status_t writeInt32(int32_t val);
    status_t writeUint32(uint32_t val);
    status_t writeInt64(int64_t val);
    status_t writeUint64(uint64_t val);
    status_t writeFloat(float val);
    status_t writeDouble(double val);
    status_t writeBool(bool val);
    status_t writeByte(int8_t val);
    status_t writeChar(char16_t val);
    status_t writeCString(const char* str);
    status_t writeString8(const String8& str);
    status_t writeString16(const String16& str);
    status_t writeString16(const char16_t* str, size_t len);
    status_t writeUtf8AsUtf16(const std::string& str);
    status_t writeByteVector(const std::vector<int8_t>& val);
    status_t writeByteVector(const std::vector<uint8_t>& val);
    status_t writeInt32Vector(const std::vector<int32_t>& val);
    status_t writeInt64Vector(const std::vector<int64_t>& val);
    status_t writeString16Vector(const std::vector<String16>& val);
    status_t writeUtf8VectorAsUtf16Vector(const std::vector<std::string>& val);
    status_t writeStrongBinder(const sp<IBinder>& val);
    status_t writeStrongBinderVector(const std::vector<sp<IBinder>>& val);
    // `fd` must stay valid while the parcel lives, unless it takes ownership.
    status_t writeFileDescriptor(int fd, bool takeOwnership = false);
    // Writes a dup of `fd`, closed with the parcel.
    status_t writeDupFileDescriptor(int fd);
    status_t writeUniqueFileDescriptor(const base::unique_fd& fd);
    status_t writeUniqueFileDescriptorVector(const std::vector<base::unique_fd>& val);
    // A non-null parcelable: int32 1, then the parcelable's own fields.
    status_t writeParcelable(const Parcelable& parcelable);
    status_t writeNoException();

    status_t read(void* outData, size_t len) const;
    const void* readInplace(size_t len) const;
    status_t readInt32(int32_t* pArg) const;
    int32_t readInt32() const;
    status_t readUint32(uint32_t* pArg) const;
    uint32_t readUint32() const;
    status_t readInt64(int64_t* pArg) const;
    int64_t readInt64() const;
    status_t readUint64(uint64_t* pArg) const;
    uint64_t readUint64() const;
    status_t readFloat(float* pArg) const;
    status_t readDouble(double* pArg) const;
    status_t readBool(bool* pArg) const;
    bool readBool() const;
    status_t readByte(int8_t* pArg) const;
    status_t readChar(char16_t* pArg) const;
    const char* readCString() const;
    status_t readString8(String8* pArg) const;
    String8 readString8() const;
    status_t readString16(String16* pArg) const;
    String16 readString16() const;
    // Returns null for a null string; *outLen gets the length in units.
    const char16_t* readString16Inplace(size_t* outLen) const;
    status_t readUtf8FromUtf16(std::string* str) const;
    status_t readByteVector(std::vector<int8_t>* val) const;
    status_t readByteVector(std::vector<uint8_t>* val) const;
    status_t readInt32Vector(std::vector<int32_t>* val) const;
    status_t readInt64Vector(std::vector<int64_t>* val) const;
    status_t readString16Vector(std::vector<String16>* val) const;
    status_t readUtf8VectorFromUtf16Vector(std::vector<std::string>* val) const;
    // A null binder is UNEXPECTED_NULL here, OK from the nullable form.
    status_t readStrongBinder(sp<IBinder>* val) const;
    status_t readNullableStrongBinder(sp<IBinder>* val) const;
    sp<IBinder> readStrongBinder() const;
    status_t readStrongBinderVector(std::vector<sp<IBinder>>* val) const;
    template <typename T>
    status_t readStrongBinder(sp<T>* val) const;
    template <typename T>
    status_t readNullableStrongBinder(sp<T>* val) const;
    status_t readParcelable(Parcelable* parcelable) const;
    // The descriptor as the parcel holds it, still the parcel's (dup it to
    // keep it); BAD_TYPE when none is next.
    int readFileDescriptor() const;
    // A dup of the next descriptor, the caller's own.
    status_t readUniqueFileDescriptor(base::unique_fd* val) const;
    status_t readUniqueFileDescriptorVector(std::vector<base::unique_fd>* val) const;
    // Reads an exception header written by writeNoException / Status.
    int32_t readExceptionCode() const;

private:
    friend class ::zel::binder::ZelParcelFrames;

    // Room for `len` bytes padded to 4 at the position; null when too large.
    uint8_t* grow(size_t len);
    // Pointer to `len` readable bytes (padded length consumed); null and
    // position unchanged when fewer remain.
    const uint8_t* consume(size_t len) const;
    template <typename T>
    status_t writeAligned(T val);
    template <typename T>
    status_t readAligned(T* pArg) const;
    template <typename T>
    status_t writeTypedVector(const std::vector<T>& val, status_t (Parcel::*write)(T));
    template <typename T>
    status_t readTypedVector(std::vector<T>* val, status_t (Parcel::*read)(T*) const) const;

    // Closes the owned descriptors and forgets all of them.
    void releaseFds();

    struct FileDescriptor {
        int fd;
        bool owned;
    };

    std::vector<uint8_t> mData;
    mutable size_t mDataPos = 0;
    std::vector<sp<IBinder>> mObjects;
    std::vector<FileDescriptor> mFds;
};

}  // namespace android

#include <binder/IInterface.h>

namespace android {

template <typename T>
status_t Parcel::readStrongBinder(sp<T>* val) const {
    sp<IBinder> tmp;
    status_t ret = readStrongBinder(&tmp);
    if (ret == OK) {
        *val = interface_cast<T>(tmp);
        if (val->get() == nullptr) return UNKNOWN_ERROR;
    }
    return ret;
}

template <typename T>
status_t Parcel::readNullableStrongBinder(sp<T>* val) const {
    sp<IBinder> tmp;
    status_t ret = readNullableStrongBinder(&tmp);
    if (ret == OK) {
        *val = interface_cast<T>(tmp);
        if (val->get() == nullptr && tmp.get() != nullptr) ret = UNKNOWN_ERROR;
    }
    return ret;
}

}  // namespace android
