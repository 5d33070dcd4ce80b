#pragma once

#include <ostream>
#include <string>
#include <vector>

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
            "check a policy file as the daemon would load it, or print its task dependency graph";

    static int run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err);

private:
    static int check(const std::string& path, bool quiet, std::ostream& out);
    static int graph(const std::string& path, std::ostream& out, std::ostream& err);
};
