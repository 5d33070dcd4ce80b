#include "ZelctlClientCommand.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <thread>

#include "ZelDevicePath.h"
#include "ZelctlDaemonRoot.h"

using zel::client::ZelClient;
using zel::client::ZelClientError;
using zel::client::ZelClientOptions;
using zel::client::ZelEventClient;
using zel::client::ZelReply;

const char* const kZelctlClientOptionsHelp =
        "  --json          print one JSON object instead of a line for a person\n"
        "  --timeout MS    how long the whole command may take (default 2000): a daemon\n"
        "                  that does not answer ends it with timed_out\n"
        "  --client-id N   the client identifier to register under (default: 0x40000000\n"
        "                  plus the process id, so two zelctl processes never share one;\n"
        "                  1 and 5 are reserved)\n";

namespace {

constexpr size_t kIdentifierBytes = 63;  // a 64-byte field with its NUL
constexpr int32_t kTokenMismatch = 4;    // the reply status of a wrong token
// Identifiers a client must not register under: replies and deliveries meant
// for their owners would reach it.
constexpr std::pair<int32_t, const char*> kReservedIds[] = {
        {1, "the daemon's own identifier"},
        {5, "the resource monitor's (zelctl memory publishes as 5 by itself)"}};
// How often a missing binder directory is looked for again, as the client
// library looks for a missing service.
constexpr std::chrono::milliseconds kRootPoll{50};

std::string hex(int32_t value) {
    char text[16];
    snprintf(text, sizeof(text), "0x%x", static_cast<uint32_t>(value));
    return text;
}

}  // namespace

ZelctlClientCommand::ZelctlClientCommand(const ZelctlCommand& command, std::ostream& out,
                                         std::ostream& err)
    : mCommand(command), mOutput(command.name, false, out, err) {}

bool ZelctlClientCommand::parse(const std::vector<std::string>& words,
                                std::vector<ZelctlArgs::Option> options,
                                const std::vector<const char*>& positionals) {
    for (const std::string& word : words) {
        if (word == "--json") mOutput.setJson(true);  // so that even a usage error is JSON
    }
    options.push_back({"--json", false});
    if (mCommand.clientOptions) {
        options.insert(options.end(), {{"--timeout", true}, {"--client-id", true}});
    }
    std::string problem;
    if (!mArgs.parse(words, options, &problem)) return refuse(problem);
    if (mArgs.positionals().size() != positionals.size()) {
        std::string names;
        for (const char* name : positionals) names += std::string(names.empty() ? "" : " ") + name;
        return refuse(names.empty() ? "takes no positional arguments" : "expected " + names);
    }
    for (size_t i = 0; i < positionals.size(); ++i) {
        const std::string name = positionals[i];
        if ((name == "COMP" || name == "TASK") && mArgs.positionals()[i].size() > kIdentifierBytes) {
            return refuse(name + " is longer than 63 bytes");
        }
    }
    int32_t timeout = 0;
    if (!readInt32("--timeout", 2000, &timeout)) return false;
    if (timeout <= 0) return refuse("--timeout must be above 0 ms");
    mTimeout = std::chrono::milliseconds(timeout);
    if (!readInt32("--client-id", 0, &mClientId)) return false;
    for (const auto& [id, whose] : kReservedIds) {
        if (mClientId == id) {
            return refuse("--client-id " + std::to_string(id) + " is reserved: " + whose);
        }
    }
    return true;
}

bool ZelctlClientCommand::readInt32(const char* option, int32_t fallback, int32_t* out) {
    *out = fallback;
    if (!mArgs.has(option)) return true;
    if (zelctlParseInt32(mArgs.value(option), out)) return true;
    return refuse(std::string(option) + ": '" + mArgs.value(option) +
                  "' is not a 32-bit whole number");
}

bool ZelctlClientCommand::readToken(const std::string& text, const char* what, int32_t* out) {
    if (zelctlParseToken(text, out)) return true;
    return refuse(std::string(what) + ": '" + text +
                  "' is not a token (0 to 2147483647, decimal or hexadecimal as the log prints "
                  "it, with or without 0x)");
}

bool ZelctlClientCommand::refuse(const std::string& problem) {
    mOutput.usage(problem, mCommand.synopsis);
    return false;
}

int ZelctlClientCommand::run(const std::function<int()>& work, bool stoppable) {
    ZelctlBoundedRun run(mOutput, mTimeout, stoppable);
    mRun = &run;
    mDeadline = Clock::now() + mTimeout;
    const int status = run.run(work, [this] {
        mClient.reset();
        mEventClient.reset();
    });
    mRun = nullptr;
    return status;
}

std::chrono::milliseconds ZelctlClientCommand::waitingFor(const std::string& what) {
    if (mRun != nullptr) mRun->await(what, mDeadline);
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(mDeadline -
                                                                            Clock::now());
    return std::max(left, std::chrono::milliseconds(1));
}

