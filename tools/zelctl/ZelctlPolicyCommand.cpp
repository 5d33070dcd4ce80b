#include "ZelctlPolicyCommand.h"

#include <log/log.h>

#include <fstream>
#include <sstream>

#include "PolicyRapidJson.h"
#include "ZelPolicyGraph.h"
#include "ZelPolicyLint.h"
#include "ZelctlCommand.h"
#include "ZelctlPolicyLoad.h"

namespace {

int usageError(std::ostream& err, const std::string& problem) {
    err << "zelctl policy: " << problem << "\n"
        << "usage:\n"
        << "  zelctl policy check [--quiet] FILE   (--quiet: only the loader's warnings and errors)\n"
        << "  zelctl policy graph FILE\n";
    return kZelctlExitUsage;
}

bool readFile(const std::string& path, std::string& text) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    std::ostringstream content;
    content << in.rdbuf();
    text = content.str();
    return true;
}

}  // namespace

int ZelctlPolicyCommand::run(const std::vector<std::string>& args, std::ostream& out,
                             std::ostream& err) {
    // Options may stand anywhere, also before the subcommand.
    bool quiet = false;
    std::vector<std::string> words;
    for (const std::string& arg : args) {
        const std::string name = arg.substr(0, arg.find('='));
        if (arg == "--quiet" || arg == "-q") {
            quiet = true;
        } else if (name == "--json" || name == "--timeout" || name == "--client-id") {
            return usageError(err, name + " is not an option of policy: it talks to no daemon "
                                          "and prints text");
        } else if (arg.size() > 1 && arg[0] == '-') {
            return usageError(err, "unknown option '" + arg + "'");
        } else {
            words.push_back(arg);
        }
    }
    if (words.empty()) return usageError(err, "missing subcommand");
    const std::string& subcommand = words[0];
    if (subcommand != "check" && subcommand != "graph") {
        return usageError(err, "unknown subcommand '" + subcommand + "'");
    }
    if (quiet && subcommand == "graph") return usageError(err, "unknown option '--quiet'");
    if (words.size() != 2) return usageError(err, "expected exactly one FILE");
    return subcommand == "check" ? check(words[1], quiet, out) : graph(words[1], out, err);
}

int ZelctlPolicyCommand::check(const std::string& path, bool quiet, std::ostream& out) {
    const ZelctlPolicyLoad load = ZelctlPolicyLoad::fromFile(path);
    load.printLog(out, quiet ? ANDROID_LOG_WARN : ANDROID_LOG_VERBOSE);
    if (!load.accepted) {
        out << path << ": refused: the daemon would not start with this policy\n";
        return kZelctlExitFailed;
    }

    // The loader keeps no document; the checker reads the accepted text again.
    std::string text;
    rapidjson::Document document;
    if (!readFile(path, text) ||
        document.Parse<rapidjson::kParseIterativeFlag>(text.c_str()).HasParseError()) {
        out << path << ": accepted, but the file changed while it was checked\n";
        return kZelctlExitFailed;
    }
    const auto findings = ZelPolicyLint::run(document, *load.policy);
    for (const ZelPolicyFinding& finding : findings) finding.print(out);
    out << path << ": accepted, " << findings.size()
        << (findings.size() == 1 ? " warning" : " warnings") << "\n";
    return kZelctlExitOk;
}

int ZelctlPolicyCommand::graph(const std::string& path, std::ostream& out, std::ostream& err) {
    const ZelctlPolicyLoad load = ZelctlPolicyLoad::fromFile(path);
    if (!load.accepted) {
        load.printLog(err, ANDROID_LOG_WARN);
        err << path << ": refused: the daemon would not start with this policy\n";
        return kZelctlExitFailed;
    }
    ZelPolicyGraph::writeDot(*load.policy, out);
    return kZelctlExitOk;
}
