// zelctl completed: the report that a task has completed (function 3).

#include "ZelctlClientCommand.h"
#include "ZelctlClientCommands.h"

namespace {

int run(const std::vector<std::string>& words, std::ostream& out, std::ostream& err);

const ZelctlCommand kCommand = {
        "completed", "completed COMP TASK [--token T]",
        "report that a task has completed",
        "Reports that task TASK of component COMP has completed. The daemon publishes\n"
        "the task's stop events and, for a START_PROCESS task, stops the component's\n"
        "process at its next purge. Deferred starts that now may run are approved.\n"
        "\n"
        "  --token T   the token sent along (the daemon neither uses nor checks it;\n"
        "              default 0)\n"
        "\n"
        "Exit status: 0 status 0, 1 any other status or failure (5: the daemon has no\n"
        "record of the task), 2 wrong command line.\n",
        true, run};

int run(const std::vector<std::string>& words, std::ostream& out, std::ostream& err) {
    ZelctlClientCommand command(kCommand, out, err);
    int32_t token = 0;
    if (!command.parse(words, {{"--token", true}}, {"COMP", "TASK"}) ||
        (command.args().has("--token") &&
         !command.readToken(command.args().value("--token"), "--token", &token))) {
        return kZelctlExitUsage;
    }
    return command.run([&] {
        auto* const client = command.connect(false);
        if (client == nullptr) return kZelctlExitFailed;
        const auto reply = client->reportCompleted(
                command.positional(0), command.positional(1), token,
                command.waitingFor("waiting for the reply to the completed report"));
        return command.printReport(reply, "completed");
    });
}

}  // namespace

const ZelctlCommand& zelctlCompletedCommand() {
    return kCommand;
}
