// Runs every table of scenarios/ (format: scenarios/README.md) against the
// real zeld binary on a private device root, as its clients meet it: through
// libzelclient, through the generated proxies for what the library will not
// send, and through zelctl.
#include <sys/stat.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <thread>

#include <binder/IServiceManager.h>
#include <com/ostrel/zeld/interfaces/IZelBinderIPC.h>
#include <cutils/properties.h>
#include <gtest/gtest.h>

#include "ZelDaemonProcess.h"
#include "ZelMemoryReporter.h"
#include "ZelScenario.h"
#include "ZelTestFiles.h"
#include "ZelctlRuns.h"
#include "zel/client/ZelClient.h"

using namespace com::ostrel::zeld::interfaces;
using namespace zel::client;

namespace {

const auto kReplyWait = std::chrono::seconds(2);
constexpr int32_t kRawSenderId = 78;  // below every process-id based identifier
const auto kEventualWait = std::chrono::seconds(15);
const char* const kTraceCheck = ZELD_TESTS_DIR "/../tools/trace-check";

// The daemon's log as "L text" lines (level letter, text after the
// "file::function:line - " prefix); lines of other shapes are dropped.
std::vector<std::string> logLines(const std::string& log) {
    std::vector<std::string> lines;
    std::istringstream in(log);
    for (std::string line; std::getline(in, line);) {
        const auto tag = line.find(" zeld: ");
        const auto dash = line.find(" - ", tag);
        if (tag == std::string::npos || tag < 2 || dash == std::string::npos) continue;
        std::string text = line.substr(dash + 3);
        text.erase(text.find_last_not_of(' ') + 1);
        // The entry's "<function>:<line> " prefix loses its line number too.
        const auto colon = text.find(':');
        const auto space = text.find(' ');
        if (colon != std::string::npos && colon < space && colon + 1 < space &&
            text.find_first_not_of("0123456789", colon + 1) == space) {
            text.erase(colon, space - colon);
        }
        lines.push_back(std::string(1, line[tag - 1]) + " " + text);
    }
    return lines;
}

// Polls `found` (empty when it holds) until it holds or the wait is over.
std::string eventuallyEmpty(const std::function<std::string()>& found) {
    std::string last;
    eventually([&] { return (last = found()).empty(); }, kEventualWait);
    return last;
}

class ZelDaemonDriver : public ZelScenarioDriver {
public:
    // A table that ends with the daemon stopped: the clients below unregister
    // from it before it is killed.
    ~ZelDaemonDriver() override {
        if (mDaemon) mDaemon->process().freeze(false);
    }

    std::string perform(const ZelScenarioCell& action) override {
        const std::vector<std::string>& w = action.words;
        const auto opts = action.options(2);
        mStepLogStart = logLines(daemonLog()).size();
        std::string result;
        if (mZelctl.perform(w, action.after(2), &result)) return result;
        if (w[0] == "policy" && w.size() == 2) {
            mRoot.writeFile("/system/etc/zel_policy.json", readZelTestFile(ZELD_TESTS_DIR "/" + w[1]));
        } else if (w[0] == "override" && w.size() == 2) {
            if (w[1] != "missing") {
                mRoot.writeFile("/data/zeld/zel_policy.json", readZelTestFile(ZELD_TESTS_DIR "/" + w[1]));
            }
            property_set("zeld.config.policy.override", "true");
        } else if (w[0] == "root" && w.size() == 2) {
            breakRoot(w[1]);
        } else if (w[0] == "daemon" && (w.size() == 1 || (w.size() == 2 && w[1] == "traced"))) {
            return startDaemon(w.size() == 2);
        } else if (w[0] == "memory" && w.size() == 3) {
            return memoryReport(w[1], w[2]);
        } else if ((w[0] == "request" || w[0] == "started" || w[0] == "completed") && w.size() >= 2) {
            return clientRequest(w[0], w[1], opts);
        } else if (w[0] == "approval" && w.size() == 2) {
            return replyText(client().waitForApproval(token(w[1]), kEventualWait));
        } else if (w[0] == "send" && w.size() >= 3) {
            return rawSend(w[1], w[2], zelHexBytes(action.after(3)));
        } else if (w[0] == "signal" && w.size() == 2 && mDaemon && (w[1] == "STOP" || w[1] == "CONT")) {
            mDaemon->process().freeze(w[1] == "STOP");
        } else if (w[0] == "signal" && w.size() == 2 && mDaemon) {
            mDaemon->process().kill(w[1] == "TERM" ? SIGTERM : w[1] == "CHLD" ? SIGCHLD : SIGKILL);
        } else if (w[0] == "wait" && w.size() == 2) {
            std::this_thread::sleep_for(std::chrono::milliseconds(std::stoi(w[1])));
        } else {
            zelScenarioRefuse("unknown step");
        }
        return "";
    }

