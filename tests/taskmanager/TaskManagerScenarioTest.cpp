// Runs every scenario table of scenarios/ (format: scenarios/README.md)
// against a task manager in this process, one test per table.
#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <optional>
#include <stdexcept>

#include "ZelLogText.h"
#include "ZelMetricsRecorder.h"
#include "ZelScenario.h"
#include "ZelSystemProperty.h"
#include "ZelTaskManagerTestSupport.h"
#include "ZelTestFiles.h"

namespace {

const std::map<std::string, int32_t> kStates = {{"CREATED", TASK_STATE_CREATED},
                                                {"ALLOWED", TASK_STATE_START_ALLOWED},
                                                {"PENDING", TASK_STATE_START_PENDING},
                                                {"RUNNING", TASK_STATE_RUNNING},
                                                {"COMPLETED", TASK_STATE_COMPLETED}};
const std::map<std::string, int32_t> kReaperStates = {
        {"purge", REAPER_STATE_PURGE}, {"wait", REAPER_STATE_WAIT}, {"exit", REAPER_STATE_EXIT}};

[[noreturn]] void refuse(const std::string& what) { throw std::invalid_argument(what); }

TaskKey keyOf(const std::string& word) {
    const auto slash = word.find('/');
    if (slash == std::string::npos) refuse("'" + word + "' is no component/task");
    return {word.substr(0, slash), word.substr(slash + 1)};
}

std::string hex(uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof(text), "%x", value);
    return text;
}

int failingWriter(const char*, const char*) { return -1; }

// The words after the first `from` of a cell, as name=value options and flags.
std::map<std::string, std::string> options(const ZelScenarioCell& cell, size_t from) {
    std::map<std::string, std::string> found;
    for (size_t i = from; i < cell.words.size(); ++i) {
        const auto eq = cell.words[i].find('=');
        found[cell.words[i].substr(0, eq)] = eq == std::string::npos ? "" : cell.words[i].substr(eq + 1);
    }
    return found;
}

int32_t number(const std::map<std::string, std::string>& options, const std::string& name, int32_t fallback) {
    const auto it = options.find(name);
    return it == options.end() ? fallback : std::stoi(it->second);
}

class ZelTaskManagerDriver : public ZelScenarioDriver {
public:
    explicit ZelTaskManagerDriver(std::string dir) : mDir(std::move(dir)) {}
    ~ZelTaskManagerDriver() override { ZelSystemProperty::sWriter = property_set; }

    std::string perform(const ZelScenarioCell& action) override {
        beginStep();
        const std::vector<std::string>& w = action.words;
        const auto opts = options(action, 2);
        if (w[0] == "policy" && w.size() >= 2) {
            mDispatcher->subscribeResult = !opts.count("subscribe") || opts.at("subscribe") != "fail";
            mManager = makeTestManager(mRoot, mDir + "/" + w[1], mDispatcher);
            if (mManager == nullptr) refuse("the policy does not load");
            return "";
        }
        if (mManager == nullptr) refuse("the first step must be 'policy <file>'");
        if (w[0] == "time" && w.size() == 2) {
            if (w[1][0] == '+') ZelFakeClock::advance(std::stoll(w[1].substr(1)));
            else ZelFakeClock::set(std::stoll(w[1]));
            return "";
        }
        if (w[0] == "memory" && w.size() >= 3) {
            const auto slash = w[2].find('/');
            const int status = w[1] == "critical" ? 4 : w[1] == "normal" ? 1 : std::stoi(w[1]);
            mDispatcher->deliverMemoryReport(number(opts, "resource", 1), status, std::stoull(w[2].substr(0, slash)),
                                             std::stoull(w[2].substr(slash + 1)));
            return "";
        }
        if (w[0] == "purge") {
            ZelTaskManager::clearList(mManager.get());
        } else if (w[0] == "cleanup") {
            mManager->clearStoppedTasks();
        } else if (w[0] == "publish" && w.size() == 2) {
            mDispatcher->publishResult = w[1] == "works";
        } else if (w[0] == "property-write" && w.size() == 2) {
            ZelSystemProperty::sWriter = w[1] == "works" ? property_set : &failingWriter;
        }
        if (w[0] == "purge" || w[0] == "cleanup" || w[0] == "publish" || w[0] == "property-write") return "";
        if (w[0] == "reaper" && w.size() == 2 && kReaperStates.count(w[1])) {
            std::lock_guard<std::mutex> guard(gReaperMutex);
            gReaperState = kReaperStates.at(w[1]);
            return "";
        }
        if (w.size() < 2 || (w[0] != "request" && w[0] != "started" && w[0] != "completed")) {
            refuse("unknown step");
        }
        mKey = keyOf(w[1]);
        const int32_t type = opts.count("auto") ? ZelTaskManager::kAutoStartRequestType
                                                : ZelTaskManager::kClientRequestType;
        const int32_t duration = number(opts, "duration", 5000);
        if (w[0] == "request") {
            auto context = opts.count("answer") ? makeTestContext() : nullptr;
            if (context) mContexts[mKey] = context;
            return std::to_string(mManager->taskStartRequested(
                    mKey.first, mKey.second, opts.count("notify") != 0, duration, context,
                    context ? &ZelApprovalRecorder::onApproved : nullptr, type));
        }
        if (w[0] == "started") {
            const std::string token = opts.count("token") ? opts.at("token") : "record";
            const auto record = mManager->getTask(mKey.first, mKey.second);
            mSent = token == "record" ? (record ? record->getToken() : 0)
                    : token == "other" ? (record ? record->getToken() % 0x7FFFFFFF + 1 : 1)
                                       : static_cast<uint32_t>(std::stoul(token));
            return std::to_string(
                    mManager->taskStarted(mKey.first, mKey.second, mSent, duration, nullptr, type, false));
        }
        return std::to_string(mManager->taskCompleted(mKey.first, mKey.second));
    }

