// Runs the byte cases of cases/ (their form: cases/README.md), one test per
// file, and the parcelables' checks that no byte form shows.
#include <binder/Binder.h>
#include <binder/Parcel.h>
#include <binder/Status.h>
#include <com/ostrel/zeld/interfaces/MessageIdentifier.h>
#include <com/ostrel/zeld/interfaces/ServiceIdentifier.h>
#include <com/ostrel/zeld/interfaces/ZelAsyncParamsBinderParcelable.h>
#include <com/ostrel/zeld/interfaces/ZelCallbackParamsParcelable.h>
#include <com/ostrel/zeld/interfaces/ZelEventParamsParcelable.h>
#include <com/ostrel/zeld/utils/ZelParcelableHelperUtils.h>
#include <com/ostrel/zeld/utils/ZelServiceIdentifierUtils.h>
#include <fcntl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <stdexcept>

#include "ZelScenario.h"
#include "ZelTestFiles.h"
#include "zel/binder/ZelWireFrame.h"

using namespace android;
using namespace com::ostrel::zeld::interfaces;
using namespace zel::binder;
using binder::Status;
using namespace com::ostrel::zeld::utils;

namespace {

const std::map<std::string, status_t> kStatusNames = {
        {"OK", OK}, {"BAD_VALUE", BAD_VALUE}, {"FAILED_TRANSACTION", FAILED_TRANSACTION}, {"DEAD_OBJECT", DEAD_OBJECT},
        {"NOT_ENOUGH_DATA", NOT_ENOUGH_DATA}, {"UNKNOWN_ERROR", UNKNOWN_ERROR}, {"UNEXPECTED_NULL", UNEXPECTED_NULL}};

std::string statusName(status_t status) {
    for (const auto& [name, value] : kStatusNames) if (value == status) return name;
    return std::to_string(status);
}

template <typename... Values>
std::string words(const Values&... values) {
    std::ostringstream text;
    ((text << std::boolalpha << values << ' '), ...);
    return text.str().substr(0, text.str().size() - 1);
}

// A parcelable as words, field by field.
std::string describe(const ServiceIdentifier& p) { return words(p.value); }
std::string describe(const MessageIdentifier& p) { return words(p.value); }
std::string describe(const ZelEventParamsParcelable& p) { return words(p.param1, p.param2); }
std::string describe(const ZelCallbackParamsParcelable& p) { return words(p.token, p.canStart, p.status); }
std::string describe(const ZelAsyncParamsBinderParcelable& p) {
    const ZelTaskContext& c = p.taskContext;
    return words(p.functionId, c.getCompId(), c.getTaskId(), c.token, c.wantsNotify(), c.duration);
}

// Reads `valid` into a new T: "true" or "false", and the value as words. An
// accepted form must convert back to the same bytes, and its every proper
// prefix and extension by up to four zero bytes must be refused and leave a
// new T as it was.
template <typename T>
std::string readAs(const std::vector<uint8_t>& valid, std::string* value) {
    T target;
    std::vector<uint8_t> back;
    const bool accepted = ZelParcelableHelperUtils::convertBytesToParcelable(valid, &target);
    ZelParcelableHelperUtils::convertParcelableToBytes(&target, back);
    *value = describe(target);
    if (!accepted) return "false";
    if (back != valid) return "true, but converts back to " + zelHexText(back);
    for (size_t len = 0; len < valid.size() + 5; len += len + 1 == valid.size() ? 2 : 1) {
        std::vector<uint8_t> bytes(valid.begin(), valid.begin() + std::min(len, valid.size()));
        bytes.resize(len, 0);
        T other;
        if (ZelParcelableHelperUtils::convertBytesToParcelable(bytes, &other) || describe(other) != describe(T())) {
            return "true, but " + zelHexText(bytes) + " is accepted, or read as " + describe(other);
        }
    }
    return "true";
}

// Empty when `found` is what was expected, else `found`.
std::string unless(const std::string& expected, const std::string& found) { return expected == found ? "" : found; }

class ZelByteDriver : public ZelScenarioDriver {
public:
    std::string perform(const ZelScenarioCell& step) override {
        const std::string& verb = step.words.at(0);
        if (verb == "encode") {
            mBytes.clear();
            return statusName(encodeZelFrame(frameOf(step.words.at(1), step.options(2)), &mBytes));
        }
        if (verb == "status") {
            mStatus = statusOf(step);
            Parcel parcel;
            const status_t written = mStatus.writeToParcel(&parcel);
            mBytes.assign(parcel.data(), parcel.data() + parcel.dataSize());
            return statusName(written);
        }
        if (verb == "id") return ZelServiceIdentifierUtils::toModuleName(std::stoi(step.words.at(1)));
        mBytes = zelHexBytes(step.after(1));
        if (verb == "name") {
            return std::to_string(ZelServiceIdentifierUtils::fromModuleName({mBytes.begin(), mBytes.end()}).value);
        }
        if (verb == "decode") {
            ZelFrame frame;
            frame.code = 12345;
            const status_t status = decodeZelFrame(mBytes.data(), mBytes.size(), &frame);
            return statusName(status) + (status != OK && frame.code != 12345 ? " (frame filled in)" : "");
        }
        if (verb == "read") {
            Parcel parcel;
            parcel.setData(mBytes.data(), mBytes.size());
            mStatus = Status();
            return statusName(mStatus.readFromParcel(parcel));
        }
        if (verb == "ServiceIdentifier") return readAs<ServiceIdentifier>(mBytes, &mValue);
        if (verb == "MessageIdentifier") return readAs<MessageIdentifier>(mBytes, &mValue);
        if (verb == "ZelEventParamsParcelable") return readAs<ZelEventParamsParcelable>(mBytes, &mValue);
        if (verb == "ZelCallbackParamsParcelable") return readAs<ZelCallbackParamsParcelable>(mBytes, &mValue);
        if (verb == "ZelAsyncParamsBinderParcelable") return readAs<ZelAsyncParamsBinderParcelable>(mBytes, &mValue);
        throw std::invalid_argument("unknown step");
    }