    std::string check(const ZelScenarioCell& expectation) override {
        const std::vector<std::string>& w = expectation.words;
        std::string found;
        if (mZelctl.check(w, expectation.after(1), &found)) return found;
        if (w[0] == "log" && w.size() >= 3) {
            const std::string wanted = w[1] + " " + substitute(expectation.after(2));
            return eventuallyEmpty([&] {
                size_t cursor = mLogCursor;
                const std::string found = zelFindLineInOrder(logLines(daemonLog()), cursor, wanted);
                if (found.empty()) mLogCursor = cursor;
                return found;
            });
        }
        if (w[0] == "no-log" && w.size() >= 2) {
            const std::string text = substitute(expectation.after(1));
            const std::vector<std::string> lines = logLines(daemonLog());
            for (size_t i = mStepLogStart; i < lines.size(); ++i) {
                if (lines[i].find(text) != std::string::npos) return lines[i];
            }
            return "";
        }
        if (w[0] == "property" && w.size() == 3) {
            return eventuallyEmpty([&] {
                char value[PROPERTY_VALUE_MAX] = {};
                const bool set = property_get(w[1].c_str(), value, "") > 0;
                const std::string found = set ? value : "unset";
                return found == w[2] ? "" : found;
            });
        }
        if (w[0] == "trace" && w.size() == 2 && !mTracePath.empty()) {
            // Written as events happen: read until it holds what is expected.
            return eventuallyEmpty([&] {
                const ZelProgramRun run =
                        runZelProgram(kTraceCheck, {mTracePath, "--quiet", "--expect",
                                                    ZELD_TESTS_DIR "/" + w[1]});
                return run.status == 0 ? "" : run.out + run.err;
            });
        }
        if (w[0] == "daemon" && w.size() >= 2 && mDaemon) {
            const bool running = mDaemon->process().running();
            if (w[1] == "running") return running ? "" : "exited";
            return running ? "running" : "";
        }
        zelScenarioRefuse("unknown expectation");
    }

    std::string stepEnd() override { return mZelctl.stepEnd(); }

private:
    void breakRoot(const std::string& how) {
        if (how == "no-binder") {
            // A file where the runtime's directory should be: no service manager.
            std::filesystem::remove_all(mRoot.at("/dev/binder"));
            mRoot.writeFile("/dev/binder", "");
        } else if (how == "event-service-taken") {
            // A folder in the place of the registration: registering fails.
            std::filesystem::remove_all(mRoot.at("/dev/binder/services/com.ostrel.zeld.service.IZelEventManager"));
            mRoot.writeFile("/dev/binder/services/com.ostrel.zeld.service.IZelEventManager/taken", "");
        } else {
            zelScenarioRefuse("unknown root change");
        }
    }

    std::string startDaemon(bool traced) {
        mClient.reset();
        mRawSender.reset();
        mMonitor.reset();
        mDaemon.reset();  // a restart: the old daemon ends before the new one starts
        const std::string name = "zeld-" + std::to_string(++mDaemons);
        mTracePath = traced ? mRoot.at(name + ".trace.json") : "";
        mDaemon = std::make_unique<ZelDaemonProcess>(
                ZELD_BINARY, mRoot, name + ".log",
                traced ? std::vector<std::string>{"ZELD_TRACE=" + mTracePath} : std::vector<std::string>{});
        mLogCursor = 0;
        mStepLogStart = 0;
        if (mDaemon->waitUntilServing()) return "serving";
        if (mDaemon->process().running()) return "running, not serving";
        return "exit " + std::to_string(mDaemon->process().wait());
    }

    std::string memoryReport(const std::string& status, const std::string& usage) {
        const auto [used, threshold] = zelScenarioPair(usage);
        if (!mMonitor) mMonitor = std::make_unique<ZelMemoryReporter>();
        mMonitor->report({1, static_cast<uint8_t>(zelScenarioMemoryStatus(status)), std::stoull(used),
                          std::stoull(threshold)});
        return "";
    }

