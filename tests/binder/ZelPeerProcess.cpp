#include "ZelPeerProcess.h"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <stdexcept>

extern char** environ;

ZelPeerProcess::ZelPeerProcess(const std::string& program, const std::vector<std::string>& args) {
    std::vector<std::string> argvStrings{program};
    argvStrings.insert(argvStrings.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& arg : argvStrings) argv.push_back(arg.data());
    argv.push_back(nullptr);
    if (posix_spawn(&mPid, program.c_str(), nullptr, nullptr, argv.data(), environ) != 0) {
        throw std::runtime_error("cannot start " + program);
    }
}

ZelPeerProcess::~ZelPeerProcess() {
    if (!mReaped) {
        kill(SIGKILL);
        wait();
    }
}

void ZelPeerProcess::kill(int signal) {
    if (!mReaped) ::kill(mPid, signal);
}

int ZelPeerProcess::wait() {
    if (mReaped) return mStatus;
    int status = 0;
    while (waitpid(mPid, &status, 0) < 0 && errno == EINTR) {
    }
    mReaped = true;
    mStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return mStatus;
}