void ZelctlClientCommand::unbounded() {
    if (mRun != nullptr) mRun->await("", Clock::time_point::max());
}

bool ZelctlClientCommand::waitForStop(std::chrono::milliseconds timeout) {
    if (mRun != nullptr) return mRun->waitForStop(timeout);
    std::this_thread::sleep_for(timeout);
    return false;
}

bool ZelctlClientCommand::reachDaemon() {
    const std::string root = zelDeviceRoot();
    waitingFor("looking for it under " + root);
    for (;;) {
        std::string detail;
        switch (zelctlDaemonRoot(&detail)) {
            case ZelctlDaemonRoot::kReachable:
                return true;
            case ZelctlDaemonRoot::kDenied:
                mOutput.fail("permission_denied",
                             "this user (uid " + std::to_string(getuid()) +
                                     ") may not reach the daemon under the device root " + root +
                                     " (" + detail + "): run zelctl as the daemon's user");
                return false;
            case ZelctlDaemonRoot::kMissing:
                break;
        }
        if (Clock::now() >= mDeadline) {
            mOutput.fail("not_running",
                         "the daemon is not running: no daemon under the device root " +
                                 root + " (" + detail +
                                 "; start zeld with the same ZELD_ROOT)");
            return false;
        }
        std::this_thread::sleep_for(kRootPoll);
    }
}

ZelClient* ZelctlClientCommand::connect(bool reconnect) {
    if (!reachDaemon()) return nullptr;
    ZelClientOptions options;
    options.clientId = mClientId;
    options.connectTimeout = waitingFor("connecting to it");
    options.reconnect = reconnect;
    ZelClientError error = ZelClientError::kNone;
    mClient = ZelClient::connect(options, &error);
    if (mClient == nullptr) fail(error);
    return mClient.get();
}

ZelEventClient* ZelctlClientCommand::connectEvents(ZelEventClient::Handler handler,
                                                   int32_t participantId, bool reconnect) {
    if (!reachDaemon()) return nullptr;
    ZelClientOptions options;
    options.clientId = participantId;
    options.connectTimeout = waitingFor("connecting to its event service");
    options.reconnect = reconnect;
    ZelClientError error = ZelClientError::kNone;
    mEventClient = ZelEventClient::connect(options, std::move(handler), &error);
    if (mEventClient == nullptr) fail(error);
    return mEventClient.get();
}

int ZelctlClientCommand::fail(ZelClientError error) {
    const std::string timeout = std::to_string(mTimeout.count()) + " ms";
    switch (error) {
        case ZelClientError::kNotRunning:
            return mOutput.fail("not_running",
                                "the daemon is not running: its service was not found under the "
                                "device root " + zelDeviceRoot() + " within " + timeout +
                                        " (start zeld with the same ZELD_ROOT)");
        case ZelClientError::kTimedOut:
            return mOutput.fail("timed_out", "no reply from the daemon within " + timeout);
        case ZelClientError::kRefused:
            return mOutput.fail("refused", "the daemon refused the call (illegal argument)");
        case ZelClientError::kDied:
            return mOutput.fail("daemon_died", "the daemon died before it answered");
        case ZelClientError::kInvalidArgument:
            return mOutput.fail("invalid_argument", "the request cannot be encoded");
        case ZelClientError::kTransport:
        case ZelClientError::kTooManyConnections:
        case ZelClientError::kNone:
            break;
    }
    return mOutput.fail("transport", std::string("binder call failed: ") + toString(error));
}

int ZelctlClientCommand::printReply(const std::string& verdict, const ZelReply& reply,
                                    bool success, const std::string& hint) {
    const std::string& compId = positional(0);
    const std::string& taskId = positional(1);
    ZelctlJsonObject object;
    object.addString("compId", compId)
            .addString("taskId", taskId)
            .addNumber("token", reply.token)
            .addBool("canStart", reply.canStart)
            .addNumber("status", reply.status);
    std::string line = verdict + " " + compId + "/" + taskId + ": token " +
                       std::to_string(reply.token) + " (" + hex(reply.token) + "), canStart " +
                       (reply.canStart ? "true" : "false") + ", status " +
                       std::to_string(reply.status) + " (" + zel::client::statusText(reply.status) +
                       ")";
    if (!hint.empty()) line += " - " + hint;
    mOutput.print(object, line);
    return success ? kZelctlExitOk : kZelctlExitFailed;
}

int ZelctlClientCommand::printReport(const zel::client::ZelResult<ZelReply>& reply,
                                     const std::string& verdict, const std::string& tokenText) {
    if (!reply.ok()) return fail(reply.error());
    const bool ok = reply->status == 0;
    std::string hint;
    if (reply->status == kTokenMismatch && zelctlTokenMayBeHex(tokenText)) {
        hint = "if " + tokenText + " comes from the daemon's log, it is hexadecimal: write 0x" +
               tokenText;
    }
    return printReply(ok ? verdict : "refused", reply.value(), ok, hint);
}
