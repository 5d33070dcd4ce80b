// The frame format is frozen: these bytes must not change without a new
// version number in zel/binder/ZelWireFrame.h.
#include <gtest/gtest.h>

#include <functional>
#include <tuple>

#include "zel/binder/ZelWireFrame.h"

using android::BAD_VALUE;
using android::FAILED_TRANSACTION;
using android::OK;
using namespace zel::binder;

namespace {

std::vector<uint8_t> encoded(const ZelFrame& frame) {
    std::vector<uint8_t> bytes;
    EXPECT_EQ(encodeZelFrame(frame, &bytes), OK);
    return bytes;
}

ZelFrame hello() {
    ZelFrame f;
    f.type = ZelFrameType::HELLO;
    f.payload = {'1', '2', '-', 'a', 'b'};
    return f;
}

ZelFrame onewayTransaction() {
    ZelFrame f;
    f.type = ZelFrameType::TRANSACTION;
    f.code = 3;
    f.flags = kZelFlagOneway;
    f.handle = 7;
    f.payload = {1, 2, 3, 4};
    f.objects = {ZelObjectRef{"9-ff", 3}};
    return f;
}

ZelFrame release() {
    ZelFrame f;
    f.type = ZelFrameType::REFS;
    f.code = static_cast<uint32_t>(-1);
    f.flags = 2;
    f.handle = 5;
    return f;
}

TEST(ZelWireFrameTest, GoldenBytes) {
    EXPECT_EQ(encoded(hello()), (std::vector<uint8_t>{
            0x5A, 0x42, 0x42, 0x46, 1, 0, 1, 0, 5, 0, 0, 0, 0, 0, 0, 0,
            0, 0, 0, 0, 0, 0, 0, 0, 5, 0, 0, 0, 0, 0, 0, 0,
            '1', '2', '-', 'a', 'b'}));
    EXPECT_EQ(encoded(onewayTransaction()), (std::vector<uint8_t>{
            0x5A, 0x42, 0x42, 0x46, 1, 0, 2, 0, 13, 0, 0, 0, 3, 0, 0, 0,
            1, 0, 0, 0, 7, 0, 0, 0, 4, 0, 0, 0, 1, 0, 0, 0,
            1, 2, 3, 4, 3, 0, 0, 0, 4, '9', '-', 'f', 'f'}));
    EXPECT_EQ(encoded(release()), (std::vector<uint8_t>{
            0x5A, 0x42, 0x42, 0x46, 1, 0, 4, 0, 0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF,
            2, 0, 0, 0, 5, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST(ZelWireFrameTest, DecodingGivesBackWhatWasEncoded) {
    ZelFrame reply;
    reply.type = ZelFrameType::REPLY;
    reply.code = static_cast<uint32_t>(android::DEAD_OBJECT);
    reply.payload.assign(kZelMaxPayload, 0x33);
    for (const ZelFrame& frame : {hello(), onewayTransaction(), release(), reply}) {
        const std::vector<uint8_t> bytes = encoded(frame);
        ZelFrame decoded;
        ASSERT_EQ(decodeZelFrame(bytes.data(), bytes.size(), &decoded), OK);
        EXPECT_EQ(std::tie(decoded.type, decoded.code, decoded.flags, decoded.handle, decoded.payload, decoded.objects),
                  std::tie(frame.type, frame.code, frame.flags, frame.handle, frame.payload, frame.objects));
    }
}

TEST(ZelWireFrameTest, EncodingRefusesFramesBeyondTheLimits) {
    ZelFrame big = onewayTransaction(), crowded = big, badName = big;
    big.payload.assign(kZelMaxPayload + 1, 0);
    crowded.objects.assign(kZelMaxObjects + 1, ZelObjectRef{"1-a", 1});
    badName.objects = {ZelObjectRef{"../x", 1}};
    std::vector<uint8_t> bytes;
    EXPECT_EQ(encodeZelFrame(big, &bytes), FAILED_TRANSACTION);
    EXPECT_EQ(encodeZelFrame(crowded, &bytes), BAD_VALUE);
    EXPECT_EQ(encodeZelFrame(badName, &bytes), BAD_VALUE);
    EXPECT_TRUE(bytes.empty());
}

// Each mutation of a valid frame must be refused.
TEST(ZelWireFrameTest, DecodingRefusesEveryBrokenRule) {
    struct Case {
        const char* what;
        ZelFrame frame;
        std::function<void(std::vector<uint8_t>&)> breakIt;
    };
    auto setU32 = [](std::vector<uint8_t>& b, size_t at, uint32_t v) {
        for (int i = 0; i < 4; ++i) b[at + i] = static_cast<uint8_t>(v >> (8 * i));
    };
    const std::vector<Case> cases = {
            {"magic", hello(), [](auto& b) { b[0] ^= 1; }},
            {"version", hello(), [](auto& b) { b[4] = 2; }},
            {"type 0", hello(), [](auto& b) { b[6] = 0; }},
            {"type 5", hello(), [](auto& b) { b[6] = 5; }},
            {"body longer than said", hello(), [](auto& b) { b.push_back(0); }},
            {"body shorter than said", hello(), [](auto& b) { b.pop_back(); }},
            {"payload beyond body", hello(), [&](auto& b) { setU32(b, 24, 6); }},
            {"payload beyond limit", onewayTransaction(), [&](auto& b) { setU32(b, 24, kZelMaxPayload + 1); }},
            {"too many objects", onewayTransaction(), [&](auto& b) { setU32(b, 28, kZelMaxObjects + 1); }},
            {"object cut short", onewayTransaction(), [&](auto& b) { setU32(b, 28, 2); }},
            {"empty endpoint", onewayTransaction(), [](auto& b) { b[36 + 4] = 0; }},
            {"endpoint past body", onewayTransaction(), [](auto& b) { b[36 + 4] = 9; }},
            {"endpoint character", onewayTransaction(), [](auto& b) { b[36 + 5] = '/'; }},
            {"unknown transaction flag", onewayTransaction(), [&](auto& b) { setU32(b, 16, 2); }},
            {"hello with a code", hello(), [&](auto& b) { setU32(b, 12, 1); }},
            {"refs delta 2", release(), [&](auto& b) { setU32(b, 12, 2); }},
            {"reply with a handle", [] { ZelFrame f; f.type = ZelFrameType::REPLY; return f; }(),
             [&](auto& b) { setU32(b, 20, 1); }},
    };
    for (const Case& c : cases) {
        std::vector<uint8_t> bytes = encoded(c.frame);
        c.breakIt(bytes);
        ZelFrame decoded;
        decoded.code = 12345;
        EXPECT_EQ(decodeZelFrame(bytes.data(), bytes.size(), &decoded), BAD_VALUE) << c.what;
        EXPECT_EQ(decoded.code, 12345u) << c.what;  // nothing filled in
    }
    ZelFrame decoded;
    EXPECT_EQ(decodeZelFrame(nullptr, 0, &decoded), BAD_VALUE);
}

}  // namespace
