#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "ZelPolicyFinding.h"

// "zelctl policy ...": the daemon's policy loader run on a file, for
// integrators. "check" prints the loader's lines and the checker's warnings
// and exits 0 when the daemon would accept the file, 1 when it would not;
// "graph" prints the task dependency graph in Graphviz DOT.
class ZelctlPolicyCommand {
public:
    static constexpr const char* kSynopsis =
            "policy check [--quiet] FILE\n"
            "policy graph FILE";
    static constexpr const char* kSummary =
            "check a policy file as the daemon would load it, or print its dependency graph";
    static constexpr const char* kHelp =
            "check runs the daemon's own policy loader on FILE, prints every line it logs\n"
            "(--quiet: only warnings and errors), then warns about what loads but would\n"
            "hurt on a device (dependency cycles, repeated components, property texts that\n"
            "do not split, run times the reaper does not enforce, ...).\n"
            "graph prints the task dependency graph in Graphviz DOT:\n"
            "  zelctl policy graph FILE | dot -Tsvg > policy.svg\n"
            "\n"
            "Exit status: 0 the daemon would accept the file (warnings or not), 1 it would\n"
            "refuse it, 2 wrong command line.\n";

    static int run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err);

private:
    static int check(const std::string& path, bool quiet, std::ostream& out);
    static int graph(const std::string& path, std::ostream& out, std::ostream& err);
    // "FILE:LINE:COLUMN: error: PATH: reason" for a file the loader refused:
    // where it stopped and why, which the loader's own lines do not say.
    static void explainRefusal(const std::string& path, std::ostream& out);
    // Gives each finding with a JSON path its line and column in `text`.
    static void locate(const std::string& text, std::vector<ZelPolicyFinding>& findings);
};
