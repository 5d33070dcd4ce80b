#include "ZelctlCommandTable.h"

#include "ZelctlPolicyCommand.h"

const std::vector<ZelctlCommand>& ZelctlCommandTable::commands() {
    static const std::vector<ZelctlCommand> table = {
            {"policy", ZelctlPolicyCommand::kSynopsis, ZelctlPolicyCommand::kSummary,
             ZelctlPolicyCommand::run},
    };
    return table;
}

void ZelctlCommandTable::printUsage(std::ostream& stream) {
    stream << "usage:\n";
    for (const ZelctlCommand& command : commands()) {
        std::string synopsis = command.synopsis;
        std::string::size_type start = 0;
        while (start < synopsis.size()) {
            const auto end = synopsis.find('\n', start);
            stream << "  zelctl " << synopsis.substr(start, end - start) << "\n";
            if (end == std::string::npos) break;
            start = end + 1;
        }
    }
    stream << "commands:\n";
    for (const ZelctlCommand& command : commands()) {
        stream << "  " << command.name << "  " << command.summary << "\n";
    }
}

int ZelctlCommandTable::run(const std::vector<std::string>& args, std::ostream& out,
                            std::ostream& err) {
    if (args.empty()) {
        err << "zelctl: missing command\n";
        printUsage(err);
        return kZelctlExitUsage;
    }
    if (args[0] == "help" || args[0] == "--help" || args[0] == "-h") {
        printUsage(out);
        return kZelctlExitOk;
    }
    for (const ZelctlCommand& command : commands()) {
        if (args[0] == command.name) {
            return command.run(std::vector<std::string>(args.begin() + 1, args.end()), out, err);
        }
    }
    err << "zelctl: unknown command '" << args[0] << "'\n";
    printUsage(err);
    return kZelctlExitUsage;
}
