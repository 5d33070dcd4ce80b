#pragma once

#include <ostream>
#include <string>
#include <vector>

// Exit statuses shared by every zelctl command.
inline constexpr int kZelctlExitOk = 0;       // done; for checks: the daemon would accept
inline constexpr int kZelctlExitFailed = 1;   // the operation failed or the input was refused
inline constexpr int kZelctlExitUsage = 2;    // the command line was wrong

// One top-level zelctl command. `run` gets the words after the command's name
// and writes results to `out`, diagnostics to `err`.
struct ZelctlCommand {
    const char* name;
    const char* synopsis;  // usage lines, each without the program name
    const char* summary;
    const char* help;      // `zelctl NAME --help` prints it after the usage lines
    bool clientOptions;    // accepts --json, --timeout and --client-id
    int (*run)(const std::vector<std::string>& args, std::ostream& out, std::ostream& err);
};