    std::string check(const ZelScenarioCell& expectation) override {
        const std::string& what = expectation.words.at(0);
        const std::string expected = expectation.after(1);
        ZelFrameHeader header;
        ZelFrame back;
        std::vector<uint8_t> again;
        if (what == "bytes") return unless(zelHexText(zelHexBytes(expected)), zelHexText(mBytes));
        if (what == "header" && mBytes.size() >= kZelFrameHeaderSize) {
            return unless(expected, statusName(decodeZelFrameHeader(mBytes.data(), &header)));
        }
        if (what == "decode") {
            const status_t status = decodeZelFrame(mBytes.data(), mBytes.size(), &back);
            if (status == OK) encodeZelFrame(back, &again);
            return status == OK && again != mBytes ? "another frame" : unless(expected, statusName(status));
        }
        if (what == "text") return unless(expected, mStatus.toString8().c_str());
        if (what == "value") return unless(expected, mValue);
        throw std::invalid_argument("unknown expectation");
    }

private:
    static ZelFrame frameOf(const std::string& type, std::map<std::string, std::string> fields) {
        for (const char* name : {"code", "flags", "handle", "fds"}) fields.emplace(name, "0");
        const auto number = [&](const char* name) { return static_cast<uint32_t>(std::stol(fields[name])); };
        const std::vector<std::string> types = {"", "HELLO", "TRANSACTION", "REPLY", "REFS"};
        ZelFrame frame;
        frame.type = static_cast<ZelFrameType>(std::find(types.begin(), types.end(), type) - types.begin());
        std::tie(frame.code, frame.flags, frame.handle) = std::tuple(number("code"), number("flags"), number("handle"));
        frame.payload = zelHexBytes(fields["payload"]);
        if (const std::string ref = fields["objects"]; !ref.empty()) {  // <endpoint>:<handle>[*<times>]
            const size_t colon = ref.find(':'), times = ref.find('*');
            const ZelObjectRef object{ref.substr(0, colon), static_cast<uint32_t>(std::stoul(ref.substr(colon + 1)))};
            frame.objects.assign(times == std::string::npos ? 1 : std::stoul(ref.substr(times + 1)), object);
        }
        for (uint32_t n = number("fds"); n > 0; --n) frame.fds.emplace_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
        return frame;
    }

    // The overloads without a message are their own code.
    static Status statusOf(const ZelScenarioCell& step) {
        const std::string& how = step.words.at(1);
        const std::string message = step.after(3);
        if (how == "ok") return Status::ok();
        if (how == "statusT") return Status::fromStatusT(kStatusNames.at(step.words.at(2)));
        const int32_t code = std::stoi(step.words.at(2));
        if (how == "exception" && message.empty()) return Status::fromExceptionCode(code);
        if (how == "exception") return Status::fromExceptionCode(code, message.c_str());
        if (message.empty()) return Status::fromServiceSpecificError(code);
        return Status::fromServiceSpecificError(code, message.c_str());
    }

    std::vector<uint8_t> mBytes;  // what the step encoded, wrote or read
    Status mStatus;
    std::string mValue;  // the parcelable read, as words
};

ZEL_SCENARIO_TESTS(ZelByteCaseTest, ZELD_BYTE_CASES, ZelByteDriver);

// What no byte form shows: setting the task context's ids.
TEST(ZelParcelablesTest, TaskContextIdsKeepRoomForTheirTerminator) {
    ZelTaskContext context;
    EXPECT_TRUE(context.setCompId(std::string(63, 'c')));
    EXPECT_FALSE(context.setCompId(std::string(64, 'x')));
    EXPECT_EQ(context.getCompId(), std::string(63, 'c'));
}

}  // namespace