    std::string check(const ZelScenarioCell& e) override {
        const std::vector<std::string>& w = e.words;
        if (w[0] == "task" && w.size() >= 3) return checkTask(keyOf(w[1]), w[2], options(e, 3));
        if (w[0] == "token" && w.size() == 3) {
            const auto record = mManager->getTask(keyOf(w[1]).first, keyOf(w[1]).second);
            const auto before = mTokensBefore.find(keyOf(w[1]));
            const bool same = record && before != mTokensBefore.end() && before->second == record->getToken();
            return (w[2] == "same") == same ? "" : same ? "the same token" : "a new token or none";
        }
        if (w[0] == "table" && w.size() >= 2) return checkList(tableKeys(w[1]), e, 2);
        if (w[0] == "log" && w.size() >= 3) return checkLog(e);
        if (w[0] == "no-log") {
            for (const auto& line : mLog->lines()) {
                if (line.message.find(e.after(1)) != std::string::npos) return line.message;
            }
            return "";
        }
        if (w[0] == "lines" && w.size() == 2) return countIs(mLog->lines().size(), w[1]);
        if (w[0] == "count" && w.size() == 3) return countIs(mMetrics->total("TaskManager", w[1]), w[2]);
        if (w[0] == "property" && w.size() == 3) {
            char value[PROPERTY_VALUE_MAX] = {};
            property_get(w[1].c_str(), value, "unset");
            return value == w[2] ? "" : value;
        }
        if (w[0] == "published" && w.size() >= 2) return checkPublication(e);
        if (w[0] == "approved") return checkApprovals(e);
        if (w[0] == "subscribed") {
            std::vector<std::string> found;
            for (const auto& [group, event] : mDispatcher->subscriptions()) {
                found.push_back(std::to_string(group) + ":" + std::to_string(event));
            }
            return checkList(found, e, 1);
        }
        if (w[0] == "reaper" && w.size() == 2) {
            std::lock_guard<std::mutex> guard(gReaperMutex);
            return kReaperStates.count(w[1]) && kReaperStates.at(w[1]) == gReaperState
                           ? ""
                           : "command word " + std::to_string(gReaperState);
        }
        refuse("unknown expectation");
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
        for (const auto& [key, task] : mManager->mTaskList->snapshot()) mTokensBefore[key] = task->getToken();
    }

    static std::string countIs(int64_t found, const std::string& expected) {
        return std::to_string(found) == expected ? "" : std::to_string(found);
    }

    // The expectation's words from `from` on must be exactly `found`.
    static std::string checkList(const std::vector<std::string>& found, const ZelScenarioCell& e, size_t from) {
        const std::vector<std::string> expected(e.words.begin() + from, e.words.end());
        if (found == expected) return "";
        std::string text = found.empty() ? "(none)" : "";
        for (const std::string& item : found) text += item + " ";
        return text;
    }

    std::string checkTask(const TaskKey& key, const std::string& state,
                          const std::map<std::string, std::string>& fields) {
        const auto task = mManager->getTask(key.first, key.second);
        if (task == nullptr) return state == "none" ? "" : "no record";
        std::string found;
        for (const auto& [name, value] : kStates) {
            if (value == task->getState()) found = name;
        }
        if (found != state) return found.empty() ? "state " + std::to_string(task->getState()) : found;
        const std::map<std::string, int64_t> values = {
                {"start", task->getStartTime()}, {"end", task->getEndTime()},
                {"duration", task->getDuration()}, {"ensure", task->getEnsureRunTime()},
                {"notify", task->getNotify()}};
        for (const auto& [name, value] : fields) {
            if (!values.count(name)) refuse("unknown field " + name);
            if (std::to_string(values.at(name)) != value) return name + "=" + std::to_string(values.at(name));
        }
        return "";
    }

