// Runs every scenario table of scenarios/ (format: scenarios/README.md)
// against a task manager in this process, one test per table.
#include <gtest/gtest.h>

#include <map>
#include <stdexcept>

#include "ZelLogText.h"
#include "ZelMetricsRecorder.h"
#include "ZelScenario.h"
#include "ZelSystemProperty.h"
#include "ZelTaskManagerTestSupport.h"

namespace {

const std::map<std::string, int32_t> kStates = {
        {"CREATED", TASK_STATE_CREATED}, {"ALLOWED", TASK_STATE_START_ALLOWED}, {"PENDING", TASK_STATE_START_PENDING},
        {"RUNNING", TASK_STATE_RUNNING}, {"COMPLETED", TASK_STATE_COMPLETED}};
const std::map<std::string, int32_t> kReaperStates = {
        {"purge", REAPER_STATE_PURGE}, {"wait", REAPER_STATE_WAIT}, {"exit", REAPER_STATE_EXIT}};

TaskKey keyOf(const std::string& word) { return zelScenarioPair(word); }

std::string keyText(const TaskKey& key) { return key.first + "/" + key.second; }

int failingWriter(const char*, const char*) { return -1; }

class ZelTaskManagerDriver : public ZelScenarioDriver {
public:
    explicit ZelTaskManagerDriver(std::string dir) : mDir(std::move(dir)) {}
    ~ZelTaskManagerDriver() override { ZelSystemProperty::sWriter = property_set; }

    std::string perform(const ZelScenarioCell& action) override {
        beginStep();
        const std::vector<std::string>& w = action.words;
        const auto opts = action.options(2);
        const std::string arg = w.size() > 1 ? w[1] : "";
        if (w[0] == "policy") {
            mDispatcher->subscribeResult = !opts.count("subscribe") || opts.at("subscribe") != "fail";
            mManager = makeTestManager(mRoot, mDir + "/" + arg, mDispatcher);
            if (mManager == nullptr) zelScenarioRefuse("the policy does not load");
        } else if (mManager == nullptr) {
            zelScenarioRefuse("the first step must be 'policy <file>'");
        } else if (w[0] == "time") {
            if (arg[0] == '+') ZelFakeClock::advance(std::stoll(arg.substr(1)));
            if (arg[0] != '+') ZelFakeClock::set(std::stoll(arg));
        } else if (w[0] == "memory" && w.size() >= 3) {
            const auto [used, threshold] = zelScenarioPair(w[2]);
            mDispatcher->deliverMemoryReport(opts.count("resource") ? std::stoi(opts.at("resource")) : 1,
                                             zelScenarioMemoryStatus(arg), std::stoull(used), std::stoull(threshold));
        } else if (w[0] == "purge") {
            ZelTaskManager::clearList(mManager.get());
        } else if (w[0] == "cleanup") {
            mManager->clearStoppedTasks();
        } else if (w[0] == "stop") {
            mManager->stop();
        } else if (w[0] == "publish") {
            mDispatcher->publishResult = arg == "works";
        } else if (w[0] == "property-write") {
            ZelSystemProperty::sWriter = arg == "works" ? property_set : &failingWriter;
        } else if (w[0] == "reaper" && kReaperStates.count(arg)) {
            ZelReaperSync::setCommand(kReaperStates.at(arg));
        } else if (w[0] == "request" || w[0] == "started" || w[0] == "completed") {
            return std::to_string(taskStep(w[0], keyOf(arg), opts));
        } else {
            zelScenarioRefuse("unknown step");
        }
        return "";
    }

