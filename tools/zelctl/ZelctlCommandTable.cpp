#include "ZelctlCommandTable.h"

#include <algorithm>

#include "ZelctlClientCommand.h"
#include "ZelctlClientCommands.h"
#include "ZelctlPolicyCommand.h"

namespace {

// Options that may stand before the command's name ("zelctl --json start ...");
// the command reads them. True for those that take a value.
const std::vector<std::pair<std::string, bool>> kLeadingOptions = {
        {"--json", false}, {"--timeout", true}, {"--client-id", true}};

void printLines(std::ostream& stream, const std::string& prefix, const std::string& lines) {
    std::string::size_type start = 0;
    while (start < lines.size()) {
        const auto end = lines.find('\n', start);
        stream << prefix << lines.substr(start, end - start) << "\n";
        if (end == std::string::npos) break;
        start = end + 1;
    }
}

const ZelctlCommand* find(const std::string& name) {
    for (const ZelctlCommand& command : ZelctlCommandTable::commands()) {
        if (name == command.name) return &command;
    }
    return nullptr;
}

void printHelp(const ZelctlCommand& command, std::ostream& stream) {
    printLines(stream, "usage: zelctl ", command.synopsis);
    if (command.clientOptions) stream << "       (and the options below)\n";
    stream << "\n" << command.help;
    if (command.clientOptions) stream << "\nOptions of every command that talks to the daemon:\n"
                                      << kZelctlClientOptionsHelp;
}

}  // namespace

const std::vector<ZelctlCommand>& ZelctlCommandTable::commands() {
    static const std::vector<ZelctlCommand> table = {
            zelctlStartCommand(),
            zelctlStartedCommand(),
            zelctlCompletedCommand(),
            zelctlWaitCommand(),
            zelctlWatchCommand(),
            zelctlMemoryCommand(),
            zelctlPropsCommand(),
            zelctlDumpCommand(),
            {"policy", ZelctlPolicyCommand::kSynopsis, ZelctlPolicyCommand::kSummary,
             ZelctlPolicyCommand::kHelp, false, ZelctlPolicyCommand::run},
    };
    return table;
}

void ZelctlCommandTable::printUsage(std::ostream& stream) {
    stream << "usage:\n";
    for (const ZelctlCommand& command : commands()) printLines(stream, "  zelctl ", command.synopsis);
    stream << "commands:\n";
    for (const ZelctlCommand& command : commands()) {
        stream << "  " << command.name << std::string(11 - std::string(command.name).size(), ' ')
               << command.summary << "\n";
    }
    stream << "Commands that talk to the daemon also take:\n"
           << kZelctlClientOptionsHelp
           << "The daemon is found under the device root $ZELD_ROOT (unset: /).\n"
              "Exit status: 0 success, 1 refused or failed, 2 wrong command line.\n"
              "zelctl COMMAND --help describes one command.\n";
}

int ZelctlCommandTable::run(const std::vector<std::string>& args, std::ostream& out,
                            std::ostream& err) {
    std::vector<std::string> leading;
    size_t at = 0;
    for (; at < args.size(); ++at) {
        const std::string name = args[at].substr(0, args[at].find('='));
        const auto option = std::find_if(kLeadingOptions.begin(), kLeadingOptions.end(),
                                         [&](const auto& known) { return known.first == name; });
        if (option == kLeadingOptions.end()) break;
        leading.push_back(args[at]);
        if (option->second && name == args[at] && at + 1 < args.size()) leading.push_back(args[++at]);
    }
    if (at == args.size()) {
        err << "zelctl: missing command\n";
        printUsage(err);
        return kZelctlExitUsage;
    }
    const std::string& name = args[at];
    std::vector<std::string> words(args.begin() + static_cast<long>(at) + 1, args.end());
    if (name == "help" || name == "--help" || name == "-h") {
        const ZelctlCommand* command = words.empty() ? nullptr : find(words[0]);
        if (command != nullptr) {
            printHelp(*command, out);
        } else {
            printUsage(out);
        }
        return kZelctlExitOk;
    }
    const ZelctlCommand* command = find(name);
    if (command == nullptr) {
        err << "zelctl: unknown command '" << name << "'\n";
        printUsage(err);
        return kZelctlExitUsage;
    }
    for (const std::string& word : words) {
        if (word == "--") break;
        if (word == "--help" || word == "-h") {
            printHelp(*command, out);
            return kZelctlExitOk;
        }
    }
    words.insert(words.begin(), leading.begin(), leading.end());
    return command->run(words, out, err);
}
