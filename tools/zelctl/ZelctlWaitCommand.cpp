// zelctl wait: the deferred approval of a start refused with notify.

#include <algorithm>
#include <cmath>
#include <limits>

#include "ZelctlClientCommand.h"
#include "ZelctlClientCommands.h"

namespace {

using Clock = ZelctlClientCommand::Clock;

// The approval goes to the client that made the pending request, which may
// have been another process; asking again this often finds it all the same.
constexpr std::chrono::milliseconds kAskAgain{500};
constexpr double kDefaultSeconds = 60;

int run(const std::vector<std::string>& words, std::ostream& out, std::ostream& err);

const ZelctlCommand kCommand = {
        "wait", "wait COMP TASK [--for SECONDS] [--duration MS]",
        "wait until a start refused with --notify is approved",
        "After a start refused with --notify (zelctl start --notify answered \"pending\"),\n"
        "waits until the daemon approves it and prints the approval with the start's\n"
        "token. The approval itself goes to the process that asked, so wait asks again\n"
        "with notify every half second: the pending request keeps its token, and the\n"
        "daemon answers canStart true once the task may start. (For a task that is\n"
        "already running, asking again is a repeated request: a non-auto-start task\n"
        "then draws a new token.)\n"
        "\n"
        "  --for SECONDS   how long to wait for the approval (default 60)\n"
        "  --duration MS   the run time asked for, as for start (default: the policy's)\n"
        "\n"
        "Exit status: 0 approved, 1 no approval in time or a failure, 2 wrong command\n"
        "line.\n",
        true, run};

int run(const std::vector<std::string>& words, std::ostream& out, std::ostream& err) {
    ZelctlClientCommand command(kCommand, out, err);
    int32_t duration = 0;
    double seconds = kDefaultSeconds;
    if (!command.parse(words, {{"--for", true}, {"--duration", true}}, {"COMP", "TASK"}) ||
        !command.readInt32("--duration", std::numeric_limits<int32_t>::max(), &duration)) {
        return kZelctlExitUsage;
    }
    if (command.args().has("--for") &&
        !zelctlParseSeconds(command.args().value("--for"), &seconds)) {
        command.refuse("--for: '" + command.args().value("--for") +
                       "' is not a number of seconds above 0");
        return kZelctlExitUsage;
    }
    return command.run([&] {
        auto* const client = command.connect(false);
        if (client == nullptr) return kZelctlExitFailed;

        const std::string& compId = command.positional(0);
        const std::string& taskId = command.positional(1);
        const Clock::time_point deadline =
                Clock::now() + std::chrono::milliseconds(std::llround(seconds * 1000));
        for (bool noted = false;;) {
            command.setDeadline(Clock::now() + command.timeout());
            const auto reply = client->requestStart(
                    compId, taskId, true, duration,
                    command.waitingFor("waiting for the reply to the start request"));
            // A request that met a purge is answered at the next memory report.
            const bool late =
                    !reply.ok() && reply.error() == zel::client::ZelClientError::kTimedOut;
            if (late && Clock::now() < deadline) continue;
            if (!reply.ok()) return command.fail(reply.error());
            if (reply->status != 0) return command.printReply("failed", reply.value(), false);
            if (reply->canStart) return command.printReply("approved", reply.value(), true);
            if (!noted) {
                noted = true;
                command.output().note("waiting for the approval of " + compId + "/" + taskId +
                                      " (token " + std::to_string(reply->token) + ")");
            }
            const auto left =
                    std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
            if (left.count() <= 0) break;
            // Delivered here when this request made the pending record.
            command.setDeadline(Clock::now() + std::min(left, kAskAgain));
            const auto approval = client->waitForApproval(
                    reply->token, command.waitingFor("waiting for the approval of the start"));
            if (approval.ok()) return command.printReply("approved", approval.value(), true);
        }
        const std::string within = command.args().value("--for", "60");
        return command.output().fail("no_approval", "no approval for " + compId + "/" + taskId +
                                                            " within " + within + " s");
    });
}

}  // namespace

const ZelctlCommand& zelctlWaitCommand() {
    return kCommand;
}
