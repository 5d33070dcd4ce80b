#include "ZelProcess.h"

#include <errno.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <sstream>

namespace zel::binder {

bool zelProcessGone(pid_t pid) {
    if (pid <= 0) return false;
    if (kill(pid, 0) != 0 && errno == ESRCH) return true;
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string line;
    if (!std::getline(stat, line)) return true;
    // The state follows the command name, which is in parentheses and may
    // itself hold spaces or parentheses.
    const size_t close = line.rfind(')');
    if (close == std::string::npos || close + 2 >= line.size()) return false;
    const char state = line[close + 2];
    return state == 'Z' || state == 'X';
}

pid_t zelEndpointPid(const std::string& endpoint) {
    const size_t dash = endpoint.find('-');
    if (dash == 0 || dash == std::string::npos || dash > 10) return 0;
    pid_t pid = 0;
    for (size_t i = 0; i < dash; ++i) {
        if (endpoint[i] < '0' || endpoint[i] > '9') return 0;
        pid = pid * 10 + (endpoint[i] - '0');
    }
    return pid;
}

std::string zelNewEndpointName() {
    std::random_device random;
    char name[40];
    std::snprintf(name, sizeof(name), "%d-%08x", static_cast<int>(getpid()),
                  static_cast<unsigned>(random()));
    return name;
}

}  // namespace zel::binder
