// zelctl started: the report that a task has started (function 2).

#include "ZelctlClientCommand.h"
#include "ZelctlClientCommands.h"

namespace {

// The run time the daemon records for a critical task that starts without a
// start request: the policy's default guaranteed run time.
constexpr int32_t kDefaultDuration = 5000;

int run(const std::vector<std::string>& words, std::ostream& out, std::ostream& err);

const ZelctlCommand kCommand = {
        "started", "started COMP TASK TOKEN [--duration MS]",
        "report that a task has started",
        "Reports that task TASK of component COMP has started, quoting the TOKEN of its\n"
        "start grant: decimal as the replies print it, or hexadecimal as the daemon's log\n"
        "and dump print it (with or without 0x; one of digits only needs the 0x).\n"
        "A ZEL_TASK_CRITICAL task may report without a start request: the daemon then\n"
        "makes a record with a token of its own, and the reply echoes TOKEN.\n"
        "\n"
        "  --duration MS   the run time recorded for such a critical task (default 5000)\n"
        "\n"
        "Exit status: 0 status 0, 1 any other status or failure (4: token mismatch,\n"
        "5: wrong state), 2 wrong command line.\n",
        true, run};

int run(const std::vector<std::string>& words, std::ostream& out, std::ostream& err) {
    ZelctlClientCommand command(kCommand, out, err);
    int32_t duration = 0;
    int32_t token = 0;
    if (!command.parse(words, {{"--duration", true}}, {"COMP", "TASK", "TOKEN"}) ||
        !command.readInt32("--duration", kDefaultDuration, &duration) ||
        !command.readToken(command.positional(2), "TOKEN", &token)) {
        return kZelctlExitUsage;
    }
    return command.run([&] {
        auto* const client = command.connect(false);
        if (client == nullptr) return kZelctlExitFailed;
        const auto reply = client->reportStarted(
                command.positional(0), command.positional(1), token, duration,
                command.waitingFor("waiting for the reply to the started report"));
        return command.printReport(reply, "started", command.positional(2));
    });
}

}  // namespace

const ZelctlCommand& zelctlStartedCommand() {
    return kCommand;
}
