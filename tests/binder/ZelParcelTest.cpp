#include <binder/Parcel.h>
#include <gtest/gtest.h>

#include <tuple>

using android::NOT_ENOUGH_DATA;
using android::OK;
using android::Parcel;
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
    // Braced lists run their elements in order.
    EXPECT_EQ((std::tuple<int32_t, uint32_t, int64_t, bool>{p.readInt32(), p.readUint32(), p.readInt64(), p.readBool()}),
              std::make_tuple(-2, 0xDEADBEEFu, int64_t{-3}, true));
    int8_t byte = 0;
    double d = 0;
    std::string utf8;
    std::vector<uint8_t> bytes;
    std::vector<int32_t> ints;
    String16 s;
    for (const android::status_t read : {p.readByte(&byte), p.readDouble(&d), p.readString16(&s), p.readUtf8FromUtf16(&utf8),
                                         p.readByteVector(&bytes), p.readInt32Vector(&ints)}) {
        ASSERT_EQ(read, OK);
    }
    EXPECT_EQ(std::tie(byte, d, s, utf8, bytes, ints), std::make_tuple(int8_t{-1}, 0.5, String16("ab"), std::string("zeld"),
                                                                      std::vector<uint8_t>{1, 2, 3}, std::vector<int32_t>{7, 8}));
    EXPECT_EQ(p.dataAvail(), 0u);

    // Every item is padded to 4 bytes; strings are UTF-16 with a terminator.
    Parcel layout;
    layout.writeByte(-1);  // sign-extended, as an int32
    layout.writeString16(String16("ab"));
    layout.writeByteVector(std::vector<uint8_t>{9});
    EXPECT_EQ(bytesOf(layout), (std::vector<uint8_t>{0xff, 0xff, 0xff, 0xff, 2, 0, 0, 0, 'a', 0, 'b', 0, 0, 0, 0, 0,
                                                     1, 0, 0, 0, 9, 0, 0, 0}));
}

// A read the data cannot satisfy fails and leaves the position and its output as they were.
TEST(ZelParcelTest, ReadsTheDataCannotSatisfyFailAndChangeNothing) {
    Parcel p;
    int64_t wide = 77;
    EXPECT_EQ(parcelOf(&p, {5, 0, 0, 0})->readInt64(&wide), NOT_ENOUGH_DATA);
    EXPECT_EQ(wide, 77);
    EXPECT_EQ(p.readInt32(), 5);
    int32_t narrow = 9;
    EXPECT_EQ(p.readInt32(&narrow), NOT_ENOUGH_DATA);
    p.setDataPosition(1000);  // a position beyond the data reads nothing
    char raw[4];
    EXPECT_EQ(p.readInt32(&narrow), NOT_ENOUGH_DATA);
    EXPECT_EQ(p.read(raw, sizeof(raw)), NOT_ENOUGH_DATA);
    EXPECT_EQ(p.readInplace(4), nullptr);
    EXPECT_EQ(narrow, 9);

    // Length prefixes: null (-1), longer than the data, absurdly long.
    const std::vector<uint8_t> null{0xFF, 0xFF, 0xFF, 0xFF}, huge{0xFF, 0xFF, 0xFF, 0x7F};
    std::vector<uint8_t> bytes{4};
    std::vector<int32_t> ints{4};
    EXPECT_EQ(parcelOf(&p, null)->readByteVector(&bytes), UNEXPECTED_NULL);
    EXPECT_EQ(parcelOf(&p, {8, 0, 0, 0, 1, 2, 3, 4})->readByteVector(&bytes), NOT_ENOUGH_DATA);
    EXPECT_EQ(parcelOf(&p, huge)->readByteVector(&bytes), NOT_ENOUGH_DATA);
    EXPECT_EQ(parcelOf(&p, huge)->readInt32Vector(&ints), NOT_ENOUGH_DATA);
    EXPECT_EQ(std::tie(bytes, ints), std::make_tuple(std::vector<uint8_t>{4}, std::vector<int32_t>{4}));
    EXPECT_EQ(p.dataPosition(), 0u);
    String16 s("keep");  // null, unterminated, length beyond the data
    EXPECT_EQ(parcelOf(&p, null)->readString16(&s), UNEXPECTED_NULL);
    EXPECT_NE(parcelOf(&p, {1, 0, 0, 0, 'a', 0, 'b', 0})->readString16(&s), OK);
    EXPECT_NE(parcelOf(&p, {9, 0, 0, 0, 'a', 0, 0, 0})->readString16(&s), OK);
    EXPECT_EQ(s, String16("keep"));
}

}  // namespace
