#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "ZelctlCommand.h"

// Dispatches a zelctl command line to the command named by its first word.
// New commands (for example ones that talk to the daemon) are added as one
// entry of the table in ZelctlCommandTable.cpp.
class ZelctlCommandTable {
public:
    static const std::vector<ZelctlCommand>& commands();
    static int run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err);
    static void printUsage(std::ostream& stream);
};
