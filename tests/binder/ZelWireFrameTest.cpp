// The frame format is frozen: these bytes must not change without a new
// version number in zel/binder/ZelWireFrame.h.
#include <fcntl.h>
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

ZelFrame frame(ZelFrameType type, uint32_t code, uint32_t flags, uint32_t handle, std::vector<uint8_t> payload,
               std::vector<ZelObjectRef> objects = {}, size_t fds = 0) {
    ZelFrame f;
    std::tie(f.type, f.code, f.flags, f.handle, f.payload, f.objects) =
            std::tie(type, code, flags, handle, payload, objects);
    for (size_t i = 0; i < fds; ++i) f.fds.emplace_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
    return f;
}
ZelFrame hello() { return frame(ZelFrameType::HELLO, 0, 0, 0, {'1', '2', '-', 'a', 'b'}); }
ZelFrame onewayTransaction() { return frame(ZelFrameType::TRANSACTION, 3, kZelFlagOneway, 7, {1, 2, 3, 4}, {{"9-ff", 3}}); }
ZelFrame release() { return frame(ZelFrameType::REFS, static_cast<uint32_t>(-1), 2, 5, {}); }
ZelFrame replyWithFds() { return frame(ZelFrameType::REPLY, 0, 0, 0, {}, {}, 2); }

void setU32(std::vector<uint8_t>& b, size_t at, uint32_t v) {
    for (int i = 0; i < 4; ++i) b[at + i] = static_cast<uint8_t>(v >> (8 * i));
}

