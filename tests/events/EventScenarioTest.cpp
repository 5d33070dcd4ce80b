// Runs every scenario table of scenarios/ (format: scenarios/README.md)
// against the event service and the daemon's dispatcher in this process,
// one test per table.
#include <gtest/gtest.h>

#include <cinttypes>
#include <thread>

#include <com/ostrel/zeld/interfaces/BnZelEventCallbackService.h>
#include <com/ostrel/zeld/interfaces/ZelEventParamsParcelable.h>
#include <com/ostrel/zeld/utils/ZelParcelableHelperUtils.h>
#include <tallyd/TallyEventHelper.h>

#include "ZelBinderEventDispatcher.h"
#include "ZelLogText.h"
#include "ZelScenario.h"
#include "ZelTestFiles.h"

using namespace com::ostrel::zeld::interfaces;
using android::binder::Status;
using com::ostrel::zeld::utils::ZelParcelableHelperUtils;

namespace {

// "<group>:<event>[,...]", or "-" for none, as T{group, event}.
template <typename T, typename Group = int32_t>
std::vector<T> pairsOf(const std::string& word) {
    std::vector<T> pairs;
    int group = 0, event = 0, used = 0;
    for (size_t at = 0; word != "-" && at < word.size(); at += used + 1) {
        if (std::sscanf(word.c_str() + at, "%d:%d%n", &group, &event, &used) != 2) zelScenarioRefuse(word + " is no group:event");
        pairs.push_back({static_cast<Group>(group), event});
    }
    return pairs;
}

// Called directly (a local binder): deliveries are recorded synchronously,
// marked when the payload is not the one the step sent.
struct Recorder : public BnZelEventCallbackService {
    Recorder(std::string name, const std::vector<uint8_t>& sent, std::vector<std::string>& received)
        : mName(std::move(name)), mSent(sent), mReceived(received) {}
    Status onEvent(const ServiceIdentifier& publisher, int32_t group, int32_t event, const std::vector<uint8_t>& payload) override {
        mReceived.push_back(mName + "@" + std::to_string(publisher.value) + "/" + std::to_string(group) + "/" +
                            std::to_string(event) + (payload == mSent ? "" : "+other-payload"));
        return Status::ok();
    }
    const std::string mName;
    const std::vector<uint8_t>& mSent;
    std::vector<std::string>& mReceived;
};

class ZelEventDriver : public ZelScenarioDriver {
public:
    std::string perform(const ZelScenarioCell& action) override {
        mStepLog.clear();
        mLogCursor = 0;
        mReceived.clear();
        const std::vector<std::string>& w = action.words;
        const auto id = [&](size_t i) { return ServiceIdentifier(std::stoi(w.at(i))); };
        const auto pair = [&](size_t i) { return pairsOf<std::pair<int32_t, int32_t>>(w.at(i)).at(0); };
        const auto code = [](const Status& status) { return std::to_string(status.exceptionCode()); };
        const auto yes = [](bool result) { return result ? "true" : "false"; };
        const std::string name = w.size() > 2 ? w[2] : w.size() > 1 ? w[1] : "";
        if (w[0] == "register") {
            return code(mService->registerEventCallback(id(1), name == "null" ? nullptr : new Recorder(name, mPayload, mReceived)));
        }
        if (w[0] == "unregister") return code(mService->unregisterEventCallback(id(1)));
        if (w[0] == "subscribe") return code(mService->subscribe(id(1), id(2), pair(3).first, pair(3).second));
        if (w[0] == "unsubscribe") return code(mService->unsubscribe(id(1), id(2), pair(3).first, pair(3).second));
        if (w[0] == "publish") {
            const auto opts = action.options(3);
            const std::string hex = opts.count("payload") ? opts.at("payload") : "01020304";
            mPayload = zelHexBytes(hex);
            tallyd::TallyResourceStatus r;
            if (opts.count("report") && std::sscanf(opts.at("report").c_str(), "%" SCNu8 "/%" SCNu8 "/%" SCNu64 "/%" SCNu64,
                                                    &r.resourceType, &r.status, &r.value, &r.criticalThreshold) != 4) {
                zelScenarioRefuse("a report is type/status/value/threshold");
            }
            const tallyd::TallyEventHelper report(r);
            if (opts.count("report")) ZelParcelableHelperUtils::convertParcelableToBytes(&report, mPayload);
            const auto call = [&] { return mService->publish(id(1), pair(2).first, pair(2).second, mPayload); };
            if (!opts.count("ends-process")) return code(call());
            // As on a binder thread: nothing catches what escapes the call.
            EXPECT_DEATH(std::thread(call).join(), "Operation not permitted") << action.text;
        } else if (w[0] == "dispatcher") {
            mDispatcher = std::make_shared<ZelBinderEventDispatcher>(w.size() > 1 ? id(1).value : 1, mService);
        } else if (w[0] == "send" && w.size() == 4) {
            // Every delivery must carry the two values as the event parcelable.
            const ZelEventParamsParcelable params(std::stoi(w[2]), std::stoi(w[3]));
            ZelParcelableHelperUtils::convertParcelableToBytes(&params, mPayload);
            return yes(mDispatcher->publishEvents(pairsOf<PolicyEvent, uint8_t>(w[1]), params.param1, params.param2));
        } else if (w[0] == "watch") {
            return yes(mDispatcher->subscribeEvent(pair(1).first, pair(1).second, [this, name](const void* data) {
                const auto* r = static_cast<const ResourceStatusRecord*>(data);
                mReceived.push_back(name + "=" + (r == nullptr ? "null" : std::to_string(r->resourceType) + "/" +
                        std::to_string(r->status) + "/" + std::to_string(r->value) + "/" + std::to_string(r->criticalThreshold)));
            }));
        } else if (w[0] == "unwatch") {
            return yes(mDispatcher->unsubscribeEvents(pairsOf<std::pair<uint8_t, int32_t>, uint8_t>(w.at(1))));
        } else if (w[0] == "invoke") {
            mDispatcher->invokeEventCallback(pair(1).first, pair(1).second, nullptr);
        } else if (w[0] == "shutdown") {
            mDispatcher->stop();
            mDispatcher.reset();
        } else {
            zelScenarioRefuse("unknown step");
        }
        return "";
    }

    std::string check(const ZelScenarioCell& e) override {
        const std::vector<std::string>& w = e.words;
        if (w[0] == "received") return e.listIs(mReceived.empty() ? std::vector<std::string>{"none"} : mReceived, 1);
        if (w[0] == "log") return zelFindLineInOrder(zelLogLines(mStepLog), mLogCursor, e.after(1));
        if (w[0] == "lines") return e.listIs({std::to_string(zelLogLines(mStepLog).size())}, 1);
        zelScenarioRefuse("unknown expectation");
    }

private:
    zel::hostlog::ZelLogCapture mStepLog;
    size_t mLogCursor = 0;
    std::vector<std::string> mReceived;  // the step's deliveries; outlives the recorders
    std::vector<uint8_t> mPayload;       // what the step sent
    android::sp<ZelServerIZelEventManagerImpl> mService = new ZelServerIZelEventManagerImpl();
    std::shared_ptr<ZelBinderEventDispatcher> mDispatcher;
};

ZEL_SCENARIO_TESTS(EventScenarioTest, ZELD_EVENT_SCENARIOS, ZelEventDriver);

}  // namespace
