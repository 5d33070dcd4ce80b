#pragma once

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <unistd.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "ZelTestFiles.h"

// A helper program run as a separate process; it inherits the environment
// (so ZELD_ROOT). The destructor kills it if it still runs.
class ZelPeerProcess {
public:
    ZelPeerProcess(std::string program, const std::vector<std::string>& args,
                   const posix_spawn_file_actions_t* actions = nullptr) {
        std::vector<std::string> strings{std::move(program)};
        strings.insert(strings.end(), args.begin(), args.end());
        std::vector<char*> argv;
        for (std::string& arg : strings) argv.push_back(arg.data());
        argv.push_back(nullptr);
        if (posix_spawn(&mPid, argv[0], actions, nullptr, argv.data(), environ) != 0) {
            throw std::runtime_error("cannot start " + strings[0]);
        }
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
    int wait() { return reap(0); }
    // SIGSTOP or SIGCONT, returning once the process has stopped (every
    // thread of it) or continued, as its parent is told, or has exited.
    void freeze(bool stop) {
        if (mStatus >= 0 || mStopped == stop) return;
        ::kill(mPid, stop ? SIGSTOP : SIGCONT);
        for (int status = 0;;) {
            const pid_t reaped = waitpid(mPid, &status, stop ? WUNTRACED : WCONTINUED);
            if (reaped < 0 && errno == EINTR) continue;
            if (reaped != mPid) break;
            if (WIFEXITED(status) || WIFSIGNALED(status)) {
                mStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
                return;
            }
            if (stop ? WIFSTOPPED(status) : WIFCONTINUED(status)) break;
        }
        mStopped = stop;
    }
    // True while the process runs; once it has exited, wait() gives its status.
    bool running() { return reap(WNOHANG) < 0; }

private:
    int reap(int flags) {
        int status = 0;
        pid_t reaped = -1;
        while (mStatus < 0 && (reaped = waitpid(mPid, &status, flags)) < 0 && errno == EINTR) {
        }
        if (reaped == mPid) mStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        return mStatus;
    }

    pid_t mPid = -1;
    int mStatus = -1;
    bool mStopped = false;  // by freeze()
};

// Spawn actions that append a program's stdout and stderr to one file, or
// its stderr to a file of its own when `errorPath` is given.
class ZelOutputTo {
public:
    explicit ZelOutputTo(const std::string& path, const std::string& errorPath = "") {
        posix_spawn_file_actions_init(&mActions);
        posix_spawn_file_actions_addopen(&mActions, STDOUT_FILENO, path.c_str(),
                                         O_WRONLY | O_CREAT | O_APPEND, 0644);
        if (errorPath.empty()) {
            posix_spawn_file_actions_adddup2(&mActions, STDOUT_FILENO, STDERR_FILENO);
        } else {
            posix_spawn_file_actions_addopen(&mActions, STDERR_FILENO, errorPath.c_str(),
                                             O_WRONLY | O_CREAT | O_APPEND, 0644);
        }
    }
    ~ZelOutputTo() { posix_spawn_file_actions_destroy(&mActions); }
    ZelOutputTo(const ZelOutputTo&) = delete;
    ZelOutputTo& operator=(const ZelOutputTo&) = delete;
    const posix_spawn_file_actions_t* get() const { return &mActions; }

private:
    posix_spawn_file_actions_t mActions;
};

// A program run to its end, with what it wrote.
struct ZelProgramRun {
    int status;  // exit status, or 128 + signal number
    std::string out;
    std::string err;
};

inline ZelProgramRun runZelProgram(const std::string& program, const std::vector<std::string>& args) {
    char outPath[] = "/tmp/zeld-out-XXXXXX";
    char errPath[] = "/tmp/zeld-err-XXXXXX";
    close(mkstemp(outPath));
    close(mkstemp(errPath));
    const int status = ZelPeerProcess(program, args, ZelOutputTo(outPath, errPath).get()).wait();
    ZelProgramRun run{status, readZelTestFile(outPath), readZelTestFile(errPath)};
    unlink(outPath);
    unlink(errPath);
    return run;
}