    std::string check(const ZelScenarioCell& e) override {
        const std::vector<std::string>& w = e.words;
        const std::string arg = w.size() > 1 ? w[1] : "";
        if (w[0] == "task" && w.size() >= 3) return checkTask(keyOf(arg), w[2], e.options(3));
        if (w[0] == "token" && w.size() == 3) {
            const auto record = mManager->getTask(keyOf(arg).first, keyOf(arg).second);
            const auto before = mTokensBefore.find(keyOf(arg));
            const bool same = record && before != mTokensBefore.end() && before->second == record->getToken();
            return (w[2] == "same") == same ? "" : same ? "the same token" : "a new token or none";
        }
        if (w[0] == "table") return e.listIs(tableKeys(arg), 2);
        if (w[0] == "log") return zelFindLineInOrder(zelLogLines(*mLog), mLogCursor, withTokens(e.after(1)));
        if (w[0] == "no-log") {
            for (const std::string& line : zelLogLines(*mLog)) {
                if (line.find(e.after(1)) != std::string::npos) return line;
            }
            return "";
        }
        if (w[0] == "lines") return e.listIs({std::to_string(zelLogLines(*mLog).size())}, 1);
        if (w[0] == "count") return e.listIs({std::to_string(mMetrics->total("TaskManager", arg))}, 2);
        if (w[0] == "property") {
            char value[PROPERTY_VALUE_MAX] = {};
            property_get(arg.c_str(), value, "unset");
            return e.listIs({value}, 2);
        }
        if (w[0] == "published") {
            const auto all = mDispatcher->publications();
            if (arg == "none") return all.size() == mPublicationsBefore ? "" : "a publication";
            const size_t next = mPublicationsBefore + mPublicationsChecked++;
            if (next >= all.size()) return "no further publication";
            std::string events;
            for (const PolicyEvent& event : all[next].events) {
                events += (events.empty() ? "" : ",") + std::to_string(event.groupId) + ":" + std::to_string(event.eventId);
            }
            return e.listIs({events.empty() ? "-" : events, std::to_string(all[next].first),
                             std::to_string(all[next].second)}, 1);
        }
        if (w[0] == "approved") return e.listIs(approvals(arg == "none"), 1);
        if (w[0] == "subscribed") {
            std::vector<std::string> found;
            for (const auto& [group, event] : mDispatcher->subscriptions()) {
                found.push_back(std::to_string(group) + ":" + std::to_string(event));
            }
            return e.listIs(found, 1);
        }
        if (w[0] == "reaper") {
            const int32_t command = ZelReaperSync::state().command;
            return kReaperStates.count(arg) && kReaperStates.at(arg) == command ? ""
                                                                                : "command word " + std::to_string(command);
        }
        zelScenarioRefuse("unknown expectation");
    }

private:
    // What each step's expectations are measured against.
    void beginStep() {
        mLog.reset();
        mLog = std::make_unique<zel::hostlog::ZelLogCapture>();
        mMetrics.reset();
        mMetrics = std::make_unique<ZelMetricsRecorder>();
        mLogCursor = 0;
        mPublicationsChecked = 0;
        mPublicationsBefore = mDispatcher->publications().size();
        mApprovalsBefore = ZelApprovalRecorder::approvals().size();
        mTokensBefore.clear();
        if (mManager == nullptr) return;
        for (const ZelTask::Fields& task : mManager->snapshot().tasks) mTokensBefore[{task.compId, task.taskId}] = task.token;
    }

    int32_t taskStep(const std::string& verb, const TaskKey& key, const std::map<std::string, std::string>& opts) {
        mKey = key;
        const int32_t type = opts.count("auto") ? ZelTaskManager::kAutoStartRequestType
                                                : ZelTaskManager::kClientRequestType;
        const int32_t duration = opts.count("duration") ? std::stoi(opts.at("duration")) : 5000;
        const auto record = mManager->getTask(key.first, key.second);
        if (verb == "request") {
            auto context = opts.count("answer") ? makeTestContext() : nullptr;
            if (context) mContexts[key] = context;
            return mManager->taskStartRequested(key.first, key.second, opts.count("notify") != 0, duration, context,
                                                context ? &ZelApprovalRecorder::onApproved : nullptr, type);
        }
        if (verb == "completed") return mManager->taskCompleted(key.first, key.second);
        const std::string token = opts.count("token") ? opts.at("token") : "record";
        const uint32_t recordToken = record ? record->getToken() : 0;
        mSent = token == "record" ? recordToken
                : token == "other" ? recordToken % 0x7FFFFFFF + 1 : static_cast<uint32_t>(std::stoul(token));
        return mManager->taskStarted(key.first, key.second, mSent, duration, nullptr, type, false);
    }

