#include "ZelctlPolicyCommand.h"

#include <log/log.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <set>

#include "ZelRapidJson.h"
#include "ZelJsonLocator.h"
#include "ZelPolicyGraph.h"
#include "ZelPolicyLint.h"
#include "ZelPolicyWalk.h"
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

// The whole file, as the loader reads it; false with errno set when it
// cannot be opened or read (a directory opens, but reads nothing).
bool readFile(const std::string& path, std::string& text) {
    FILE* file = fopen(path.c_str(), "r");
    if (file == nullptr) return false;
    char buffer[64 * 1024];
    size_t count;
    while ((count = fread(buffer, 1, sizeof(buffer), file)) > 0) text.append(buffer, count);
    const int error = ferror(file) != 0 ? errno : 0;
    fclose(file);
    errno = error;
    return error == 0;
}

// The place a finding names: its member's name or its value.
size_t offsetOf(const ZelPolicyFinding& finding, const ZelJsonLocator::Place& place) {
    return finding.atKey && place.key != std::string::npos ? place.key : place.value;
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
        explainRefusal(path, out);
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
    ZelPolicyWalk walk = ZelPolicyWalk::run(document);
    std::vector<ZelPolicyFinding> findings = std::move(walk.warnings);
    if (walk.refusal) {  // the walk and the loader disagree: show it rather than hide it
        walk.refusal->text = "the checker takes this for a refusal, which the loader accepts: " +
                             walk.refusal->text;
        findings.push_back(*walk.refusal);
    }
    for (ZelPolicyFinding& finding : ZelPolicyLint::run(document, *load.policy)) {
        findings.push_back(std::move(finding));
    }
    locate(text, findings);
    for (const ZelPolicyFinding& finding : findings) finding.print(out);
    out << path << ": accepted, " << findings.size()
        << (findings.size() == 1 ? " warning" : " warnings") << "\n";
    return kZelctlExitOk;
}

int ZelctlPolicyCommand::graph(const std::string& path, std::ostream& out, std::ostream& err) {
    const ZelctlPolicyLoad load = ZelctlPolicyLoad::fromFile(path);
    if (!load.accepted) {
        load.printLog(err, ANDROID_LOG_WARN);
        explainRefusal(path, err);
        err << path << ": refused: the daemon would not start with this policy\n";
        return kZelctlExitFailed;
    }
    ZelPolicyGraph::writeDot(*load.policy, out);
    return kZelctlExitOk;
}

void ZelctlPolicyCommand::explainRefusal(const std::string& path, std::ostream& out) {
    std::string text;
    if (!readFile(path, text)) {
        out << path << ": error: cannot read it: " << strerror(errno) << "\n";
        return;
    }
    size_t offset = 0;
    std::string reason;
    if (!ZelJsonLocator::parseError(text, &offset, &reason)) {
        rapidjson::Document document;
        document.Parse<rapidjson::kParseIterativeFlag>(text.c_str());
        const ZelPolicyWalk walk = ZelPolicyWalk::run(document);
        if (!walk.refusal) {
            out << path << ": error: the checker finds no fault where the loader refuses: "
                           "the loader's last line above says why\n";
            return;
        }
        const auto places = ZelJsonLocator::locate(text, {walk.refusal->path});
        const auto place = places.find(walk.refusal->path);
        offset = place != places.end() ? offsetOf(*walk.refusal, place->second) : 0;
        reason = walk.refusal->path.empty() ? walk.refusal->text
                                            : walk.refusal->path + ": " + walk.refusal->text;
    }
    const auto [line, column] = ZelJsonLocator::lineColumn(text, offset);
    out << path << ":" << line << ":" << column << ": error: " << reason << "\n";
}

void ZelctlPolicyCommand::locate(const std::string& text, std::vector<ZelPolicyFinding>& findings) {
    std::set<std::string> paths;
    for (const ZelPolicyFinding& finding : findings) {
        if (!finding.path.empty()) paths.insert(finding.path);
    }
    const auto places = ZelJsonLocator::locate(text, paths);
    for (ZelPolicyFinding& finding : findings) {
        const auto place = places.find(finding.path);
        if (finding.path.empty() || place == places.end()) continue;
        const auto [line, column] = ZelJsonLocator::lineColumn(text, offsetOf(finding, place->second));
        finding.where = "line " + std::to_string(line) + ", column " + std::to_string(column);
    }
}
