#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "ZelctlArgs.h"
#include "ZelctlBoundedRun.h"
#include "ZelctlCommand.h"
#include "ZelctlOutput.h"
#include "zel/client/ZelClient.h"
#include "zel/client/ZelEventClient.h"

// The help text of the options every command that talks to the daemon takes.
extern const char* const kZelctlClientOptionsHelp;

// What every command that talks to the daemon shares: its command line with
// the client options (--json, and --timeout MS, --client-id N when the
// command's clientOptions is set), the connection, the bound on the whole
// command, and the printing of replies and failures.
class ZelctlClientCommand {
public:
    using Clock = ZelctlBoundedRun::Clock;

    ZelctlClientCommand(const ZelctlCommand& command, std::ostream& out, std::ostream& err);

    // Reads `words` against the command's own options and the client
    // options; `positionals` names the positional words expected. False after
    // a usage message (exit with kZelctlExitUsage).
    bool parse(const std::vector<std::string>& words, std::vector<ZelctlArgs::Option> options,
               const std::vector<const char*>& positionals);

    const ZelctlArgs& args() const { return mArgs; }
    const std::string& positional(size_t index) const { return mArgs.positionals().at(index); }
    ZelctlOutput& output() { return mOutput; }
    std::chrono::milliseconds timeout() const { return mTimeout; }
    int32_t clientId() const { return mClientId; }

    // Runs `work` on a worker thread, bounded by the command's deadline
    // (--timeout from now, unless the work moves it): a daemon that does not
    // answer cannot hold the command longer (ZelctlBoundedRun). A stoppable
    // command also ends on SIGINT, SIGTERM and SIGHUP (waitForStop). The
    // connections are let go after the work.
    int run(const std::function<int()>& work, bool stoppable = false);
    void setDeadline(Clock::time_point deadline) { mDeadline = deadline; }
    // The work now waits on the daemon for `what` (named when it times out)
    // until the deadline; returns the time left, at least 1 ms.
    std::chrono::milliseconds waitingFor(const std::string& what);
    // The work waits for nothing of the daemon's for now (between reports,
    // for events): no limit.
    void unbounded();
    bool waitForStop(std::chrono::milliseconds timeout);

    // A usage message for a wrong command line; returns false.
    bool refuse(const std::string& problem);
    // Reads the value of an option (or `fallback` when absent); false after a
    // usage message.
    bool readInt32(const char* option, int32_t fallback, int32_t* out);
    bool readToken(const std::string& text, const char* what, int32_t* out);

    // Whether the daemon's root can be reached, waiting until the deadline
    // for it to appear, without touching it; false after a failure message.
    bool reachDaemon();
    // Connects before the deadline; null after a failure message. The
    // connection belongs to this command until the work has ended.
    zel::client::ZelClient* connect(bool reconnect);
    zel::client::ZelEventClient* connectEvents(zel::client::ZelEventClient::Handler handler,
                                               int32_t participantId, bool reconnect);

    // A failed call: a message for the error; returns the failure status.
    int fail(zel::client::ZelClientError error);
    // One reply: {compId, taskId, token, canStart, status} with --json, else
    // "VERDICT COMP/TASK: token T (0xT), canStart B, status S (text)[ - hint]".
    // Returns `success` as an exit status.
    int printReply(const std::string& verdict, const zel::client::ZelReply& reply, bool success,
                   const std::string& hint = "");
    // The answer to a started or completed report: `verdict` for status 0,
    // "refused" for any other, a failure message when there is none. A token
    // mismatch for `tokenText` (as given) that may have been the log's
    // hexadecimal says so.
    int printReport(const zel::client::ZelResult<zel::client::ZelReply>& reply,
                    const std::string& verdict, const std::string& tokenText = "");

private:
    const ZelctlCommand& mCommand;
    ZelctlArgs mArgs;
    ZelctlOutput mOutput;
    std::chrono::milliseconds mTimeout{2000};
    int32_t mClientId = 0;
    Clock::time_point mDeadline = Clock::time_point::max();
    ZelctlBoundedRun* mRun = nullptr;  // while run() runs
    // Used by the work and let go by the worker after it, never by another thread.
    std::unique_ptr<zel::client::ZelClient> mClient;
    std::unique_ptr<zel::client::ZelEventClient> mEventClient;
};
