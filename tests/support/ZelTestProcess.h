#pragma once

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <unistd.h>
#include <sys/wait.h>

#include <cerrno>
#include <stdexcept>
#include <string>
#include <vector>

// A helper program run as a separate process; it inherits the environment
// (so ZELD_ROOT). With an output path its stdout and stderr go to that file,
// or stderr to its own file when an error path is given too. The destructor
// kills it if it still runs.
class ZelPeerProcess {
public:
    ZelPeerProcess(std::string program, const std::vector<std::string>& args,
                   const std::string& outputPath = "", const std::string& errorPath = "") {
        std::vector<std::string> strings{std::move(program)};
        strings.insert(strings.end(), args.begin(), args.end());
        std::vector<char*> argv;
        for (std::string& arg : strings) argv.push_back(arg.data());
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        if (!outputPath.empty()) {
            posix_spawn_file_actions_addopen(&actions, 1, outputPath.c_str(),
                                             O_WRONLY | O_CREAT | O_APPEND, 0644);
            posix_spawn_file_actions_adddup2(&actions, 1, 2);
        }
        if (!errorPath.empty()) {
            posix_spawn_file_actions_addopen(&actions, 2, errorPath.c_str(),
                                             O_WRONLY | O_CREAT | O_APPEND, 0644);
        }
        const int spawned = posix_spawn(&mPid, argv[0], &actions, nullptr, argv.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        if (spawned != 0) throw std::runtime_error("cannot start " + strings[0]);
    }
    ~ZelPeerProcess() {
        kill(SIGKILL);
        wait();
    }
    ZelPeerProcess(const ZelPeerProcess&) = delete;
    ZelPeerProcess& operator=(const ZelPeerProcess&) = delete;

    void kill(int signal) {
        if (mStatus < 0) ::kill(mPid, signal);
    }
    // Waits for the exit: the exit status, or 128 + signal number.
    int wait() {
        int status = 0;
        while (mStatus < 0 && waitpid(mPid, &status, 0) < 0 && errno == EINTR) {
        }
        if (mStatus < 0) mStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        return mStatus;
    }

    pid_t pid() const { return mPid; }
    // True while the process runs; once it has exited, wait() gives its status.
    bool running() {
        int status = 0;
        if (mStatus >= 0) return false;
        if (waitpid(mPid, &status, WNOHANG) != mPid) return true;
        mStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        return false;
    }

private:
    pid_t mPid = -1;
    int mStatus = -1;
};
