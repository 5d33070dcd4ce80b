// Runs every table of scenarios/ (format: scenarios/README.md) against the
// client front end in this process: the client service, the IPC server and
// the activity listener as the daemon makes them, over a task manager on the
// task-manager tables' policy, without a reaper thread. The device root has
// no binder runtime, so nothing joins a thread pool; replies reach the
// recording callbacks as direct calls of local binders.
#include <gtest/gtest.h>

#include <com/ostrel/zeld/interfaces/BnZelBinderIPCRequestCallback.h>
#include <com/ostrel/zeld/interfaces/ZelAsyncParamsBinderParcelable.h>
#include <com/ostrel/zeld/interfaces/ZelCallbackParamsParcelable.h>
#include <com/ostrel/zeld/utils/ZelParcelableHelperUtils.h>

#include "ZelActivityListener.h"
#include "ZelBinderIpcServer.h"
#include "ZelLogText.h"
#include "ZelMetricsRecorder.h"
#include "ZelRecordingEventDispatcher.h"
#include "ZelScenario.h"
#include "ZelTestRoot.h"

using namespace com::ostrel::zeld::interfaces;
using android::sp;
using android::binder::Status;
using com::ostrel::zeld::utils::ZelParcelableHelperUtils;

namespace {
bool gRepliesUnserialisable = false;  // `serialise fails`
}  // namespace

// The program links with the parcelable serialiser wrapped (CMakeLists.txt):
// while a table says so, replies do not serialise; everything else does.
#define ZEL_JOIN(a, b) a##b
#define ZEL_WRAPPED(prefix, symbol) ZEL_JOIN(prefix, symbol)
extern "C" bool ZEL_WRAPPED(__real_, ZELD_REPLY_SERIALISER)(const android::Parcelable*, std::vector<uint8_t>&);
extern "C" bool ZEL_WRAPPED(__wrap_, ZELD_REPLY_SERIALISER)(const android::Parcelable* parcelable,
                                                             std::vector<uint8_t>& bytes) {
    if (gRepliesUnserialisable && dynamic_cast<const ZelCallbackParamsParcelable*>(parcelable)) return false;
    return ZEL_WRAPPED(__real_, ZELD_REPLY_SERIALISER)(parcelable, bytes);
}

namespace {

constexpr int32_t kClient = 6;  // COM_OSTREL_ZELD_TEST_CLIENT

// A reply as a callback received it: callback, sender, kind, then token,
// canStart (1/0) and status, or "unreadable".
struct Reply {
    std::string callback;
    int32_t sender, kind;
    bool readable;
    ZelCallbackParams record;
};

// A client's reply callback. A dead one fails every call, as a call to a
// client that has exited does, and receives nothing.
struct ZelReplyRecorder : public BnZelBinderIPCRequestCallback {
    ZelReplyRecorder(std::string name, bool dead, std::vector<Reply>& replies)
        : mName(std::move(name)), mDead(dead), mReplies(replies) {}
    Status onAsyncReply(const ServiceIdentifier& sender, const MessageIdentifier& kind,
                        const std::vector<uint8_t>& bytes) override {
        if (mDead) return Status::fromExceptionCode(Status::EX_TRANSACTION_FAILED);
        ZelCallbackParamsParcelable reply;
        const bool readable = ZelParcelableHelperUtils::convertBytesToParcelable(bytes, &reply);
        mReplies.push_back({mName, sender.value, kind.value, readable, reply.toRecord()});
        return Status::ok();
    }
    const std::string mName;
    const bool mDead;
    std::vector<Reply>& mReplies;
};

// Records publications; while `mCleanUpDuringPublish` is set, each one runs
// the manager's stopped-task clean-up first, as the reaper's purge may on its
// own thread while a start decision publishes its events.
struct ZelPurgingEventDispatcher : public ZelRecordingEventDispatcher {
    bool publishEvents(const std::vector<PolicyEvent>& events, int32_t first, int32_t second) override {
        if (mCleanUpDuringPublish && mManager != nullptr) mManager->clearStoppedTasks();
        return ZelRecordingEventDispatcher::publishEvents(events, first, second);
    }
    bool mCleanUpDuringPublish = false;
    ZelTaskManager* mManager = nullptr;  // owned by the driver, which outlives every step
};

class ZelFrontEndDriver : public ZelScenarioDriver {
public:
    ZelFrontEndDriver() {
        // A file where the binder runtime's folder would be: no service manager.
        mRoot.writeFile("/dev/binder", "");
        gRepliesUnserialisable = false;  // a table that ended with `serialise fails`
        mManager = std::make_shared<ZelTaskManager>(mDispatcher, ZelPolicyEngine::create(ZELD_FRONTEND_POLICY));
        mDispatcher->mManager = mManager.get();
    }

