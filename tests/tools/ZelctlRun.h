#pragma once

#include <string>
#include <vector>

// One run of the real zelctl binary.
struct ZelctlRun {
    int status = -1;  // exit status
    std::string out;
    std::string err;

    // Runs zelctl with `args` (each passed as one word).
    static ZelctlRun run(const std::vector<std::string>& args);

    std::vector<std::string> outLines() const;
    // The stdout lines starting with "warning: ".
    std::vector<std::string> warnings() const;
};