    std::vector<std::string> tableKeys(const std::string& name) {
        std::vector<std::string> keys;
        if (name == "stopped") {
            std::lock_guard<std::mutex> guard(mManager->mStoppedTaskLock);
            for (const TaskKey& key : mManager->mStoppedTaskList) keys.push_back(key.first + "/" + key.second);
            return keys;
        }
        const std::map<std::string, std::shared_ptr<LockedTaskMap>> tables = {
                {"tasks", mManager->mTaskList}, {"running", mManager->mRunningTaskList},
                {"pending", mManager->mPendingTaskList}};
        if (!tables.count(name)) refuse("unknown table " + name);
        for (const auto& entry : tables.at(name)->snapshot()) keys.push_back(entry.first.first + "/" + entry.first.second);
        return keys;
    }

    // Lines match in the order of the step's log expectations; {token} is the
    // step's task's token and {sent} the token its report sent, in hex.
    std::string checkLog(const ZelScenarioCell& e) {
        std::string wanted = e.after(1);
        const auto record = mManager->getTask(mKey.first, mKey.second);
        for (const auto& [name, value] :
             {std::pair<std::string, uint32_t>{"{token}", record ? record->getToken() : 0}, {"{sent}", mSent}}) {
            for (auto at = wanted.find(name); at != std::string::npos; at = wanted.find(name)) {
                wanted.replace(at, name.size(), hex(value));
            }
        }
        const auto lines = mLog->lines();
        for (size_t i = mLogCursor; i < lines.size(); ++i) {
            if (std::string(1, zelLogLevelLetter(lines[i].priority)) + " " + zelLogMessageText(lines[i]) == wanted) {
                mLogCursor = i + 1;
                return "";
            }
        }
        std::string found = "no such line after the previous one; the step logged:";
        for (const auto& line : lines) found += "\n    " + std::string(1, zelLogLevelLetter(line.priority)) + " " + zelLogMessageText(line);
        return found;
    }

    // "published <group>:<event>,... <first> <second>" matches the step's next
    // publication ("-" for an empty event list); "published none" that there was none.
    std::string checkPublication(const ZelScenarioCell& e) {
        const auto all = mDispatcher->publications();
        const size_t next = mPublicationsBefore + mPublicationsChecked;
        if (e.words[1] == "none") return all.size() == mPublicationsBefore ? "" : "a publication";
        if (e.words.size() != 4) refuse("published <events> <first> <second>");
        if (next >= all.size()) return "no further publication";
        ++mPublicationsChecked;
        std::string events;
        for (const PolicyEvent& event : all[next].events) {
            events += (events.empty() ? "" : ",") + std::to_string(event.groupId) + ":" + std::to_string(event.eventId);
        }
        const std::string found = (events.empty() ? "-" : events) + " " + std::to_string(all[next].first) + " " +
                                  std::to_string(all[next].second);
        return found == e.after(1) ? "" : found;
    }

    // "approved <key>..." lists the step's deferred answers in order; each
    // carries the record's token and the context of the request that asked.
    std::string checkApprovals(const ZelScenarioCell& e) {
        const auto all = ZelApprovalRecorder::approvals();
        std::vector<std::string> found;
        for (size_t i = mApprovalsBefore; i < all.size(); ++i) {
            for (const auto& [key, context] : mContexts) {
                const auto record = mManager->getTask(key.first, key.second);
                if (context == all[i].context && record && record->getToken() == all[i].token) {
                    found.push_back(key.first + "/" + key.second);
                }
            }
            if (found.size() != i - mApprovalsBefore + 1) found.push_back("(unmatched token " + hex(all[i].token) + ")");
        }
        if (e.words.size() == 2 && e.words[1] == "none") found.insert(found.begin(), "none");
        return checkList(found, e, 1);
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

class TaskManagerScenarioTest : public ::testing::TestWithParam<std::string> {};

TEST_P(TaskManagerScenarioTest, Holds) {
    ZelTaskManagerDriver driver(ZELD_TASKMANAGER_SCENARIOS);
    runZelScenario(ZelScenario::read(ZELD_TASKMANAGER_SCENARIOS "/" + GetParam() + ".scenario"), driver);
}

INSTANTIATE_TEST_SUITE_P(Scenarios, TaskManagerScenarioTest,
                         ::testing::ValuesIn(listZelTestCases(ZELD_TASKMANAGER_SCENARIOS, ".scenario")),
                         [](const auto& info) {
                             std::string name = info.param;
                             for (char& c : name) c = std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
                             return name;
                         });

}  // namespace