    std::string clientRequest(const std::string& kind, const std::string& key,
                              const std::map<std::string, std::string>& opts) {
        const auto [comp, task] = zelScenarioPair(key);
        const int32_t duration = opts.count("duration") ? std::stoi(opts.at("duration")) : 5000;
        const int32_t sent = opts.count("token") ? token(opts.at("token")) : 0;
        const int32_t function = opts.count("function") ? std::stoi(opts.at("function"))
                                 : kind == "request"  ? 1
                                 : kind == "started"  ? 2
                                                      : 3;
        return replyText(client().sendRequest(function, comp, task, sent, opts.count("notify") != 0,
                                              duration, kReplyWait));
    }

    // A message through the generated proxy: what libzelclient never sends.
    std::string rawSend(const std::string& sender, const std::string& kind, const std::vector<uint8_t>& bytes) {
        const auto service = android::interface_cast<IZelBinderIPC>(
                android::defaultServiceManager()->checkService(
                        android::String16("com.ostrel.zeld.service.IZelBinderIPC")));
        if (service == nullptr) zelScenarioRefuse("no daemon");
        const auto status = service->sendAsyncMessage(
                ServiceIdentifier(sender == "me" ? rawSender().clientId() : std::stoi(sender)),
                MessageIdentifier(std::stoi(kind)), bytes);
        return status.isOk() ? "ok" : status.exceptionCode() == -3 ? "refused" : "error";
    }

    // The test's client, made at its first use.
    ZelClient& client() { return connected(mClient, 0); }
    // "me" of raw sends: registered, so the daemon answers, but never making
    // requests, so that answer cannot be taken for the reply to one (a reply
    // record names no task).
    ZelClient& rawSender() { return connected(mRawSender, kRawSenderId); }
    ZelClient& connected(std::unique_ptr<ZelClient>& client, int32_t clientId) {
        if (!client) {
            ZelClientOptions options;
            options.clientId = clientId;
            ZelClientError error;
            client = ZelClient::connect(options, &error);
            if (!client) zelScenarioRefuse(std::string("no client: ") + toString(error));
        }
        return *client;
    }

    // "T<n> <canStart> <status>", tokens named in the order they first appear.
    std::string replyText(const ZelResult<ZelReply>& reply) {
        if (reply.error() == ZelClientError::kTimedOut) return "none";
        if (!reply.ok()) return toString(reply.error());
        std::string name = "0";
        if (reply->token != 0) {
            auto it = std::find_if(mTokens.begin(), mTokens.end(),
                                   [&](const auto& entry) { return entry.second == reply->token; });
            name = it != mTokens.end() ? it->first : "T" + std::to_string(mTokens.size() + 1);
            mTokens[name] = reply->token;
        }
        return name + " " + (reply->canStart ? "1" : "0") + " " + std::to_string(reply->status);
    }

    int32_t token(const std::string& word) const {
        if (word.empty() || word[0] != 'T') return std::stoi(word);
        const auto it = mTokens.find(word);
        if (it == mTokens.end()) zelScenarioRefuse("no token " + word + " yet");
        return it->second;
    }

    // {client}: the test client's identifier; {T1}: a token in hex, {T1:d} in decimal.
    std::string substitute(std::string text) const {
        std::map<std::string, std::string> values{
                {"{client}", mClient ? std::to_string(mClient->clientId()) : "?"}};
        for (const auto& [name, value] : mTokens) {
            values["{" + name + "}"] = zelHex(static_cast<uint32_t>(value));
            values["{" + name + ":d}"] = std::to_string(value);
        }
        return zelSubstitute(text, values);
    }

    std::string daemonLog() const { return mDaemon ? mDaemon->log() : ""; }

    ZelTestRoot mRoot;
    ZelctlRuns mZelctl{ZELCTL_BINARY, mRoot};
    std::unique_ptr<ZelDaemonProcess> mDaemon;
    int mDaemons = 0;
    std::string mTracePath;  // the daemon's trace file, when it traces
    std::unique_ptr<ZelMemoryReporter> mMonitor;
    std::unique_ptr<ZelClient> mClient;
    std::unique_ptr<ZelClient> mRawSender;
    std::map<std::string, int32_t> mTokens;
    size_t mLogCursor = 0;
    size_t mStepLogStart = 0;
};

ZEL_SCENARIO_TESTS(ZelDaemonScenarioTest, ZELD_DAEMON_SCENARIOS, ZelDaemonDriver);

}  // namespace
