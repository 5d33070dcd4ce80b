// zelctl start: a start request (function 1).

#include <limits>

#include "ZelctlClientCommand.h"
#include "ZelctlClientCommands.h"

namespace {

int run(const std::vector<std::string>& words, std::ostream& out, std::ostream& err);

const ZelctlCommand kCommand = {
        "start", "start COMP TASK [--notify] [--duration MS]",
        "ask whether a task may start now",
        "Asks the daemon whether task TASK of component COMP may start now. The reply\n"
        "carries the task's token, whether it may start (canStart) and a status code.\n"
        "\n"
        "  --notify        when the start is refused now, the daemon approves it later\n"
        "                  (wait for that with: zelctl wait COMP TASK)\n"
        "  --duration MS   the run time asked for; the daemon grants the smaller of this\n"
        "                  and the task's minimumGuaranteedRuntime (default: the policy's);\n"
        "                  -1 asks for no limit\n"
        "\n"
        "Prints one of: granted (may start now; report it with zelctl started), pending\n"
        "(refused now, approved later), refused (no token: ask again later) or failed\n"
        "(a status other than 0).\n"
        "Exit status: 0 granted, 1 anything else, 2 wrong command line.\n",
        true, run};

int run(const std::vector<std::string>& words, std::ostream& out, std::ostream& err) {
    ZelctlClientCommand command(kCommand, out, err);
    int32_t duration = 0;
    if (!command.parse(words, {{"--notify", false}, {"--duration", true}}, {"COMP", "TASK"}) ||
        !command.readInt32("--duration", std::numeric_limits<int32_t>::max(), &duration)) {
        return kZelctlExitUsage;
    }
    const bool notify = command.args().has("--notify");
    return command.run([&] {
        auto* const client = command.connect(false);
        if (client == nullptr) return kZelctlExitFailed;
        const auto reply = client->requestStart(
                command.positional(0), command.positional(1), notify, duration,
                command.waitingFor("waiting for the reply to the start request"));
        if (!reply.ok()) return command.fail(reply.error());

        const std::string names = command.positional(0) + " " + command.positional(1);
        if (reply->status != 0) return command.printReply("failed", reply.value(), false);
        if (reply->canStart) return command.printReply("granted", reply.value(), true);
        if (notify && reply->token != 0) {
            return command.printReply("pending", reply.value(), false,
                                      "approved later: zelctl wait " + names);
        }
        return command.printReply("refused", reply.value(), false, "ask again later");
    });
}

}  // namespace

const ZelctlCommand& zelctlStartCommand() {
    return kCommand;
}
