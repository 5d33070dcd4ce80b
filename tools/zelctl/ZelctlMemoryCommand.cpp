// zelctl memory: the resource monitor's memory report, once or periodically.

#include <cmath>

#include "ZelctlClientCommand.h"
#include "ZelctlClientCommands.h"

namespace {

using zel::client::ZelClientError;

constexpr uint32_t kCriticalStatus = 4;

int run(const std::vector<std::string>& words, std::ostream& out, std::ostream& err);

const ZelctlCommand kCommand = {
        "memory", "memory --status N --value V --threshold T [--every SECONDS] [--type N]",
        "publish the resource monitor's memory report (the host's monitor stand-in)",
        "Publishes the resource monitor's memory report as participant 5, group 1,\n"
        "event 1, as the device's resource monitor does. The daemon records it: status 4\n"
        "is critical (preemptable running tasks are stopped), any other status is not\n"
        "(auto-start tasks are started, deferred starts approved); a non-critical task\n"
        "may start while the threshold is not exceeded (value + the component's\n"
        "memoryRequirement <= threshold).\n"
        "\n"
        "  --status N        0 to 255; 4 is critical\n"
        "  --value V         memory in use (unsigned 64-bit)\n"
        "  --threshold T     the critical threshold (unsigned 64-bit)\n"
        "  --every SECONDS   publish again every SECONDS (\"0.5\" works) until SIGINT,\n"
        "                    SIGTERM or SIGHUP, following daemon restarts: the host's\n"
        "                    stand-in for the device's monitor. A request that arrives\n"
        "                    while the reaper purges waits for the next report, so\n"
        "                    run one of these beside a host daemon.\n"
        "  --type N          resource type, 0 to 255 (default 1, memory; the daemon\n"
        "                    ignores other types)\n"
        "\n"
        "Exit status: 0 published (with --every: stopped by a signal), 1 no daemon or a\n"
        "failed publication, 2 wrong command line.\n",
        true, run};

struct Report {
    uint64_t type = 1;
    uint64_t status = 0;
    uint64_t value = 0;
    uint64_t threshold = 0;
};

// Reads the four numbers; false after a usage message.
bool readReport(ZelctlClientCommand& command, Report* report) {
    const struct {
        const char* option;
        uint64_t* target;
        uint64_t maximum;
        bool required;
    } fields[] = {{"--status", &report->status, 255, true},
                  {"--value", &report->value, UINT64_MAX, true},
                  {"--threshold", &report->threshold, UINT64_MAX, true},
                  {"--type", &report->type, 255, false}};
    for (const auto& field : fields) {
        if (!command.args().has(field.option)) {
            if (field.required) return command.refuse(std::string(field.option) + " is required");
            continue;
        }
        const std::string text = command.args().value(field.option);
        if (!zelctlParseUint64(text, field.target) || *field.target > field.maximum) {
            return command.refuse(std::string(field.option) + ": '" + text + "' is not a whole number from 0 to " +
                                  std::to_string(field.maximum));
        }
    }
    return true;
}

int run(const std::vector<std::string>& words, std::ostream& out, std::ostream& err) {
    ZelctlClientCommand command(kCommand, out, err);
    Report report;
    double every = 0;
    if (!command.parse(words,
                       {{"--status", true}, {"--value", true}, {"--threshold", true},
                        {"--every", true}, {"--type", true}},
                       {}) ||
        !readReport(command, &report)) {
        return kZelctlExitUsage;
    }
    const bool repeat = command.args().has("--every");
    if (repeat && !zelctlParseSeconds(command.args().value("--every"), &every)) {
        command.refuse("--every: '" + command.args().value("--every") +
                       "' is not a number of seconds above 0");
        return kZelctlExitUsage;
    }

    return command.run(
            [&] {
                auto* const client = command.connectEvents(nullptr, command.clientId(), repeat);
                if (client == nullptr) return kZelctlExitFailed;
                const std::string what =
                        "type " + std::to_string(report.type) + ", status " +
                        std::to_string(report.status) +
                        (report.status == kCriticalStatus ? " (critical)" : " (not critical)") +
                        ", value " + std::to_string(report.value) + ", threshold " +
                        std::to_string(report.threshold);
                if (repeat) {
                    command.output().note("publishing every " + command.args().value("--every") +
                                          " s: " + what + "; stop with Ctrl-C");
                }
                const auto period = std::chrono::milliseconds(std::llround(every * 1000));
                uint64_t published = 0;
                ZelClientError lastError = ZelClientError::kNone;
                do {
                    command.setDeadline(ZelctlClientCommand::Clock::now() + command.timeout());
                    command.waitingFor("publishing the memory report");
                    const ZelClientError error = client->publishMemoryReport(
                            static_cast<uint8_t>(report.status), report.value, report.threshold,
                            static_cast<uint8_t>(report.type));
                    command.unbounded();
                    if (!repeat && error != ZelClientError::kNone) return command.fail(error);
                    if (error == ZelClientError::kNone) ++published;
                    if (error != lastError && error != ZelClientError::kNone) {
                        command.output().note(std::string("not published: ") + toString(error) +
                                              "; trying again");
                    }
                    lastError = error;
                } while (repeat && !command.waitForStop(period));

                ZelctlJsonObject object;
                object.addUnsigned("resourceType", report.type)
                        .addUnsigned("status", report.status)
                        .addUnsigned("value", report.value)
                        .addUnsigned("criticalThreshold", report.threshold)
                        .addUnsigned("published", published);
                command.output().print(object, "published " + std::to_string(published) +
                                                       " memory report" +
                                                       (published == 1 ? "" : "s") + ": " + what);
                return kZelctlExitOk;
            },
            repeat);
}

}  // namespace

const ZelctlCommand& zelctlMemoryCommand() {
    return kCommand;
}