    std::string perform(const ZelScenarioCell& action) override {
        mStepLog.clear();
        mLogCursor = 0;
        mMetrics.reset();
        mMetrics = std::make_unique<ZelMetricsRecorder>();
        mReplies.clear();
        mRepliesChecked = 0;
        const std::vector<std::string>& w = action.words;
        const auto code = [](const Status& status) { return std::to_string(status.exceptionCode()); };
        const auto yes = [](bool result) { return result ? "true" : "false"; };
        if (w[0] == "listener" && w.size() >= 2) {
            // A pending start keeps a context that points to its server.
            if (mListener) mRetired.push_back(mListener);
            mListener = ZelActivityListener::create(w[1], action.options(2).count("manager") ? nullptr : mManager,
                                                    &ZelBinderIpcServer::create);
            mServer = mListener ? std::dynamic_pointer_cast<ZelBinderIpcServer>(mListener->getServer()) : nullptr;
            return mListener ? "made" : "none";
        }
        if (mListener == nullptr) zelScenarioRefuse("no listener made yet");
        if (w[0] == "start") return yes(mListener->start());
        if (w[0] == "stop") return yes(mListener->stop());
        if (w[0] == "serialise" && w.size() == 2) {
            gRepliesUnserialisable = w[1] == "fails";
            return "";
        }
        if (w[0] == "reply" && w.size() >= 4) {
            const auto opts = action.options(4);
            const auto context = ZelIpcContext::create(opts.count("client") ? std::stoi(opts.at("client")) : kClient,
                                                       callback(opts), nullptr,
                                                       opts.count("server") ? nullptr : mListener->getServer().get());
            return std::to_string(
                    ZelActivityListener::sendReply(context, ZelCallbackParams{token(w[1]), w[2] == "1", std::stoi(w[3])}));
        }
        if (mServer == nullptr) zelScenarioRefuse("the listener has no server");
        const sp<ZelServerIZelBinderIPCImpl>& service = mServer->getService();
        if (w[0] == "register" && w.size() >= 3) {
            sp<ZelReplyRecorder> recorder;
            if (w[2] != "null") recorder = mCallbacks[w[2]] = new ZelReplyRecorder(w[2], w.size() > 3, mReplies);
            return code(service->registerCallback(ServiceIdentifier(std::stoi(w[1])), recorder));
        }
        if (w[0] == "unregister" && w.size() == 2) return code(service->unregisterCallback(ServiceIdentifier(std::stoi(w[1]))));
        if ((w[0] == "request" || w[0] == "started" || w[0] == "completed") && w.size() >= 2) {
            mDispatcher->mCleanUpDuringPublish = action.options(2).count("purge") != 0;
            const Status status = request(w[0], w[1], action.options(2), *service);
            mDispatcher->mCleanUpDuringPublish = false;
            return code(status);
        }
        zelScenarioRefuse("unknown step");
    }

    std::string check(const ZelScenarioCell& e) override {
        const std::vector<std::string>& w = e.words;
        if (w[0] == "reply" && w.size() == 2 && w[1] == "none") return unchecked();
        if (w[0] == "reply" && w.size() == 7) {
            if (mRepliesChecked == mReplies.size()) return "no further reply";
            const Reply& r = mReplies[mRepliesChecked++];
            if (!r.readable) return r.callback + " unreadable";
            return e.listIs({r.callback, std::to_string(r.sender), std::to_string(r.kind), tokenName(r.record.token, w[4]),
                             r.record.canStart ? "1" : "0", std::to_string(r.record.status)}, 1);
        }
        if (w[0] == "log") return zelFindLineInOrder(zelLogLines(mStepLog), mLogCursor, e.after(1));
        if (w[0] == "no-log") {
            for (const std::string& line : zelLogLines(mStepLog)) {
                if (line.find(e.after(1)) != std::string::npos) return line;
            }
            return "";
        }
        if (w[0] == "lines") return e.listIs({std::to_string(zelLogLines(mStepLog).size())}, 1);
        if (w[0] == "count" && w.size() == 4) return e.listIs({std::to_string(mMetrics->total(w[1], w[2]))}, 3);
        if (w[0] == "timed" && w.size() == 4) return e.listIs({std::to_string(mMetrics->recordings(w[1], w[2]))}, 3);
        if (w[0] == "metrics" && w.size() == 2) return e.listIs({std::to_string(mMetrics->recordings())}, 1);
        zelScenarioRefuse("unknown expectation");
    }