    std::string checkTask(const TaskKey& key, const std::string& state, const std::map<std::string, std::string>& fields) {
        const auto task = mManager->getTask(key.first, key.second);
        if (task == nullptr) return state == "none" ? "" : "no record";
        std::string found = "state " + std::to_string(task->getState());
        for (const auto& [name, value] : kStates) found = value == task->getState() ? name : found;
        if (found != state) return found;
        const std::map<std::string, int64_t> values = {
                {"start", task->getStartTime()}, {"end", task->getEndTime()}, {"duration", task->getDuration()},
                {"ensure", task->getEnsureRunTime()}, {"notify", task->getNotify()}};
        for (const auto& [name, value] : fields) {
            if (!values.count(name)) zelScenarioRefuse("unknown field " + name);
            if (std::to_string(values.at(name)) != value) return name + "=" + std::to_string(values.at(name));
        }
        return "";
    }

    std::vector<std::string> tableKeys(const std::string& name) {
        const ZelTaskManager::State state = mManager->snapshot();
        std::vector<std::string> keys;
        if (name == "stopped") {
            for (const TaskKey& key : state.stopped) keys.push_back(keyText(key));
            return keys;
        }
        const std::map<std::string, const std::vector<ZelTask::Fields>*> tables = {
                {"tasks", &state.tasks}, {"running", &state.running}, {"pending", &state.pending}};
        if (!tables.count(name)) zelScenarioRefuse("unknown table " + name);
        for (const ZelTask::Fields& task : *tables.at(name)) keys.push_back(task.compId + "/" + task.taskId);
        return keys;
    }

    // {token}: the step's task's token; {sent}: the token its report sent.
    std::string withTokens(const std::string& text) const {
        const auto record = mManager->getTask(mKey.first, mKey.second);
        return zelSubstitute(text, {{"{token}", zelHex(record ? record->getToken() : 0)}, {"{sent}", zelHex(mSent)}});
    }

    // The step's deferred answers: the request each answered, matched by its
    // context and its record's token.
    std::vector<std::string> approvals(bool noneWanted) {
        const auto all = ZelApprovalRecorder::approvals();
        std::vector<std::string> found;
        for (size_t i = mApprovalsBefore; i < all.size(); ++i) {
            std::string answered = "(unmatched token " + zelHex(all[i].token) + ")";
            for (const auto& [key, context] : mContexts) {
                const auto record = mManager->getTask(key.first, key.second);
                if (context == all[i].context && record && record->getToken() == all[i].token) answered = keyText(key);
            }
            found.push_back(answered);
        }
        if (noneWanted && found.empty()) found.push_back("none");
        return found;
    }

    const std::string mDir;
    ZelFakeClock mClock;
    ZelTestRoot mRoot;
    std::shared_ptr<ZelRecordingEventDispatcher> mDispatcher = std::make_shared<ZelRecordingEventDispatcher>();
    std::shared_ptr<ZelTaskManager> mManager;
    std::unique_ptr<zel::hostlog::ZelLogCapture> mLog;
    std::unique_ptr<ZelMetricsRecorder> mMetrics;
    std::map<TaskKey, std::shared_ptr<ZelIpcContext>> mContexts;  // of the last request with an answer
    std::map<TaskKey, uint32_t> mTokensBefore;
    TaskKey mKey;
    uint32_t mSent = 0;
    size_t mLogCursor = 0;
    size_t mPublicationsBefore = 0;
    size_t mPublicationsChecked = 0;
    size_t mApprovalsBefore = 0;
};

ZEL_SCENARIO_TESTS(TaskManagerScenarioTest, zelTestDataPath(ZELD_TASKMANAGER_SCENARIOS), ZelTaskManagerDriver,
                   zelTestDataPath(ZELD_TASKMANAGER_SCENARIOS));

}  // namespace
