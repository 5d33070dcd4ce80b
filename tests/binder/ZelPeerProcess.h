#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

// A helper program run as a separate process for a multi-process test. It
// inherits the environment (so ZELD_ROOT) of the test; the destructor kills
// it if it still runs.
class ZelPeerProcess {
public:
    ZelPeerProcess(const std::string& program, const std::vector<std::string>& args);
    ~ZelPeerProcess();
    ZelPeerProcess(const ZelPeerProcess&) = delete;
    ZelPeerProcess& operator=(const ZelPeerProcess&) = delete;

    pid_t pid() const { return mPid; }
    void kill(int signal);
    // Waits for the exit: the exit status, or 128 + signal number.
    int wait();

private:
    pid_t mPid = -1;
    bool mReaped = false;
    int mStatus = -1;
};