TEST(ZelWireFrameTest, GoldenBytes) {
    EXPECT_EQ(encoded(hello()), (std::vector<uint8_t>{
            0x5A, 0x42, 0x42, 0x46, 2, 0, 1, 0, 5, 0, 0, 0, 0, 0, 0, 0,
            0, 0, 0, 0, 0, 0, 0, 0, 5, 0, 0, 0, 0, 0, 0, 0,
            '1', '2', '-', 'a', 'b'}));
    EXPECT_EQ(encoded(onewayTransaction()), (std::vector<uint8_t>{
            0x5A, 0x42, 0x42, 0x46, 2, 0, 2, 0, 13, 0, 0, 0, 3, 0, 0, 0,
            1, 0, 0, 0, 7, 0, 0, 0, 4, 0, 0, 0, 1, 0, 0, 0,
            1, 2, 3, 4, 3, 0, 0, 0, 4, '9', '-', 'f', 'f'}));
    EXPECT_EQ(encoded(release()), (std::vector<uint8_t>{
            0x5A, 0x42, 0x42, 0x46, 2, 0, 4, 0, 0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF,
            2, 0, 0, 0, 5, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(encoded(replyWithFds()), (std::vector<uint8_t>{
            0x5A, 0x42, 0x42, 0x46, 2, 0, 3, 0, 0, 0, 0, 0, 0, 0, 0, 0,
            0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2, 0}));
}

TEST(ZelWireFrameTest, DecodingGivesBackWhatWasEncoded) {
    auto bigReply = [] { return frame(ZelFrameType::REPLY, android::DEAD_OBJECT, 0, 0, std::vector<uint8_t>(kZelMaxPayload, 0x33)); };
    for (const auto& make : std::vector<std::function<ZelFrame()>>{hello, onewayTransaction, release, bigReply}) {
        const ZelFrame f = make();
        const std::vector<uint8_t> bytes = encoded(f);
        ZelFrame decoded;
        ASSERT_EQ(decodeZelFrame(bytes.data(), bytes.size(), &decoded), OK);
        EXPECT_EQ(std::tie(decoded.type, decoded.code, decoded.flags, decoded.handle, decoded.payload, decoded.objects),
                  std::tie(f.type, f.code, f.flags, f.handle, f.payload, f.objects));
    }
}

TEST(ZelWireFrameTest, EncodingRefusesFramesBeyondTheLimits) {
    const std::vector<std::pair<std::function<void(ZelFrame&)>, android::status_t>> cases = {
            {[](ZelFrame& f) { f.payload.assign(kZelMaxPayload + 1, 0); }, FAILED_TRANSACTION},
            {[](ZelFrame& f) { f = frame(f.type, f.code, f.flags, f.handle, f.payload, f.objects, kZelMaxFds + 1); },
             FAILED_TRANSACTION},
            {[](ZelFrame& f) { f.objects.assign(kZelMaxObjects + 1, ZelObjectRef{"1-a", 1}); }, BAD_VALUE},
            {[](ZelFrame& f) { f.objects = {ZelObjectRef{"../x", 1}}; }, BAD_VALUE},
    };
    std::vector<uint8_t> bytes;
    for (const auto& [breakIt, refusal] : cases) {
        ZelFrame f = onewayTransaction();
        breakIt(f);
        EXPECT_EQ(encodeZelFrame(f, &bytes), refusal);
    }
    EXPECT_TRUE(bytes.empty());
}

// Each mutation of a valid frame must be refused.
TEST(ZelWireFrameTest, DecodingRefusesEveryBrokenRule) {
    struct Case {
        const char* what;
        ZelFrame (*make)();
        std::function<void(std::vector<uint8_t>&)> breakIt;
        bool headerValid = false;  // only the frame as a whole is refused
    };
    const std::vector<Case> cases = {
            {"magic", hello, [](auto& b) { b[0] ^= 1; }},
            {"version", hello, [](auto& b) { b[4] = 1; }},
            {"type 0", hello, [](auto& b) { b[6] = 0; }},
            {"type 5", hello, [](auto& b) { b[6] = 5; }},
            {"body longer than said", hello, [](auto& b) { b.push_back(0); }, true},
            {"body shorter than said", hello, [](auto& b) { b.pop_back(); }, true},
            {"payload beyond body", hello, [](auto& b) { setU32(b, 24, 6); }},
            {"payload beyond limit", onewayTransaction, [](auto& b) { setU32(b, 24, kZelMaxPayload + 1); }},
            {"too many objects", onewayTransaction, [](auto& b) { b[28] = 1, b[29] = 1; }},  // 257
            {"object cut short", onewayTransaction, [](auto& b) { b[28] = 2; }},
            {"empty endpoint", onewayTransaction, [](auto& b) { b[36 + 4] = 0; }, true},
            {"endpoint past body", onewayTransaction, [](auto& b) { b[36 + 4] = 9; }, true},
            {"endpoint character", onewayTransaction, [](auto& b) { b[36 + 5] = '/'; }, true},
            {"unknown transaction flag", onewayTransaction, [](auto& b) { setU32(b, 16, 2); }},
            {"hello with a code", hello, [](auto& b) { setU32(b, 12, 1); }},
            {"refs delta 2", release, [](auto& b) { setU32(b, 12, 2); }},
            {"reply with a handle", replyWithFds, [](auto& b) { setU32(b, 20, 1); }},
            {"too many descriptors", onewayTransaction, [](auto& b) { b[30] = kZelMaxFds + 1; }},
            {"hello with descriptors", hello, [](auto& b) { b[30] = 1; }},
            {"refs with descriptors", release, [](auto& b) { b[30] = 1; }},
            {"descriptors with bare bytes", replyWithFds, [](auto&) {}, true},
    };
    for (const Case& c : cases) {
        std::vector<uint8_t> bytes = encoded(c.make());
        c.breakIt(bytes);
        ZelFrameHeader header;
        EXPECT_EQ(decodeZelFrameHeader(bytes.data(), &header) == OK, c.headerValid) << c.what;
        ZelFrame decoded;
        decoded.code = 12345;
        EXPECT_EQ(decodeZelFrame(bytes.data(), bytes.size(), &decoded), BAD_VALUE) << c.what;
        EXPECT_EQ(decoded.code, 12345u) << c.what;  // nothing filled in
    }
    ZelFrame decoded;
    EXPECT_EQ(decodeZelFrame(nullptr, 0, &decoded), BAD_VALUE);
}

}  // namespace