    std::string stepEnd() override { return unchecked(); }

private:
    // One client message from the step's words: through the client service,
    // or, with a length, straight to the IPC server's handler.
    Status request(const std::string& verb, const std::string& key, const std::map<std::string, std::string>& opts,
                   ZelServerIZelBinderIPCImpl& service) {
        const auto number = [&](const char* name, int32_t otherwise) {
            return !opts.count(name) ? otherwise : opts.at(name).empty() ? 1 : std::stoi(opts.at(name));
        };
        ZelAsyncParamsBinderParcelable params;
        params.functionId = number("function", verb == "request" ? 1 : verb == "started" ? 2 : 3);
        ZelTaskContext& task = params.taskContext;
        if (!task.setCompId(zelScenarioPair(key).first) || !task.setTaskId(zelScenarioPair(key).second)) {
            zelScenarioRefuse("an identifier too long");
        }
        task.token = opts.count("token") ? token(opts.at("token")) : 0;
        task.notify = static_cast<uint8_t>(number("notify", 0));
        task.duration = number("duration", 5000);
        const ServiceIdentifier from(number("from", kClient));
        if (!opts.count("length")) {
            std::vector<uint8_t> bytes;
            ZelParcelableHelperUtils::convertParcelableToBytes(&params, bytes);
            return service.sendAsyncMessage(from, MessageIdentifier(MessageIdentifier::ASYNC_REQUEST), bytes);
        }
        auto message = std::make_shared<ZelAsyncMessage>();
        message->messageId = MessageIdentifier(MessageIdentifier::ASYNC_REQUEST);
        message->client = from;
        message->callback = callback(opts);
        message->functionId = params.functionId;
        message->data = &task;
        message->length = number("length", 0);
        return mServer->handleMessage(message);
    }

    // The callback named by `callback=` (a unless given), made live at its
    // first use; `callback=none`: none.
    sp<IZelBinderIPCRequestCallback> callback(const std::map<std::string, std::string>& opts) {
        const std::string name = opts.count("callback") ? opts.at("callback") : "a";
        if (name == "none") return nullptr;
        if (!mCallbacks.count(name)) mCallbacks[name] = new ZelReplyRecorder(name, false, mReplies);
        return mCallbacks.at(name);
    }

    // Tokens are named T1, T2, ... at their first appearance in a reply; 0 stays 0.
    std::string tokenName(int32_t token, const std::string& wanted) {
        for (const auto& [name, value] : mTokens) {
            if (value == token) return name;
        }
        if (token == 0 || wanted[0] != 'T' || mTokens.count(wanted)) return std::to_string(token);
        mTokens[wanted] = token;
        return wanted;
    }
    int32_t token(const std::string& word) const {
        if (word[0] != 'T') return std::stoi(word);
        if (!mTokens.count(word)) zelScenarioRefuse("no token " + word + " yet");
        return mTokens.at(word);
    }

    std::string unchecked() const {
        std::string left;
        for (size_t i = mRepliesChecked; i < mReplies.size(); ++i) {
            const Reply& r = mReplies[i];
            left += " [" + r.callback + " " + std::to_string(r.sender) + " " + std::to_string(r.kind) + " " +
                    std::to_string(r.record.token) + " " + (r.record.canStart ? "1" : "0") + " " +
                    std::to_string(r.record.status) + "]";
        }
        return left.empty() ? "" : "replies not in the table:" + left;
    }

    ZelTestRoot mRoot;
    zel::hostlog::ZelLogCapture mStepLog;
    size_t mLogCursor = 0;
    std::unique_ptr<ZelMetricsRecorder> mMetrics;
    std::vector<Reply> mReplies;  // the step's; outlives every recorder
    size_t mRepliesChecked = 0;
    std::map<std::string, int32_t> mTokens;
    std::map<std::string, sp<ZelReplyRecorder>> mCallbacks;
    std::shared_ptr<ZelPurgingEventDispatcher> mDispatcher = std::make_shared<ZelPurgingEventDispatcher>();
    std::shared_ptr<ZelTaskManager> mManager;
    std::shared_ptr<ZelActivityListener> mListener;
    std::vector<std::shared_ptr<ZelActivityListener>> mRetired;
    std::shared_ptr<ZelBinderIpcServer> mServer;
};

ZEL_SCENARIO_TESTS(FrontEndScenarioTest, ZELD_FRONTEND_SCENARIOS, ZelFrontEndDriver);

}  // namespace
