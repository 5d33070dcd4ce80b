#include <fcntl.h>
#include <unistd.h>

#include <binder/Binder.h>
#include <binder/Parcel.h>
#include <gtest/gtest.h>

#include <cstring>
#include <tuple>

using android::BAD_TYPE;
using android::BBinder;
using android::IBinder;
using android::NOT_ENOUGH_DATA;
using android::OK;
using android::Parcel;
using android::sp;
using android::String16;
using android::UNEXPECTED_NULL;

namespace {

std::vector<uint8_t> bytesOf(const Parcel& p) { return {p.data(), p.data() + p.dataSize()}; }

Parcel* parcelOf(Parcel* p, const std::vector<uint8_t>& bytes) {
    p->setData(bytes.data(), bytes.size());
    return p;
}

TEST(ZelParcelTest, TypedValuesRoundTripInLibbinderLayout) {
    Parcel p;
    for (const android::status_t written :
         {p.writeInt32(-2), p.writeUint32(0xDEADBEEF), p.writeInt64(-3), p.writeBool(true), p.writeByte(-1),
          p.writeDouble(0.5), p.writeString16(String16("ab")), p.writeUtf8AsUtf16("zeld"),
          p.writeByteVector(std::vector<uint8_t>{1, 2, 3}), p.writeInt32Vector({7, 8})}) {
        ASSERT_EQ(written, OK);
    }

    p.setDataPosition(0);
    EXPECT_EQ(p.readInt32(), -2);
    EXPECT_EQ(p.readUint32(), 0xDEADBEEFu);
    EXPECT_EQ(p.readInt64(), -3);
    EXPECT_TRUE(p.readBool());
    int8_t byte = 0;
    double d = 0;
    std::string utf8;
    std::vector<uint8_t> bytes;
    std::vector<int32_t> ints;
    ASSERT_EQ(p.readByte(&byte), OK);
    ASSERT_EQ(p.readDouble(&d), OK);
    EXPECT_EQ(p.readString16(), String16("ab"));
    ASSERT_EQ(p.readUtf8FromUtf16(&utf8), OK);
    ASSERT_EQ(p.readByteVector(&bytes), OK);
    ASSERT_EQ(p.readInt32Vector(&ints), OK);
    EXPECT_EQ(std::tie(byte, d, utf8, bytes, ints),
              std::make_tuple(int8_t{-1}, 0.5, std::string("zeld"), std::vector<uint8_t>{1, 2, 3}, std::vector<int32_t>{7, 8}));
    EXPECT_EQ(p.dataAvail(), 0u);

    // Every item is padded to 4 bytes; strings are UTF-16 with a terminator.
    Parcel layout;
    layout.writeByte(1);
    layout.writeString16(String16("ab"));
    layout.writeByteVector(std::vector<uint8_t>{9});
    EXPECT_EQ(bytesOf(layout), (std::vector<uint8_t>{1, 0, 0, 0, 2, 0, 0, 0, 'a', 0, 'b', 0, 0, 0, 0, 0,
                                                     1, 0, 0, 0, 9, 0, 0, 0}));
}

TEST(ZelParcelTest, ReadsPastTheEndFailAndLeaveEverythingAsItWas) {
    Parcel p;
    p.writeInt32(5);
    p.setDataPosition(0);
    int64_t wide = 77;
    EXPECT_EQ(p.readInt64(&wide), NOT_ENOUGH_DATA);
    EXPECT_EQ(wide, 77);
    EXPECT_EQ(p.dataPosition(), 0u);
    EXPECT_EQ(p.readInt32(), 5);
    int32_t narrow = 9;
    EXPECT_EQ(p.readInt32(&narrow), NOT_ENOUGH_DATA);
    EXPECT_EQ(narrow, 9);

    // A position set beyond the data reads nothing.
    p.setDataPosition(1000);
    EXPECT_EQ(p.readInt32(&narrow), NOT_ENOUGH_DATA);
    char raw[4];
    EXPECT_EQ(p.read(raw, sizeof(raw)), NOT_ENOUGH_DATA);
    EXPECT_EQ(p.readInplace(4), nullptr);
}

TEST(ZelParcelTest, LengthPrefixedValuesRefuseLengthsTheDataCannotHold) {
    Parcel p;
    std::vector<uint8_t> bytes{4};
    // Byte vector: null (-1), longer than the data, absurdly long.
    EXPECT_EQ(parcelOf(&p, {0xFF, 0xFF, 0xFF, 0xFF})->readByteVector(&bytes), UNEXPECTED_NULL);
    EXPECT_EQ(parcelOf(&p, {8, 0, 0, 0, 1, 2, 3, 4})->readByteVector(&bytes), NOT_ENOUGH_DATA);
    EXPECT_EQ(parcelOf(&p, {0xFF, 0xFF, 0xFF, 0x7F})->readByteVector(&bytes), NOT_ENOUGH_DATA);
    EXPECT_EQ(bytes, std::vector<uint8_t>{4});
    EXPECT_EQ(p.dataPosition(), 0u);
    std::vector<int32_t> ints;
    EXPECT_EQ(parcelOf(&p, {0xFF, 0xFF, 0xFF, 0x7F})->readInt32Vector(&ints), NOT_ENOUGH_DATA);

    // String16: null, unterminated, length beyond the data.
    String16 s("keep");
    EXPECT_EQ(parcelOf(&p, {0xFF, 0xFF, 0xFF, 0xFF})->readString16(&s), UNEXPECTED_NULL);
    EXPECT_NE(parcelOf(&p, {1, 0, 0, 0, 'a', 0, 'b', 0})->readString16(&s), OK);
    EXPECT_NE(parcelOf(&p, {9, 0, 0, 0, 'a', 0, 0, 0})->readString16(&s), OK);
    EXPECT_EQ(s, String16("keep"));
}

TEST(ZelParcelTest, InterfaceTokensMatchOnlyTheirDescriptor) {
    Parcel p;
    ASSERT_EQ(p.writeInterfaceToken(String16("com.ostrel.zeld.IFoo")), OK);
    for (const char* descriptor : {"com.ostrel.zeld.IFoo", "com.ostrel.zeld.IFo", "com.ostrel.zeld.IFooo"}) {
        p.setDataPosition(0);
        EXPECT_EQ(p.enforceInterface(String16(descriptor)), std::strcmp(descriptor, "com.ostrel.zeld.IFoo") == 0);
    }
    EXPECT_FALSE(Parcel().enforceInterface(String16("com.ostrel.zeld.IFoo")));
}

TEST(ZelParcelTest, BindersComeBackAsTheSameObject) {
    sp<IBinder> object = new BBinder();
    Parcel p;
    ASSERT_EQ(p.writeStrongBinder(object), OK);
    ASSERT_EQ(p.writeStrongBinder(nullptr), OK);
    ASSERT_EQ(p.writeStrongBinder(object), OK);
    EXPECT_EQ(p.objectsCount(), 2u);
    p.setDataPosition(0);
    sp<IBinder> first;
    sp<IBinder> null = object;
    ASSERT_EQ(p.readStrongBinder(&first), OK);
    EXPECT_EQ(first, object);
    ASSERT_EQ(p.readNullableStrongBinder(&null), OK);
    EXPECT_EQ(null, nullptr);
    EXPECT_EQ(p.readStrongBinder(), object);

    // A null binder where one is required; an index the table does not hold.
    p.setDataPosition(8);
    sp<IBinder> required;
    EXPECT_EQ(p.readStrongBinder(&required), UNEXPECTED_NULL);
    Parcel forged;
    forged.writeInt32(0x5A424F4A);
    forged.writeInt32(3);
    forged.setDataPosition(0);
    EXPECT_EQ(forged.readNullableStrongBinder(&required), BAD_TYPE);
    EXPECT_EQ(forged.dataPosition(), 0u);

    // Raw bytes carry no objects.
    Parcel copy;
    copy.setData(p.data(), p.dataSize());
    EXPECT_EQ(copy.objectsCount(), 0u);
    EXPECT_EQ(copy.readNullableStrongBinder(&required), BAD_TYPE);
}

TEST(ZelParcelTest, AParcelClosesTheDescriptorsItOwnsAndNoOthers) {
    auto isOpen = [](int fd) { return fcntl(fd, F_GETFD) >= 0; };
    int borrowed = open("/dev/null", O_RDONLY | O_CLOEXEC);
    int taken = open("/dev/null", O_RDONLY | O_CLOEXEC);
    int dup = -1;
    android::base::unique_fd mine;
    {
        Parcel p;
        ASSERT_EQ(p.writeFileDescriptor(borrowed), OK);
        ASSERT_EQ(p.writeDupFileDescriptor(borrowed), OK);
        ASSERT_EQ(p.writeFileDescriptor(taken, true), OK);
        ASSERT_EQ(p.writeInt32(7), OK);
        EXPECT_TRUE(p.hasFileDescriptors());
        p.setDataPosition(0);
        EXPECT_EQ(p.readFileDescriptor(), borrowed);
        dup = p.readFileDescriptor();
        EXPECT_NE(dup, borrowed);
        ASSERT_EQ(p.readUniqueFileDescriptor(&mine), OK);  // a dup of its own
        EXPECT_NE(mine.get(), taken);
        EXPECT_EQ(p.readFileDescriptor(), BAD_TYPE);  // an int32 is no descriptor
        EXPECT_EQ(p.dataPosition(), 24u);
        EXPECT_TRUE(isOpen(dup) && isOpen(taken));

        // Raw bytes carry no descriptors.
        Parcel copy;
        copy.setData(p.data(), p.dataSize());
        EXPECT_FALSE(copy.hasFileDescriptors());
        EXPECT_EQ(copy.readFileDescriptor(), BAD_TYPE);
    }
    EXPECT_FALSE(isOpen(dup) || isOpen(taken));
    EXPECT_TRUE(isOpen(borrowed) && isOpen(mine.get()));
    close(borrowed);
}

}  // namespace
